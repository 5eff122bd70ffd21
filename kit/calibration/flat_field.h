// The uneven light of a scene: gains against it, kept in a file, and pictures evened out by them.
#pragma once

#include <string>

#include "kit/calibration/parameter_file.h"
#include "quillon/quillon.h"

namespace quillon::kit {

// Columns and rows, without their ends.
struct CorrectedRegion {
  int firstColumn, endColumn, firstRow, endRow;
};

// Writes gains that bring the region to the target level, and beside them the picture's size.
// Throws Failure naming the file.
void MakeFlatField(GreyImage& image, int target, CorrectedRegion region,
                   const std::string& parameters);

class FlatFieldCorrection {
 public:
  // Throws Failure naming the file. `note` is told what the file leaves open, such as the size of
  // its pictures.
  explicit FlatFieldCorrection(const std::string& path, const Note& note = {});

  // Throws Failure for a picture that the gains were not made for.
  void Apply(const GreyImage& image, GreyImage& corrected);

  CorrectedRegion Region() const { return {region_[0], region_[1], region_[2], region_[3]}; }

 private:
  std::string path_;
  PictureSize size_;
  GreyImage image_;  // of one pixel: it holds the gains
  int region_[4] = {};
};

}  // namespace quillon::kit
