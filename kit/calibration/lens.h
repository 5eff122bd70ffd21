// The bend of a lens: fitted to a grid, kept in a file, and taken out of pictures.
#pragma once

#include <string>
#include <vector>

#include "kit/calibration/camera.h"
#include "kit/calibration/parameter_file.h"
#include "kit/geometry.h"
#include "quillon/quillon.h"

namespace quillon::kit {

// Pixels from point to point in corrected pictures.
struct GridStep {
  double across, down;
};

// Where a point of the grid was seen, and where the fit has it.
struct GridPoint {
  Point seen, fitted;
  double Residual() const;  // their distance
};

struct LensFit {
  std::vector<GridPoint> points;  // as they were listed
  double rms = 0;                 // of the residuals, pixels
  size_t worst = 0;               // the point of the greatest one
};

// What is known of a grid besides its points.
struct Grid {
  GridStep step;
  PictureSize size = {};  // of the picture that shows it
  double pitch = 0;       // from point to point in the unit; 0: not known
  std::string unit = "mm";
  double maxResidual = 0;  // pixels; 0: a quarter of the smaller step
};

// Fits the bend to the points of a square grid with an odd side, lines "x,y" of the file `points`,
// row by row from the top left, and writes the parameters, and beside them what they are for.
// Throws Failure naming file and line, also for points in another order and for residuals beyond
// the limit: then nothing is written.
LensFit FitLens(const std::string& points, const Grid& grid, const std::string& parameters);

// How far the table of a camera may lie from it unless somebody says otherwise, in pixels: a cubic
// follows most bends so far; rounding to whole pixels alone leaves 0.7.
constexpr double kMostTableResidual = 2;

// The same from a camera: pictures come out as the rectifier has them, all over, but for what whole
// pixels leave and as far as a cubic follows the bend: it is the one whose worst place is nearest.
// Throws Failure, and writes nothing, where that lies more than `maxResidual` pixels beside.
LensFit FitLensToCamera(const Camera& camera, double maxResidual, const std::string& parameters);

// Holds the parameters of a file and the map for pictures of one size.
class LensCorrection {
 public:
  // Throws Failure naming the file. `note` is told what the file leaves open, such as the size of
  // its pictures.
  explicit LensCorrection(std::string path, const Note& note = {});

  // Throws Failure for a picture that the parameters were not made for.
  void Apply(const GreyImage& image, GreyImage& corrected);

  // The rectangle that was corrected last, and the centre.
  const GreyImage& Map() const { return work_; }

 private:
  void RequireRectangleIn(const GreyImage& image) const;

  std::string path_;
  PictureSize size_;
  GreyImage work_;
};

}  // namespace quillon::kit
