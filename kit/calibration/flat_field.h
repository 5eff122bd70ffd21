// The uneven light of a scene, taken out of pictures by gains that a file holds.
#pragma once

#include <string>

#include "quillon/quillon.h"

namespace quillon::kit {

class FlatFieldCorrection {
 public:
  explicit FlatFieldCorrection(const std::string& path);  // throws Failure naming the file

  void Apply(const GreyImage& image, GreyImage& corrected);

  // The region that is corrected: first column, end column, first row, end row.
  const int (&Region() const)[4] { return region_; }

 private:
  GreyImage image_;  // the gains stay with the object, whatever pixels it gets
  int region_[4] = {};
};

}  // namespace quillon::kit
