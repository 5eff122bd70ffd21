// BMP files without compression: 1, 4 and 8 bits with a table of colours, 16, 24 and 32 bits; rows
// from the bottom or, where the height is negative, from the top.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>

#include "kit/images/fields.h"

namespace quillon::kit {
namespace {

constexpr size_t kFileHeader = 14;  // before the header that says its own size
enum Compression : uint32_t { kPlain = 0, kRle8 = 1, kRle4 = 2, kMasks = 3, kMasksAndAlpha = 6 };

struct Header {
  size_t size = 0;  // bytes of this header
  size_t pixels = 0;
  int width = 0, height = 0, bits = 0;
  bool isFromTop = false;
  uint32_t compression = kPlain;
  uint32_t colours = 0;  // in the table
};

Header ReadHeader(const Fields& file) {
  Header header;
  header.pixels = file.At32(10);
  header.size = file.At32(kFileHeader);
  if (header.size == 12) {  // the oldest kind, of 16-bit numbers
    header.width = static_cast<int>(file.At16(18));
    header.height = static_cast<int>(file.At16(20));
    header.bits = static_cast<int>(file.At16(24));
  } else if (header.size >= 40 && header.size <= 124) {
    header.width = static_cast<int>(file.At32(18));
    const auto height = static_cast<int64_t>(static_cast<int32_t>(file.At32(22)));
    header.isFromTop = height < 0;
    header.height = static_cast<int>(std::min<int64_t>(std::abs(height), INT32_MAX));
    header.bits = static_cast<int>(file.At16(28));
    header.compression = file.At32(30);
    header.colours = file.At32(46);
  } else {
    throw Unreadable("its header of " + std::to_string(header.size) + " bytes is unknown");
  }
  return header;
}

void RequireKnown(const Header& header) {
  if (header.compression == kRle8 || header.compression == kRle4) {
    throw Unreadable("it is compressed by run lengths, which is not read in BMP files");
  }
  const bool hasMasks = header.compression == kMasks || header.compression == kMasksAndAlpha;
  if (header.compression != kPlain && !hasMasks) {
    throw Unreadable("its compression " + std::to_string(header.compression) + " is not read");
  }
  const auto is = [&](std::initializer_list<int> bits) {
    return std::find(bits.begin(), bits.end(), header.bits) != bits.end();
  };
  if (!(hasMasks ? is({16, 32}) : is({1, 4, 8, 16, 24, 32}))) {
    throw Unreadable("its " + std::to_string(header.bits) + " bits a pixel are not read");
  }
}

// Where a colour's bits lie in a pixel, and the byte of each value that they can have.
class Channel {
 public:
  explicit Channel(uint32_t mask) : mask_(mask), shift_(mask != 0 ? std::countr_zero(mask) : 0) {}
  unsigned char operator()(uint32_t pixel) const {
    const uint64_t most = mask_ >> shift_;
    if (most == 0) return 0;
    return static_cast<unsigned char>((2 * 255 * uint64_t{(pixel & mask_) >> shift_} + most) /
                                      (2 * most));
  }

