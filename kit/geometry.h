// Places in pictures. (0, 0) is the centre of the top left pixel; y grows downwards, and angles
// clockwise as displayed.
#pragma once

#include <array>
#include <cmath>
#include <numbers>

#include "kit/elementary.h"

namespace quillon::kit {

struct Point {
  double x, y;
};

// In place of std::hypot, whose last bits are the C library's: lengths are the same digits on every
// system. Squares of places and steps in pictures neither overflow nor vanish.
inline double Length(double x, double y, double z = 0) { return std::sqrt(x * x + y * y + z * z); }
inline double Length(Point step) { return Length(step.x, step.y); }
inline double Distance(Point a, Point b) { return Length(a.x - b.x, a.y - b.y); }

// Where something lies, and how it is turned: where the reference point of a template is, say.
struct Pose {
  double x, y, degrees;

  // A point relative to it, such as one of the template, in the picture.
  Point At(double dx, double dy) const {
    const auto [sine, cosine] = SineCosineOf(degrees * std::numbers::pi / 180);
    return {x + dx * cosine - dy * sine, y + dx * sine + dy * cosine};
  }
};

// A rectangle about its centre.
struct TurnedBox {
  Pose pose;
  double width, height;

  // The point that lies `across` from the centre along the width and `along` the height.
  Point At(double across, double along) const { return pose.At(across, along); }

  // x and y in turn, clockwise from the top left one where it is not turned.
  std::array<double, 8> Corners() const {
    constexpr double kSides[4][2] = {{-0.5, -0.5}, {0.5, -0.5}, {0.5, 0.5}, {-0.5, 0.5}};
    std::array<double, 8> corners;
    for (size_t i = 0; i < 4; ++i) {
      const Point corner = At(kSides[i][0] * width, kSides[i][1] * height);
      corners[2 * i] = corner.x;
      corners[2 * i + 1] = corner.y;
    }
    return corners;
  }
};

}  // namespace quillon::kit
