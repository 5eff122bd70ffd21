#include "ncc/pose.h"

#include <algorithm>

namespace quillon {

double IntoLimits(double value, double low, double high) {
  if (std::isfinite(high)) value = std::min(value, high);
  if (std::isfinite(low)) value = std::max(value, low);
  return value;
}

bool FitInside(Extent image, Extent pattern, double leastScale, Pose& pose) {
  const double c = std::cos(pose.degrees * kRadians), s = std::sin(pose.degrees * kRadians);
  const double scale = IsOwnSize(pose.scale) ? 1 : pose.scale;
  if (MoveInside(image, BoxOf(pattern, c * scale, s * scale), pose)) return true;
  const Extent box = BoxOf(pattern, c, s);
  double fitting = std::min(image.width / box.width, image.height / box.height);
  if (IsOwnSize(fitting)) fitting = 1 - 2 * kOwnSize;  // which did not fit as it is
  if (!(fitting >= leastScale)) return false;
  pose.scale = fitting;
  return MoveInside(image, BoxOf(pattern, c * fitting, s * fitting), pose);
}

}  // namespace quillon
