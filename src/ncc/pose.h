// Where a template lies in an image.
#pragma once

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

}  // namespace quillon
