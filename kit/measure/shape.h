// Lines, circles and ellipses through edges that calipers find.
//
// Calipers are laid where a shape is expected. Where it lies otherwise they cross it aslant, and
// each tells a somewhat other place of it: rays about a point beside the middle of a circle, parts
// of a rectangle that a line crosses from corner to corner. So calipers are laid twice, the second
// time by the shape that the first ones gave.
#pragma once

#include <optional>
#include <vector>

#include "kit/measure/caliper.h"
#include "kit/measure/fit.h"

namespace quillon::kit {

// How edges are looked for, and which of them belong to the shape.
struct ShapeRule {
  int calipers;  // parts of a rectangle, or rays of a ring
  EdgeRule edge;
  double refuse;  // robust deviations
};

// A shape, and the edges that it was fitted to, those that were refused among them.
template <class Shape>
struct FoundShape {
  Shape shape;
  std::vector<Point> points;
};

// All of them find nothing where edges are too few or in no order that gives the shape.

// The line along the height of a rectangle; the second time that is turned about its middle.
std::optional<FoundShape<FittedLine>> FindLine(const GreyImage& image, const TurnedBox& box,
                                               const ShapeRule& rule);

// Rays are so many pixels wide; the second time they begin about the middle that was found.
std::optional<FoundShape<FittedEllipse>> FindCircle(const GreyImage& image, const Annulus& ring,
                                                    double rayWidth, const ShapeRule& rule);
std::optional<FoundShape<FittedEllipse>> FindEllipse(const GreyImage& image, const Annulus& ring,
                                                     double rayWidth, const ShapeRule& rule);

}  // namespace quillon::kit
