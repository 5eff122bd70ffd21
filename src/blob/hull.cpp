// Each side of the hull is a chain that bends one way. From row to row a side takes the row's
// outermost point and gives up those that it no longer needs (A. M. Andrew, "Another efficient
// algorithm for convex hulls in two dimensions", Information Processing Letters 9, 1979). Run ends
// come sorted, so the hull costs one walk.
#include "blob/hull.h"

#include <algorithm>

namespace quillon {
namespace {

// Positive when c lies left of the line from a to b, seen with the y axis upwards. The products may
// wrap, their difference does not: it is twice the area of a triangle inside an image, and no image
// has 2^31 pixels.
int32_t Side(Point a, Point b, Point c) {
  const auto difference = [](int32_t to, int32_t from) {
    return static_cast<uint32_t>(to) - static_cast<uint32_t>(from);
  };
  return static_cast<int32_t>(difference(b.x, a.x) * difference(c.y, a.y) -
                              difference(c.x, a.x) * difference(b.y, a.y));
}

bool Same(Point a, Point b) { return a.x == b.x && a.y == b.y; }

// Both sides in one array: the left one grows towards its front, the right one towards its back,
// and the top row lies in the middle.
class HullSides {
 public:
  HullSides(Point* middle, Point topLeft, Point topRight)
      : topLeft_(middle), topRight_(Same(topLeft, topRight) ? middle : middle + 1) {
    left_ = topLeft_;
    right_ = topRight_;
    *right_ = topRight;
    *left_ = topLeft;
  }

  void AddRow(Point rowLeft, Point rowRight) {
    while (left_ < topLeft_ && Side(rowLeft, left_[0], left_[1]) <= 0) ++left_;
    *--left_ = rowLeft;
    while (right_ > topRight_ && Side(right_[-1], right_[0], rowRight) <= 0) --right_;
    *++right_ = rowRight;
  }

  std::span<const Point> Close() {
    if (!Same(*left_, *right_)) *--left_ = *right_;
    if (right_ - left_ == 2) std::swap(left_[0], left_[1]);
    return {left_, static_cast<size_t>(std::max<ptrdiff_t>(right_ - left_, 1))};
  }

 private:
  Point* const topLeft_;
  Point* const topRight_;
  Point* left_;   // the lowest point of the left side
  Point* right_;  // and of the right one
};

}  // namespace

std::span<const Point> ConvexHullOfPolyline(std::span<const Point> points, Point* work) {
  if (points.size() < 3) {
    std::copy(points.begin(), points.end(), work);
    return {work, points.size()};
  }
  const Point* const end = points.data() + points.size();
  const auto rowEnd = [end](const Point* first) {
    const Point* last = first;
    while (last + 1 < end && last[1].y == first->y) ++last;
    return last;
  };
  const Point* first = points.data();
  const Point* last = rowEnd(first);
  HullSides sides(work + points.size(), *first, *last);
  while (last + 1 < end) {
    first = last + 1;
    last = rowEnd(first);
    sides.AddRow(*first, *last);
  }
  return sides.Close();
}

}  // namespace quillon
