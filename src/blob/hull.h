// Convex hull of a blob's run ends.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <span>

namespace quillon {

struct Point {
  int32_t x, y;
};

// Entries of work space that the hull of `points` points needs.
constexpr size_t HullWorkSize(size_t points) { return 2 * points + 1; }

// The hull's vertices, none on the line between its neighbours. `points` are in row-major order, as
// a blob's runs are. The last point comes first, then the vertices up the left side and down the
// right. Of points on one line the first and the last; fewer than three points as they are.
// The result lies in `work`.
std::span<const Point> ConvexHullOfPolyline(std::span<const Point> points, Point* work);

}  // namespace quillon
