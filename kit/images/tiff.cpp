// TIFF files: the first page, in strips or tiles, grey, coloured or with a table of colours, 1 to
// 16 bits a sample, plain or compressed by PackBits, LZW or Deflate, with or without differences.
#include <algorithm>
#include <cstring>
#include <string>

#include "kit/images/stb_decoder.h"
#include "kit/images/tiff_directory.h"

namespace quillon::kit {
namespace {

enum Compression : uint32_t {
  kPlain = 1,
  kLzw = 5,
  kDeflate = 8,
  kOldDeflate = 32946,
  kPackBits = 32773,
};

enum Photometric : uint32_t { kWhiteIsZero = 0, kBlackIsZero = 1, kRgb = 2, kIndexed = 3 };

constexpr unsigned kMostSamples = 8;  // a pixel

// Bytes that one byte can become: an LZW code of 9 bits names at most 4096 - 258 bytes.
int64_t MostUnpacked(uint32_t compression) {
  switch (compression) {
    case kPlain:
      return 1;
    case kPackBits:
      return 64;
    case kLzw:
      return 3838;
    case kDeflate:
    case kOldDeflate:
      return 1032;
    default: {
      const char* name = compression <= 4                       ? " (fax)"
                         : compression == 6 || compression == 7 ? " (JPEG)"
                                                                : "";
      throw Unreadable("its compression " + std::to_string(compression) + name +
                       " is not read (none, PackBits, LZW and Deflate are)");
    }
  }
}

struct Layout {
  int width = 0, height = 0;
  unsigned bits = 1, samples = 1;  // of a sample; of a pixel
  uint32_t compression = kPlain, photometric = kBlackIsZero;
  bool arePlanes = false;  // one colour after the other
  bool areDifferences = false;
  int alpha = -1;  // the sample that is transparency
  bool isPremultiplied = false;
  // Strips are tiles as wide as the picture.
  int tileWidth = 0, tileHeight = 0;
  bool areTiles = false;
  std::vector<uint32_t> offsets, sizes;

