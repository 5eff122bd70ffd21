// Lines, circles and ellipses through points, some of which may not belong to them.
//
// Which points belong is found by least median of squares (Rousseeuw and Leroy, "Robust regression
// and outlier detection", 1987): of many shapes through a few points each, the one whose median
// residual is least. From that median comes a robust deviation; points farther than `refuse` times
// the deviation are refused, as long as up to half of all do not belong. The shape is then fitted
// to the others by least squares of their distances, and points are judged by that shape again,
// until the same ones are used. Which few points are tried is fixed, so that the same points always
// give the same shape.
#pragma once

#include <optional>
#include <span>
#include <vector>

#include "kit/geometry.h"

namespace quillon::kit {

// What is known of how well points lie on a shape. Distances are in pixels, positive outside, or to
// the right of a line's direction.
struct Residual {
  double rms = 0, worst = 0;  // of the points that were used; worst without its sign
  double spread = 0;          // from the innermost to the outermost of them
  int used = 0, refused = 0;
  std::vector<bool> isUsed = {};  // for each point
};

struct FittedLine {
  Point middle;    // of the points that were used
  double degrees;  // direction, clockwise as displayed, from -90 up to 90
  double length;   // that the used points reach
  Residual residual;
};

// A circle has equal diameters.
struct FittedEllipse {
  Point centre;
  double width, height;  // diameters, the width the larger
  double degrees;        // of the width, clockwise as displayed, from -90 up to 90
  Residual residual;
};

constexpr double kRefuseNone = 1e9;  // deviations; no point is refused

// Nothing where fewer than 2, 3 and 5 points can be used, or where no such shape goes through them
// (points in one place, or in a line).
std::optional<FittedLine> FitLine(std::span<const Point> points, double refuse);
std::optional<FittedEllipse> FitCircle(std::span<const Point> points, double refuse);
// An ellipse's distances are of first order: the implicit equation over its gradient (Sampson).
std::optional<FittedEllipse> FitEllipse(std::span<const Point> points, double refuse);

// Where two lines meet; nothing where they are parallel.
std::optional<Point> Crossing(Point a, double degreesA, Point b, double degreesB);

}  // namespace quillon::kit
