// PNG files: every chunk's checksum and the end are tested, and what the header promises is weighed
// against the data; then the small decoder reads them.
#include <array>
#include <cstring>

#include "kit/images/fields.h"
#include "kit/images/stb_decoder.h"
#include "kit/images/tiff_directory.h"

namespace quillon::kit {
namespace {

constexpr size_t kSignature = 8;
constexpr int kMostUnpacked = 1032;  // bytes that one byte of compressed data can become

constexpr uint32_t Name(const char (&text)[5]) {
  uint32_t name = 0;
  for (int i = 0; i < 4; ++i) name = name << 8 | static_cast<unsigned char>(text[i]);
  return name;
}

std::array<uint32_t, 256> ChecksumTable() {
  std::array<uint32_t, 256> table;
  for (uint32_t i = 0; i < 256; ++i) {
    table[i] = i;
    for (int bit = 0; bit < 8; ++bit) {
      table[i] = table[i] >> 1 ^ ((table[i] & 1) != 0 ? 0xEDB88320 : 0);
    }
  }
  return table;
}

uint32_t Checksum(Bytes bytes) {
  static const std::array<uint32_t, 256> table = ChecksumTable();
  uint32_t sum = ~0u;
  for (unsigned char byte : bytes) sum = table[(sum ^ byte) & 255] ^ sum >> 8;
  return ~sum;
}

struct Chunks {
  uint32_t width = 0, height = 0;
  unsigned depth = 0, colour = 0;
  int64_t data = 0;              // bytes of compressed pixels
  unsigned significantBits = 0;  // 0: the file does not say
  int orientation = 1;
  bool namesGreys = false;  // pixels name entries of a table of greys
};

Chunks ReadChunks(const Fields& file) {
  Chunks chunks;
  for (size_t at = kSignature;;) {
    const uint32_t size = file.At32(at), name = file.At32(at + 4);
    const Bytes content = file.Part(at + 8, size);
    if (Checksum(file.Part(at + 4, size_t{size} + 4)) != file.At32(at + 8 + size)) {
      throw Unreadable("a checksum is wrong: its bytes " + std::to_string(at) + " to " +
                       std::to_string(at + 11 + size) + " are damaged");
    }
    if ((at == kSignature) != (name == Name("IHDR")) || (at == kSignature && size != 13)) {
      throw Unreadable("it does not begin with one header");
    }
    if (name == Name("IHDR")) {
      chunks.width = file.At32(at + 8);
      chunks.height = file.At32(at + 12);
      chunks.depth = content[8];
      chunks.colour = content[9];
    } else if (name == Name("IDAT")) {
      chunks.data += size;
    } else if (name == Name("PLTE")) {
      chunks.namesGreys = chunks.colour == 3 && IsGreyTable(content, 3);
    } else if (name == Name("sBIT")) {
      for (unsigned char bits :
           content.first(std::min<size_t>(size, (chunks.colour & 2) ? 3 : 1))) {
        chunks.significantBits = std::max<unsigned>(chunks.significantBits, bits);
      }
    } else if (name == Name("eXIf")) {
      chunks.orientation = OrientationOf(content);
    } else if (name == Name("IEND")) {
      return chunks;
    }
    at += size_t{size} + 12;
  }
}

// A writer that knows of fewer bits than 16 fills the sample from the top. Many cameras' writers
// say how many bits there are, and leave them at the bottom: then no sample has a higher bit, and
// below the top bits there is something else than zeros or the top bits again.
bool IsAtTheBottom(const Raster& raster, unsigned bits) {
  const int unused = 16 - static_cast<int>(bits), count = raster.SamplesAPixel();
  bool isBelow = true, isFilled = true;
  const uint16_t* sample = raster.Wide();
  const auto pixels = static_cast<size_t>(raster.width) * static_cast<size_t>(raster.height);
  for (size_t i = pixels; i > 0; --i, sample += count) {
    for (int c = 0; c < raster.Colours(); ++c) {
      isBelow = isBelow && sample[c] >> bits == 0;
      const int rest = sample[c] & ((1 << unused) - 1);
      isFilled = isFilled && (rest == 0 || rest == sample[c] >> bits);
    }
  }
  return isBelow && !isFilled;
}

// The decoder gives the three colours of each entry; where they are the same, one is enough.
void KeepOneColour(Raster& raster) {
  const int from = raster.SamplesAPixel();
  raster.isColour = false;
  const int to = raster.SamplesAPixel();
  unsigned char* samples = raster.samples.get();
  const auto pixels = static_cast<size_t>(raster.width) * static_cast<size_t>(raster.height);
  for (size_t i = 0; i < pixels; ++i) {
    const unsigned char grey = samples[i * from], last = samples[i * from + from - 1];
    samples[i * to] = grey;
    if (to == 2) samples[i * to + 1] = last;
  }
}

}  // namespace

Raster DecodePng(Bytes bytes, int64_t maxPixels) {
  const Fields file(bytes, Fields::Order::kGreatestFirst);
  const Chunks chunks = ReadChunks(file);
  RequireSize(chunks.width, chunks.height, maxPixels);
  const int samples = (chunks.colour == 2 || chunks.colour == 6 ? 3 : 1) + (chunks.colour >= 4);
  const int64_t rowBits = int64_t{chunks.width} * samples * chunks.depth;
  RequireRoom(chunks.width, chunks.height, (rowBits + 7) / 8 * chunks.height,
              chunks.data * kMostUnpacked, bytes);
  const bool isWide = chunks.depth == 16;
  Raster raster =
      DecodeByStb(bytes, static_cast<int>(chunks.width), static_cast<int>(chunks.height), isWide);
  raster.orientation = chunks.orientation;
  if (chunks.namesGreys) KeepOneColour(raster);
  if (isWide) {
    raster.white = raster.opaque = 65535;
    const unsigned bits = chunks.significantBits;
    raster.isWhiteKnown = bits >= 1 && bits <= 16;
    if (bits >= 8 && bits < 16 && IsAtTheBottom(raster, bits)) raster.white = (1 << bits) - 1;
  }
  return raster;
}

}  // namespace quillon::kit
