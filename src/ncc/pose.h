// Where a template lies in an image.
#pragma once

#include <algorithm>
#include <cmath>

namespace quillon {

// Radians of a degree, with pi as 3.141592654: angles that hosts store depend on it.
constexpr double kRadians = 0.017453292522222223;

// The template's centre, in coordinates whose pixel (0, 0) covers [0, 1) x [0, 1), and how it is
// turned and scaled: the point (u, v) from the template's centre lies at
//   scale (u cos - v sin, u sin + v cos)
// from there. Positive degrees turn clockwise as displayed.
struct Pose {
  double x = 0, y = 0;
  double degrees = 0;
  double scale = 1;
};

// Scales so near to 1 are the template's own size: it is taken as it is, and 1 is reported.
constexpr double kOwnSize = 0.001;
inline bool IsOwnSize(double scale) { return std::abs(scale - 1) <= kOwnSize; }

// At most `high`, then at least `low`: limits in the wrong order leave the lower one. A limit that
// is not finite is none.
double IntoLimits(double value, double low, double high);

// A width and a height in pixels, not necessarily whole.
struct Extent {
  double width = 0, height = 0;
};

// The upright box around a template whose turn and scale have this cosine and sine, times the
// scale.
inline Extent BoxOf(Extent pattern, double cosine, double sine) {
  const double c = std::abs(cosine), s = std::abs(sine);
  return {pattern.width * c + pattern.height * s, pattern.width * s + pattern.height * c};
}

// Moves a pose so that the box around its template lies in an image; false, the pose unchanged,
// when the box is larger than the image.
inline bool MoveInside(Extent image, Extent box, Pose& pose) {
  constexpr double kRounding = 1e-6;  // a half turn does not enlarge a box
  const double x = box.width * 0.5, y = box.height * 0.5;
  if (!(box.width <= image.width + kRounding && box.height <= image.height + kRounding)) {
    return false;
  }
  pose.x = std::max(std::min(pose.x, image.width - x), x);
  pose.y = std::max(std::min(pose.y, image.height - y), y);
  return true;
}

// The same for the template's box, after shrinking the template as far as it must, down to
// `leastScale`.
bool FitInside(Extent image, Extent pattern, double leastScale, Pose& pose);

}  // namespace quillon