  int Colours() const { return photometric == kRgb ? 3 : 1; }
  unsigned SamplesInTile() const { return arePlanes ? 1 : samples; }
  int64_t TileRowBytes() const { return (int64_t{tileWidth} * SamplesInTile() * bits + 7) / 8; }
  int Across() const { return (width + tileWidth - 1) / tileWidth; }
  int Down() const { return (height + tileHeight - 1) / tileHeight; }
};

std::string Text(uint32_t value) { return std::to_string(value); }

void ReadSamples(const TiffDirectory& directory, Layout& layout) {
  layout.samples = directory.Value(TiffTag::kSamplesAPixel, 1);
  if (layout.samples < 1 || layout.samples > kMostSamples) {
    throw Unreadable("its " + Text(layout.samples) + " samples a pixel are not within 1 to " +
                     Text(kMostSamples));
  }
  const std::vector<uint32_t> bits = directory.Values(TiffTag::kBits);
  layout.bits = bits.empty() ? 1 : bits[0];
  if (std::any_of(bits.begin(), bits.end(), [&](uint32_t b) { return b != layout.bits; }) ||
      layout.bits < 1 || layout.bits > 16) {
    throw Unreadable("its " + Text(layout.bits) + " bits a sample are not 1 to 16, all the same");
  }
  for (uint32_t format : directory.Values(TiffTag::kSampleFormat)) {
    if (format != 1 && format != 4) {
      throw Unreadable("its samples are no whole numbers from 0 (sample format " + Text(format) +
                       ")");
    }
  }
  layout.photometric = directory.Value(TiffTag::kPhotometric, kBlackIsZero);
  if (layout.photometric > kIndexed) {
    throw Unreadable("its kind of colours " + Text(layout.photometric) +
                     " is not read (grey, RGB and tables of colours are)");
  }
  const auto colours = static_cast<unsigned>(layout.Colours());
  if (layout.samples < colours) throw Unreadable("its colours are not complete");
  const std::vector<uint32_t> extra = directory.Values(TiffTag::kExtraSamples);
  for (unsigned i = 0; i < extra.size() && colours + i < layout.samples; ++i) {
    if (layout.alpha >= 0 || (extra[i] != 1 && extra[i] != 2)) continue;
    layout.alpha = static_cast<int>(colours + i);
    layout.isPremultiplied = extra[i] == 1;
  }
}

void ReadTiles(const TiffDirectory& directory, Layout& layout) {
  const auto side = [](uint32_t value) { return static_cast<int>(std::min(value, 65536u)); };
  layout.areTiles = !directory.Values(TiffTag::kTileOffsets).empty();
  if (layout.areTiles) {
    layout.tileWidth = side(directory.Value(TiffTag::kTileWidth, 0));
    layout.tileHeight = side(directory.Value(TiffTag::kTileHeight, 0));
  } else {
    layout.tileWidth = layout.width;
    layout.tileHeight =
        std::min(layout.height, side(directory.Value(TiffTag::kRowsAStrip, UINT32_MAX)));
  }
  if (layout.tileWidth < 1 || layout.tileHeight < 1) throw Unreadable("its parts have no size");
  layout.offsets =
      directory.Values(layout.areTiles ? TiffTag::kTileOffsets : TiffTag::kStripOffsets);
  layout.sizes = directory.Values(layout.areTiles ? TiffTag::kTileSizes : TiffTag::kStripSizes);
  const size_t count = static_cast<size_t>(layout.Across()) * static_cast<size_t>(layout.Down()) *
                       (layout.arePlanes ? layout.samples : 1);
  if (layout.offsets.size() < count || layout.sizes.size() < count) {
    throw Unreadable("it lists " + std::to_string(layout.offsets.size()) + " of " +
                     std::to_string(count) + " parts");
  }
}

Layout ReadLayout(const TiffDirectory& directory, int64_t maxPixels) {
  Layout layout;
  const uint32_t width = directory.Value(TiffTag::kWidth, 0);
  const uint32_t height = directory.Value(TiffTag::kHeight, 0);
  RequireSize(width, height, maxPixels);
  layout.width = static_cast<int>(width);
  layout.height = static_cast<int>(height);
  ReadSamples(directory, layout);
  layout.compression = directory.Value(TiffTag::kCompression, kPlain);
  layout.arePlanes = directory.Value(TiffTag::kPlanes, 1) == 2 && layout.samples > 1;
  if (directory.Value(TiffTag::kFillOrder, 1) != 1) {
    throw Unreadable("its bits run backwards, which is not read");
  }
  const uint32_t predictor = directory.Value(TiffTag::kPredictor, 1);
  layout.areDifferences = predictor == 2;
  if (predictor > 2 || (layout.areDifferences && layout.bits != 8 && layout.bits != 16)) {
    throw Unreadable("its predictor " + Text(predictor) + " is not read");
  }
  ReadTiles(directory, layout);
  return layout;
}

// A count n below 128: n + 1 bytes follow; above: the next byte, 257 - n times.
size_t UnpackBits(Bytes packed, std::span<unsigned char> unpacked) {
  size_t size = 0;
  for (size_t at = 0; at + 1 < packed.size() && size < unpacked.size();) {
    const size_t code = packed[at++];
    if (code == 128) continue;
    size_t count = code < 128 ? code + 1 : 257 - code;
    count = std::min(count, unpacked.size() - size);
    if (code < 128) {
      count = std::min(count, packed.size() - at);
      std::memcpy(&unpacked[size], &packed[at], count);
      at += count;
    } else {
      std::memset(&unpacked[size], packed[at++], count);
    }
    size += count;
  }
  return size;
}

// Codes of 9 to 12 bits, the greatest bit first, that name a byte or what an earlier code and the
// byte after it stood for; a code's bytes are found from the last to the first.
class LzwTable {
 public:
  static constexpr unsigned kClear = 256, kEnd = 257, kFirst = 258, kMost = 4096;

  size_t Unpack(Bytes packed, std::span<unsigned char> unpacked) {
    size_t size = 0, bit = 0;
    unsigned next = kFirst, width = 9, previous = kClear;
    while (bit + width <= 8 * packed.size() && size < unpacked.size()) {
      const unsigned code = CodeAt(packed, bit, width);
      bit += width;
      if (code == kEnd) break;
      if (code == kClear) {
        next = kFirst;
        width = 9;
        previous = kClear;
        continue;
      }
      if (previous == kClear) {
        if (code > 255) throw Unreadable("its LZW data are damaged, or of the oldest kind");
        unpacked[size++] = static_cast<unsigned char>(code);
      } else {
        if (code > next || next >= kMost) throw Unreadable("its LZW data are damaged");
        prefix_[next] = static_cast<uint16_t>(previous);
        length_[next] = static_cast<uint16_t>(LengthOf(previous) + 1);
        last_[next] = FirstOf(code == next ? previous : code);
        ++next;
        size += Write(code, unpacked.subspan(size));
        if (next == (1u << width) - 1 && width < 12) ++width;
      }
      previous = code;
    }
    return size;
  }

