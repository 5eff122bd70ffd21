#include "kit/images/raster.h"

#include <algorithm>

#include "kit/errors.h"
#include "kit/text/text.h"

namespace quillon::kit {
namespace {

constexpr int kMaxSide = 32767;  // what the exports take

size_t PixelsOf(const Raster& raster) {
  return static_cast<size_t>(raster.width) * static_cast<size_t>(raster.height);
}

// To the nearest of 0 to 255; a half goes up.
unsigned char Scaled(int64_t value, int64_t white) {
  return static_cast<unsigned char>((2 * value * 255 + white) / (2 * white));
}

// The byte of each value of a sample.
std::vector<unsigned char> ScaleTable(int64_t white, bool isInverted) {
  std::vector<unsigned char> table(static_cast<size_t>(white) + 1);
  for (int64_t value = 0; value <= white; ++value) {
    table[static_cast<size_t>(value)] = Scaled(isInverted ? white - value : value, white);
  }
  return table;
}

template <class Sample>
void RefuseBeyond(Sample value, int white, int depth) {
  throw Unreadable("a sample is " + std::to_string(value) + ", beyond the " +
                   std::to_string(white) +
                   (depth > 0 ? " of --depth " + std::to_string(depth) : " of the file's header"));
}

// Samples become bytes where they lie.
template <class Sample>
void ScaleSamples(Raster& raster, const Sample* from, int white, int depth) {
  const std::vector<unsigned char> table = ScaleTable(white, raster.isInverted);
  const int colours = raster.Colours(), count = raster.SamplesAPixel();
  unsigned char* to = raster.samples.get();
  for (size_t i = PixelsOf(raster); i > 0; --i, from += count, to += count) {
    for (int c = 0; c < colours; ++c) {
      if (from[c] > white) RefuseBeyond(from[c], white, depth);
      to[c] = table[from[c]];
    }
    if (count > colours)
      to[colours] = Scaled(std::min<int>(from[colours], raster.opaque), raster.opaque);
  }
}

// Bytes of colour and transparency become bytes of colour, laid on black.
void Flatten(Raster& raster) {
  const int colours = raster.Colours();
  const bool isStraight = raster.transparency == Transparency::kStraight;
  bool isOpaque = true;
  const unsigned char* from = raster.samples.get();
  unsigned char* to = raster.samples.get();
  for (size_t i = PixelsOf(raster); i > 0; --i, from += colours + 1, to += colours) {
    const int opacity = from[colours];
    isOpaque = isOpaque && opacity == 255;
    for (int c = 0; c < colours; ++c) {
      to[c] = isStraight ? static_cast<unsigned char>((from[c] * opacity + 127) / 255) : from[c];
    }
  }
  raster.transparency = Transparency::kNone;
  if (!isOpaque) raster.notes.push_back("what is transparent was laid on black");
}

// Orientations of EXIF: 2 mirrored, 3 half a turn, 4 upside down; 5 to 8 with rows and columns
// exchanged: 5 as it is then, 6 a quarter turn clockwise, 7 the other diagonal, 8 anticlockwise.
void Orient(Raster& raster) {
  const int orientation = raster.orientation;
  raster.orientation = 1;
  if (orientation <= 1 || orientation > 8) return;
  Raster turned;
  const bool isExchanged = orientation >= 5;
  turned.width = isExchanged ? raster.height : raster.width;
  turned.height = isExchanged ? raster.width : raster.height;
  turned.isColour = raster.isColour;
  AllocateSamples(turned);
  const bool fromRight =
      orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
  const bool fromBottom =
      orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
  const auto colours = static_cast<size_t>(raster.Colours());
  unsigned char* to = turned.samples.get();
  for (int y = 0; y < turned.height; ++y) {
    for (int x = 0; x < turned.width; ++x, to += colours) {
      int column = isExchanged ? y : x, row = isExchanged ? x : y;
      if (fromRight) column = raster.width - 1 - column;
      if (fromBottom) row = raster.height - 1 - row;
      const size_t pixel = static_cast<size_t>(row) * static_cast<size_t>(raster.width) +
                           static_cast<size_t>(column);
      std::copy_n(raster.samples.get() + pixel * colours, colours, to);
    }
  }
  raster.width = turned.width;
  raster.height = turned.height;
  raster.samples = std::move(turned.samples);
}

// What a user is told of 16-bit samples whose range nobody named.
std::string RangeNote(const Raster& raster) {
  const int count = raster.SamplesAPixel(), colours = raster.Colours();
  int greatest = 0;
  const uint16_t* sample = raster.Wide();
  for (size_t i = PixelsOf(raster); i > 0; --i, sample += count) {
    for (int c = 0; c < colours; ++c) greatest = std::max<int>(greatest, sample[c]);
  }
  return "16-bit samples were scaled from 0 to " + std::to_string(raster.white) +
         "; the greatest is " + std::to_string(greatest) +
         ", and nothing says how many bits are used (--depth does)";
}

}  // namespace

void RequireSize(int64_t width, int64_t height, int64_t maxPixels) {
  if (std::min(width, height) < 1 || std::max(width, height) > kMaxSide) {
    throw Unreadable("its size of " + SizeText(width, height) + " is not within 1 x 1 to " +
                     SizeText(kMaxSide, kMaxSide));
  }
  if (width * height > maxPixels) {
    throw Unreadable("its " + SizeText(width, height) + " pixels are more than the " +
                     std::to_string(maxPixels) + " that are read (--max-pixels)");
  }
}

void RequireRoom(int64_t width, int64_t height, int64_t needed, int64_t most, Bytes file) {
  if (needed <= most) return;
  throw Unreadable("it ends too early: its header promises " + SizeText(width, height) +
                   " pixels, more than its " + std::to_string(file.size()) + " bytes can hold");
}

void AllocateSamples(Raster& raster) {
  const size_t size = PixelsOf(raster) * static_cast<size_t>(raster.SamplesAPixel()) *
                      (raster.isWide ? sizeof(uint16_t) : 1);
  raster.samples.reset(static_cast<unsigned char*>(std::malloc(size)));
  if (!raster.samples) {
    throw OutOfMemory("a picture of " + SizeText(raster.width, raster.height));
  }
}

bool IsGreyTable(Bytes table, size_t entry) {
  for (size_t at = 0; at + 3 <= table.size(); at += entry) {
    if (table[at] != table[at + 1] || table[at] != table[at + 2]) return false;
  }
  return true;
}

void Finish(Raster& raster, int depth) {
  if (raster.isWide) {
    const int white = depth > 0 ? (1 << depth) - 1 : raster.white;
    if (depth == 0 && !raster.isWhiteKnown) raster.notes.push_back(RangeNote(raster));
    // The first half of the same memory: each byte lies before what is still to be read.
    ScaleSamples(raster, raster.Wide(), white, depth);
    raster.isWide = false;
  } else if (raster.white != 255 || raster.isInverted) {
    ScaleSamples(raster, raster.samples.get(), raster.white, 0);
  }
  if (raster.transparency != Transparency::kNone) Flatten(raster);
  Orient(raster);
}

}  // namespace quillon::kit
