// What a decoder makes of a file's bytes, and how it becomes the bytes of a picture.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace quillon::kit {

using Bytes = std::span<const unsigned char>;

// Why bytes are no picture that is read; the reader adds the name of the file.
struct Unreadable : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct ReleaseBlock {
  void operator()(void* block) const { std::free(block); }
};
using Samples = std::unique_ptr<unsigned char, ReleaseBlock>;

// How a pixel's last sample, where it has one more, says what shows through it.
enum class Transparency { kNone, kStraight, kPremultiplied };

// Rows from the top, packed: grey, or red, green and blue; then the transparency.
struct Raster {
  int width = 0, height = 0;
  bool isColour = false;
  Transparency transparency = Transparency::kNone;
  bool isWide = false;             // samples of 16 bits in the machine's order; bytes otherwise
  int white = 255;                 // the sample that becomes 255; none is greater
  bool isWhiteKnown = true;        // false: nothing in the file says how many of 16 bits are used
  int opaque = 255;                // the transparency through which nothing shows
  bool isInverted = false;         // 0 is white
  int orientation = 1;             // 1 to 8 as in EXIF: how rows and columns are to be shown
  std::vector<std::string> notes;  // what a user has to know who reads this file
  Samples samples;

  int Colours() const { return isColour ? 3 : 1; }
  int SamplesAPixel() const { return Colours() + (transparency != Transparency::kNone ? 1 : 0); }
  uint16_t* Wide() const { return reinterpret_cast<uint16_t*>(samples.get()); }
};

// Throws Unreadable for sizes that no image can have, and for more pixels than are wanted.
void RequireSize(int64_t width, int64_t height, int64_t maxPixels);

// Throws Unreadable when `most`, what the file's bytes can hold at most, is below what the size
// needs: tested before memory is taken.
void RequireRoom(int64_t width, int64_t height, int64_t needed, int64_t most, Bytes file);

// Memory for all samples, not yet written.
void AllocateSamples(Raster& raster);

// Whether a table of colours, three bytes at the beginning of each entry, holds greys alone. The
// picture is a grey one then: made of colours, it would darken, for their weights add up to less
// than 1.
bool IsGreyTable(Bytes table, size_t entry);

// Makes of any raster one of bytes, without transparency, the right way up: scales by `depth` bits
// or, where it is 0, by the file's own white; lays what is transparent on black.
void Finish(Raster& raster, int depth);

// The decoders; each throws Unreadable, and takes no more memory than a size of its limit needs.
Raster DecodePng(Bytes file, int64_t maxPixels);
Raster DecodeJpeg(Bytes file, int64_t maxPixels);
Raster DecodeBmp(Bytes file, int64_t maxPixels);
Raster DecodePnm(Bytes file, int64_t maxPixels);
Raster DecodeTiff(Bytes file, int64_t maxPixels);

}  // namespace quillon::kit
