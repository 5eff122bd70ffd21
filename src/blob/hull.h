// Convex hull of a polyline.
#pragma once

#include <stdint.h>

#include <span>

namespace quillon {

struct Point {
  int32_t x, y;
};

// Entries of work space that the hull of `points` points needs.
constexpr size_t HullWorkSize(size_t points) { return 2 * points + 1; }

// The hull's vertices, counter-clockwise in a frame whose y axis points up, starting from the last
// point of the polyline that is a vertex (A. Melkman, "On-line construction of the convex hull of a
// simple polyline", Information Processing Letters 25, 1987). Fewer than three points are returned
// as they are; of points on one line the two ends. The result lies in `work`.
std::span<const Point> ConvexHullOfPolyline(std::span<const Point> points, Point* work);

}  // namespace quillon