 private:
  static unsigned CodeAt(Bytes packed, size_t bit, unsigned width) {
    uint32_t window = 0;
    for (size_t i = 0; i < 3; ++i) {
      const size_t at = bit / 8 + i;
      window = window << 8 | (at < packed.size() ? packed[at] : 0u);
    }
    return window >> (24 - bit % 8 - width) & ((1u << width) - 1);
  }
  unsigned LengthOf(unsigned code) const { return code < 256 ? 1 : length_[code]; }
  unsigned char FirstOf(unsigned code) const {
    while (code > 255) code = prefix_[code];
    return static_cast<unsigned char>(code);
  }
  size_t Write(unsigned code, std::span<unsigned char> to) const {
    const size_t length = LengthOf(code);
    for (size_t i = length; i > 0; --i) {
      const auto byte = code < 256 ? static_cast<unsigned char>(code) : last_[code];
      if (i - 1 < to.size()) to[i - 1] = byte;
      code = code < 256 ? code : prefix_[code];
    }
    return std::min(length, to.size());
  }

  uint16_t prefix_[kMost], length_[kMost];
  unsigned char last_[kMost];
};

// The bytes of one strip or tile, rows of equal size.
void Unpack(const Layout& layout, Bytes packed, std::span<unsigned char> unpacked, size_t needed) {
  size_t size = 0;
  if (layout.compression == kPlain) {
    size = std::min(packed.size(), unpacked.size());
    std::memcpy(unpacked.data(), packed.data(), size);
  } else if (layout.compression == kPackBits) {
    size = UnpackBits(packed, unpacked);
  } else if (layout.compression == kLzw) {
    size = LzwTable().Unpack(packed, unpacked);
  } else {
    size = Inflate(packed, unpacked);
  }
  if (size < needed) {
    throw Unreadable("a part of it ends after " + std::to_string(size) + " of " +
                     std::to_string(needed) + " bytes");
  }
}

// The samples of a tile's row.
void ReadRow(const Layout& layout, const Fields& row, std::vector<uint16_t>& samples) {
  const size_t apart = layout.SamplesInTile();
  for (size_t i = 0; i < samples.size(); ++i) {
    unsigned value = 0;
    if (layout.bits == 8) {
      value = row.At8(i);
    } else if (layout.bits == 16) {
      value = row.At16(2 * i);
    } else {
      for (size_t bit = i * layout.bits; bit < (i + 1) * layout.bits; ++bit) {
        value = value << 1 | (row.At8(bit / 8) >> (7 - bit % 8) & 1);
      }
    }
    if (layout.areDifferences && i >= apart) value += samples[i - apart];
    samples[i] = static_cast<uint16_t>(layout.bits == 8 ? value & 255 : value);
  }
}

// Where a sample of a pixel goes in the raster; -1: nowhere.
int PlaceOf(const Layout& layout, unsigned sample) {
  if (static_cast<int>(sample) < layout.Colours()) return static_cast<int>(sample);
  return static_cast<int>(sample) == layout.alpha ? layout.Colours() : -1;
}

// Puts a tile into the raster; what lies beyond the picture's edges fills the tile up.
class Tiles {
 public:
  Tiles(const Layout& layout, const TiffDirectory& directory, Raster& raster)
      : layout_(layout), raster_(raster), isLeastFirst_(directory.File().IsLeastFirst()) {
    row_.resize(static_cast<size_t>(layout.tileWidth) * layout.SamplesInTile());
    bytes_.resize(static_cast<size_t>(layout.TileRowBytes() * layout.tileHeight));
  }

  void Read(Bytes packed, int left, int top, unsigned firstSample) {
    const auto rowBytes = static_cast<size_t>(layout_.TileRowBytes());
    const int rows = std::min(layout_.tileHeight, layout_.height - top);
    const int stored = layout_.areTiles ? layout_.tileHeight : rows;
    Unpack(layout_, packed, bytes_, rowBytes * static_cast<size_t>(stored));
    const auto order = isLeastFirst_ ? Fields::Order::kLeastFirst : Fields::Order::kGreatestFirst;
    for (int y = 0; y < rows; ++y) {
      const Bytes row = Bytes(bytes_).subspan(static_cast<size_t>(y) * rowBytes, rowBytes);
      ReadRow(layout_, Fields(row, order), row_);
      Store(left, top + y, firstSample);
    }
  }

 private:
  void Store(int left, int y, unsigned firstSample) {
    const int columns = std::min(layout_.tileWidth, layout_.width - left);
    const auto count = static_cast<size_t>(raster_.SamplesAPixel());
    const unsigned samples = layout_.SamplesInTile();
    for (unsigned s = 0; s < samples; ++s) {
      const int place = PlaceOf(layout_, firstSample + s);
      if (place < 0) continue;
      size_t to = (static_cast<size_t>(y) * static_cast<size_t>(layout_.width) +
                   static_cast<size_t>(left)) *
                      count +
                  static_cast<size_t>(place);
      for (int x = 0; x < columns; ++x, to += count) {
        const uint16_t value = row_[static_cast<size_t>(x) * samples + s];
        if (raster_.isWide) {
          raster_.Wide()[to] = value;
        } else {
          raster_.samples.get()[to] = static_cast<unsigned char>(value);
        }
      }
    }
  }

