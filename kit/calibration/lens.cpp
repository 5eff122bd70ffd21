#include "kit/calibration/lens.h"

#include <cstring>

#include "kit/errors.h"
#include "kit/files/files.h"

namespace quillon::kit {
namespace {

// Turned upside down about the row `centre`; rows that come from outside are black.
void FlipAbout(int centre, const GreyImage& image, GreyImage& flipped) {
  flipped.Create(image.width, image.height);
  for (int y = 0; y < image.height; ++y) {
    const int source = 2 * centre - y;
    if (source < 0 || source >= image.height) continue;
    std::memcpy(flipped.rows[y], image.rows[source], static_cast<size_t>(image.width));
  }
}

}  // namespace

LensCorrection::LensCorrection(std::string path) : path_(std::move(path)) {
  RequireRegularFile(path_);
  // What a short file leaves as it was.
  work_.centreX = work_.centreY = work_.correctedWidth = work_.correctedHeight = 0;
  work_.xMin = work_.xMax = work_.yMin = work_.yMax = 0;
  if (!IxDistortionParaLoad(&work_, path_.c_str())) throw Failure("cannot open '" + path_ + "'");
}

// The library's map runs upwards and its result is packed, top row first. So the flipped picture
// goes in, and the packed rows that come out are the corrected picture.
void LensCorrection::Apply(const GreyImage& image, GreyImage& corrected) {
  const bool sameSize = work_.width == image.width && work_.height == image.height;
  FlipAbout(work_.centreY, image, work_);
  if (!sameSize) IxDistortionPreCalculate(&work_);
  if (!IxDistortionCalibrate(&work_)) {
    throw Failure("'" + path_ + "' holds no rectangle that can be corrected: " +
                  std::to_string(work_.correctedWidth) + " x " +
                  std::to_string(work_.correctedHeight));
  }
  corrected.Create(image.width, image.height);
  for (int y = 0; y < corrected.height; ++y) {
    std::memcpy(corrected.rows[y], work_.bits + static_cast<size_t>(y) * image.width,
                static_cast<size_t>(image.width));
  }
}

}  // namespace quillon::kit
