// The bend of a lens: fitted to a grid, kept in a file, and taken out of pictures.
#pragma once

#include <string>

#include "quillon/quillon.h"

namespace quillon::kit {

// Pixels from point to point in corrected pictures.
struct GridStep {
  double across, down;
};

// Fits the bend to the points of a square grid with an odd side, lines "x,y" of the file `grid`,
// row by row from the top left, and writes the parameters. Throws Failure naming file and line.
void FitLens(const std::string& grid, GridStep step, const std::string& parameters);

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
