// The uneven light of a scene: gains against it, kept in a file, and pictures evened out by them.
#pragma once

#include <string>

#include "quillon/quillon.h"

namespace quillon::kit {

// Columns and rows, without their ends.
struct CorrectedRegion {
  int firstColumn, endColumn, firstRow, endRow;
};

// Writes gains that bring the region to the target level. Throws Failure naming the file.
void MakeFlatField(GreyImage& image, int target, CorrectedRegion region,
                   const std::string& parameters);

class FlatFieldCorrection {
 public:
  explicit FlatFieldCorrection(const std::string& path);  // throws Failure naming the file

  void Apply(const GreyImage& image, GreyImage& corrected);

  CorrectedRegion Region() const { return {region_[0], region_[1], region_[2], region_[3]}; }

 private:
  GreyImage image_;  // the gains stay with the object, whatever pixels it gets
  int region_[4] = {};
};

}  // namespace quillon::kit
