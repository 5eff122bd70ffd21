// Uneven light and uneven pixels: an offset and a gain for each pixel, from pictures that were
// taken in the dark and pictures of an even white.
//
//   corrected = target * (grey - dark) / (white - dark)
//
// rounded to the nearest grey value, halves up, and held within 0 to 255. Dark and white are the
// means of the pictures at this pixel, in 256ths of a grey value; all of it is calculated in whole
// numbers, so that it is the same on every system.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kit/calibration/parameter_file.h"
#include "quillon/image.h"

namespace quillon::kit {

constexpr int kLevelParts = 256;  // of a grey value, in which means are kept

// The mean of pictures of one size.
class MeanPicture {
 public:
  // Throws Failure for a picture that is not as large as those before.
  void Add(const std::string& name, const GreyImage& image);

  PictureSize Size() const { return size_; }
  int Count() const { return count_; }
  // Of each pixel, row by row from the top, in parts of a grey value.
  std::vector<uint16_t> Levels() const;

 private:
  PictureSize size_;
  int count_ = 0;
  std::vector<uint32_t> sums_;
};

// A pixel that says nothing of the light.
struct DeadPixel {
  int x, y;
  double dark, white;
};

struct Shading {
  PictureSize size;
  int target = 0;
  int darkPictures = 0, whitePictures = 0;
  // Row by row from the top, in parts of a grey value. Both are the same where the pixel is dead:
  // corrected pictures have there what its nearest living neighbour has.
  std::vector<uint16_t> dark, white;

  size_t Offset(int x, int y) const { return static_cast<size_t>(y) * size.width + x; }
  bool IsDead(size_t offset) const { return white[offset] == dark[offset]; }
  size_t DeadCount() const;
};

// How a shading is fitted.
struct ShadingLimits {
  int target = 0;     // the grey value that white comes out at; 0: as bright as it is in the mean
  int mostDead = -1;  // pixels; -1: a thousandth of them
};

struct ShadingFit {
  Shading shading;
  std::vector<DeadPixel> dead;             // in the order of rows
  double dark = 0, white = 0;              // means of the living pixels
  double leastGain = 0, greatestGain = 0;  // of the living pixels
};

// A pixel is dead where white is above dark by less than a tenth of what it is in the mean of all
// pixels, and where it is 255 in every white picture, as nobody knows how much more there was.
// Throws Failure where the pictures differ in size, white is not brighter than dark, or too many
// pixels are dead: it names how many, and the first.
ShadingFit FitShading(const MeanPicture& dark, const MeanPicture& white,
                      const ShadingLimits& limits);

// What is written to a shading file: a line of JSON that says what it is for, the levels of dark
// and those of white as 16-bit numbers, the low byte first, and a checksum of all that.
std::string ShadingText(const Shading& shading);

// Throws Failure naming the file: for one that is not whole, was changed, or is something else.
Shading ParseShading(const std::string& path, std::string_view text);

// Takes the shading of a file out of pictures.
class ShadingCorrection {
 public:
  // Throws Failure naming the file.
  explicit ShadingCorrection(const std::string& path, const Note& note = {});

  // Throws Failure for a picture of another size.
  void Apply(const GreyImage& image, GreyImage& corrected) const;

  const Shading& Parameters() const { return shading_; }

 private:
  // A dead pixel, and the living one whose value it gets: their offsets.
  struct Replacement {
    uint32_t pixel, from;
  };

  std::string path_;
  Shading shading_;
  std::vector<Replacement> replacements_;
};

}  // namespace quillon::kit