 private:
  uint32_t mask_;
  int shift_;
};

// The table of colours: blue, green and red of each.
struct Table {
  Bytes bytes;
  size_t entry;    // bytes of a colour
  uint32_t count;  // of colours
};

Table ReadTable(const Fields& file, const Header& header) {
  const size_t entry = header.size == 12 ? 3 : 4;
  const uint32_t most = 1u << header.bits;
  const uint32_t count = header.colours == 0 ? most : std::min(header.colours, most);
  return {file.Part(kFileHeader + header.size, count * entry), entry, count};
}

void ReadIndexed(const Fields& file, const Header& header, const Table& table, size_t stride,
                 Raster& raster) {
  const unsigned mask = (1u << header.bits) - 1;
  const int samples = raster.Colours();
  unsigned char* to = raster.samples.get();
  for (int y = 0; y < raster.height; ++y) {
    const auto row = static_cast<size_t>(header.isFromTop ? y : raster.height - 1 - y);
    for (int x = 0; x < raster.width; ++x, to += samples) {
      const size_t bit = static_cast<size_t>(x) * static_cast<size_t>(header.bits);
      const unsigned byte = file.At8(header.pixels + row * stride + bit / 8);
      const unsigned index = byte >> (8 - header.bits - static_cast<int>(bit % 8)) & mask;
      if (index >= table.count) {
        throw Unreadable("a pixel names colour " + std::to_string(index) + " of a table of " +
                         std::to_string(table.count));
      }
      const unsigned char* colour = &table.bytes[index * table.entry];
      for (int c = 0; c < samples; ++c) to[c] = colour[2 - c];
    }
  }
}

// Red, green, blue and transparency; a mask of 0: there is none.
std::array<uint32_t, 4> MasksOf(const Fields& file, const Header& header) {
  if (header.compression == kPlain) {
    if (header.bits == 16) return {0x7C00, 0x3E0, 0x1F, 0};
    return {0xFF0000, 0xFF00, 0xFF, 0};  // the fourth byte says nothing
  }
  constexpr size_t kAt = kFileHeader + 40;
  const bool hasFourth = header.size >= 56 || header.compression == kMasksAndAlpha;
  return {file.At32(kAt), file.At32(kAt + 4), file.At32(kAt + 8),
          hasFourth ? file.At32(kAt + 12) : 0};
}

void ReadDirect(const Fields& file, const Header& header, size_t stride, Raster& raster) {
  const std::array<uint32_t, 4> masks = MasksOf(file, header);
  const Channel channels[] = {Channel(masks[0]), Channel(masks[1]), Channel(masks[2]),
                              Channel(masks[3])};
  const bool isPlainBytes = masks[0] == 0xFF0000 && masks[1] == 0xFF00 && masks[2] == 0xFF;
  const auto size = static_cast<size_t>(header.bits) / 8;
  const int count = raster.SamplesAPixel();
  unsigned char* to = raster.samples.get();
  bool isEmpty = true;
  for (int y = 0; y < raster.height; ++y) {
    const auto row = static_cast<size_t>(header.isFromTop ? y : raster.height - 1 - y);
    const unsigned char* from =
        file.Part(header.pixels + row * stride, static_cast<size_t>(raster.width) * size).data();
    for (int x = 0; x < raster.width; ++x, from += size, to += count) {
      if (isPlainBytes && count == 3) {
        for (int c = 0; c < 3; ++c) to[c] = from[2 - c];
        continue;
      }
      uint32_t pixel = 0;
      for (size_t i = 0; i < size; ++i) pixel |= uint32_t{from[i]} << (8 * i);
      for (int c = 0; c < count; ++c) to[c] = channels[c](pixel);
      isEmpty = isEmpty && count == 4 && to[3] == 0;
    }
  }
  // Many writers leave the transparency empty: then it says nothing.
  if (count == 4 && isEmpty) {
    for (unsigned char* fourth = raster.samples.get() + 3; fourth < to; fourth += 4) *fourth = 255;
  }
}

}  // namespace

Raster DecodeBmp(Bytes bytes, int64_t maxPixels) {
  const Fields file(bytes, Fields::Order::kLeastFirst);
  const Header header = ReadHeader(file);
  RequireSize(header.width, header.height, maxPixels);
  RequireKnown(header);
  Raster raster;
  raster.width = header.width;
  raster.height = header.height;
  raster.isColour = true;
  const size_t rowBits = static_cast<size_t>(header.width) * static_cast<size_t>(header.bits);
  const size_t stride = (rowBits + 31) / 32 * 4;
  // The last row may lack the bytes that fill it up.
  const size_t needed = stride * static_cast<size_t>(header.height - 1) + (rowBits + 7) / 8;
  RequireRoom(header.width, header.height, static_cast<int64_t>(header.pixels + needed),
              static_cast<int64_t>(bytes.size()), bytes);
  if (header.bits > 8 && MasksOf(file, header)[3] != 0) {
    raster.transparency = Transparency::kStraight;
  }
  if (header.bits <= 8) {
    const Table table = ReadTable(file, header);
    raster.isColour = !IsGreyTable(table.bytes, table.entry);
    AllocateSamples(raster);
    ReadIndexed(file, header, table, stride, raster);
  } else {
    AllocateSamples(raster);
    ReadDirect(file, header, stride, raster);
  }
  return raster;
}

}  // namespace quillon::kit
