// Pictures of a calibrated camera as seen from straight above, without bend.
#pragma once

#include <string>
#include <vector>

#include "kit/calibration/camera.h"

namespace quillon::kit {

// Takes pictures to the plane in which is measured: as seen from straight above, without bend, as
// large as they are and turned as they are, with the middle where it was. What lies outside is
// black.
class Rectifier {
 public:
  explicit Rectifier(const std::string& path) : Rectifier(path, ReadCamera(path)) {}
  // `name` is what messages call the camera.
  Rectifier(std::string name, Camera camera);

  // Throws Failure for a picture of another size.
  void Apply(const GreyImage& image, GreyImage& rectified) const;

  double UnitPerPixel() const { return step_; }

 private:
  std::string path_;
  Camera camera_;
  double step_;
  std::vector<Point> sources_;  // of each pixel
};

}  // namespace quillon::kit
