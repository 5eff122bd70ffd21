// Each side of the hull is a chain that bends one way. From row to row a side takes the row's
// outermost point and gives up those that it no longer needs (A. M. Andrew, "Another efficient
// algorithm for convex hulls in two dimensions", Information Processing Letters 9, 1979). Run ends
// come sorted, so the hull costs one walk. How many are given up at a row, no processor foresees;
// so a kernel first leaves out the rows near which others show that they are no vertices.
#include "blob/hull.h"

#include <algorithm>
#include <bit>

#include "blob/hull_kernels.h"
#include "simd/kernels.h"

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

  void AddLeft(Point p) {
    while (left_ < topLeft_ && Side(p, left_[0], left_[1]) <= 0) ++left_;
    *--left_ = p;
  }
  void AddRight(Point p) {
    while (right_ > topRight_ && Side(right_[-1], right_[0], p) <= 0) --right_;
    *++right_ = p;
  }

  std::span<Point> Close() {
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

// So few rows are walked sooner than the kernel would leave some of them out.
constexpr int kFewRows = 8;
static_assert(kFewRows < kRowsToWord);

// All rows but the first, in FindBends' form.
uint64_t AllBends(int rows) { return 0x5555555555555554 & ((uint64_t{1} << (2 * rows)) - 1); }

// Calls visit(row) for each row that FindBends found.
template <class Visit>
void ForEachBend(const uint64_t* bends, int words, Visit visit) {
  for (int i = 0; i < words; ++i) {
    for (uint64_t rest = bends[i]; rest; rest &= rest - 1) {
      visit(i * kRowsToWord + std::countr_zero(rest) / 2);
    }
  }
}

}  // namespace

std::span<Point> ConvexHullOfPolyline(std::span<const Point> points, Point* work) {
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
    sides.AddLeft(*first);
    sides.AddRight(*last);
  }
  return sides.Close();
}

std::span<Point> ConvexHullOfOutline(const Kernels& kernels, const Outline& outline, Point* work) {
  const int words = WordsOfBends(outline.rows);
  uint64_t* const leftBends = outline.bends;
  uint64_t* const rightBends = leftBends + words;
  if (outline.rows <= kFewRows) {
    *leftBends = *rightBends = AllBends(outline.rows);
  } else {
    kernels.hull.FindBends(outline.left, outline.rows, leftBends);
    kernels.hull.FindBends(outline.right, outline.rows, rightBends);
  }
  const auto leftEnd = [&](int r) {
    return Point{outline.origin.x + outline.left[r], outline.origin.y + r};
  };
  const auto rightEnd = [&](int r) {
    return Point{outline.origin.x - outline.right[r], outline.origin.y + r};
  };
  HullSides sides(work + 2 * outline.rows, leftEnd(0), rightEnd(0));
  ForEachBend(leftBends, words, [&](int r) { sides.AddLeft(leftEnd(r)); });
  ForEachBend(rightBends, words, [&](int r) { sides.AddRight(rightEnd(r)); });
  return sides.Close();
}

}  // namespace quillon
