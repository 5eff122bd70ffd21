// The rectangle of least area around a convex hull.
#pragma once

#include <span>

#include "blob/hull.h"

namespace quillon {

// Thirteen floats, in the order in which hosts receive them.
struct MinRectangle {
  float centreX, centreY;
  float height;  // of the first side
  float width;   // of the second side
  float angle;   // of the first side, degrees
  float corners[8];
};
static_assert(sizeof(MinRectangle) == 13 * sizeof(float));

// One vertex gives a rectangle of 1 x 1, two their segment. At least one; behind them lies room for
// kHullRoom entries, which is overwritten.
MinRectangle MinRectangleOfHull(const Kernels& kernels, std::span<Point> hull);

}  // namespace quillon
