// The bend of a lens, taken out of pictures, for `quillon undistort` and for recipes.
#pragma once

#include <string>

#include "quillon/quillon.h"

namespace quillon::kit {

// Holds the parameters of a file and the map for pictures of one size.
class LensCorrection {
 public:
  explicit LensCorrection(std::string path);  // throws Failure naming the file

  // Throws Failure when the parameters leave nothing of pictures of this size.
  void Apply(const GreyImage& image, GreyImage& corrected);

  // The rectangle that was corrected last, and the centre.
  const GreyImage& Map() const { return work_; }

 private:
  std::string path_;
  GreyImage work_;
};

}  // namespace quillon::kit