  const Layout& layout_;
  Raster& raster_;
  bool isLeastFirst_;
  std::vector<unsigned char> bytes_;
  std::vector<uint16_t> row_;
};

// Grey values that name colours become the colours, or the greys where there are no others; the
// table holds all reds, then all greens, then all blues, of 16 bits, the byte that counts above.
void LookUp(const TiffDirectory& directory, const Layout& layout, Raster& raster) {
  const std::vector<uint32_t> table = directory.Values(TiffTag::kColourMap);
  const size_t colours = size_t{1} << layout.bits;
  if (layout.bits > 8 || table.size() < 3 * colours) {
    throw Unreadable("its table of colours is missing, or too short");
  }
  std::vector<unsigned char> bytes;
  for (size_t i = 0; i < colours; ++i) {
    for (size_t c = 0; c < 3; ++c) {
      bytes.push_back(static_cast<unsigned char>(table[c * colours + i] >> 8));
    }
  }
  Raster coloured;
  coloured.width = raster.width;
  coloured.height = raster.height;
  coloured.isColour = !IsGreyTable(bytes, 3);
  AllocateSamples(coloured);
  const size_t pixels = static_cast<size_t>(raster.width) * static_cast<size_t>(raster.height);
  const auto step = static_cast<size_t>(raster.SamplesAPixel());
  unsigned char* to = coloured.samples.get();
  for (size_t i = 0; i < pixels; ++i) {
    const unsigned char* colour = &bytes[3 * size_t{raster.samples.get()[i * step]}];
    to = std::copy_n(colour, coloured.Colours(), to);
  }
  coloured.orientation = raster.orientation;
  coloured.notes = std::move(raster.notes);
  raster = std::move(coloured);
}

// The greatest sample is a matter of statistics in most files; of a picture of fewer bits it says
// how many there are.
void SetWhite(const TiffDirectory& directory, Raster& raster, unsigned bits) {
  raster.white = raster.opaque = (1 << bits) - 1;
  if (bits != 16) return;
  const uint32_t most = directory.Value(TiffTag::kMaxSampleValue, 0);
  raster.isWhiteKnown = most >= 255 && most < 65536 && ((most + 1) & most) == 0;
  if (raster.isWhiteKnown) raster.white = static_cast<int>(most);
}

}  // namespace

Raster DecodeTiff(Bytes file, int64_t maxPixels) {
  const TiffDirectory directory(file);
  const Layout layout = ReadLayout(directory, maxPixels);
  const int64_t most = MostUnpacked(layout.compression);
  const int64_t tileBytes = layout.TileRowBytes() * layout.tileHeight;
  int64_t packed = 0;
  for (uint32_t size : layout.sizes) packed += size;
  if (packed > static_cast<int64_t>(file.size())) {
    throw Unreadable("it ends too early: its parts take " + std::to_string(packed) + " of " +
                     std::to_string(file.size()) + " bytes");
  }
  const int64_t rowBytes = (int64_t{layout.width} * layout.SamplesInTile() * layout.bits + 7) / 8;
  const int64_t planes = layout.arePlanes ? layout.samples : 1;
  RequireRoom(layout.width, layout.height, rowBytes * layout.height * planes, packed * most, file);
  RequireRoom(layout.tileWidth, layout.tileHeight, tileBytes, packed * most + UINT16_MAX, file);

  Raster raster;
  raster.width = layout.width;
  raster.height = layout.height;
  raster.isColour = layout.Colours() == 3;
  raster.isWide = layout.bits > 8;
  raster.isInverted = layout.photometric == kWhiteIsZero;
  if (layout.alpha >= 0) {
    raster.transparency =
        layout.isPremultiplied ? Transparency::kPremultiplied : Transparency::kStraight;
  }
  raster.orientation = static_cast<int>(directory.Value(TiffTag::kOrientation, 1));
  SetWhite(directory, raster, layout.bits);
  if (directory.HasMore()) raster.notes.push_back("it has several pages; the first one was read");
  AllocateSamples(raster);
  Tiles tiles(layout, directory, raster);
  size_t index = 0;
  for (unsigned plane = 0; plane < planes; ++plane) {
    for (int y = 0; y < layout.Down(); ++y) {
      for (int x = 0; x < layout.Across(); ++x, ++index) {
        const Bytes part = directory.File().Part(layout.offsets[index], layout.sizes[index]);
        tiles.Read(part, x * layout.tileWidth, y * layout.tileHeight, plane);
      }
    }
  }
  if (layout.photometric == kIndexed) LookUp(directory, layout, raster);
  return raster;
}

}  // namespace quillon::kit
