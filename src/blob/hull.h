// Convex hull of a blob's run ends.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <span>

namespace quillon {

struct Kernels;

struct Point {
  int32_t x, y;
};

// Entries behind a hull's vertices for whoever searches it.
constexpr size_t kHullRoom = 16;

// Entries of work space that the hull of `points` points needs.
constexpr size_t HullWorkSize(size_t points) { return 2 * points + 1 + kHullRoom; }

// The hull's vertices, none on the line between its neighbours. `points` are in row-major order, as
// a blob's runs are. The last point comes first, then the vertices up the left side and down the
// right. Of points on one line the first and the last; fewer than three points as they are.
// The result lies in `work`, with room for kHullRoom entries behind it.
std::span<Point> ConvexHullOfPolyline(std::span<const Point> points, Point* work);

// A blob of few columns whose rows follow each other: where each row begins and ends.
struct Outline {
  Point origin;  // the column that both sides count from, and the top row
  int rows;
  int16_t *left, *right;  // as HullKernels::FindBends takes them
  uint64_t* bends;        // room for the rows that it finds on both sides
};

// The same hull.
std::span<Point> ConvexHullOfOutline(const Kernels& kernels, const Outline& outline, Point* work);

}  // namespace quillon
