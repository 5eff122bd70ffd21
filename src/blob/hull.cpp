#include "blob/hull.h"

#include <algorithm>

namespace quillon {
namespace {

// Positive when c lies left of the line from a to b. 32-bit arithmetic that wraps: blobs that
// extend over more than 32,767 pixels both ways get no dependable hull.
int32_t Side(Point a, Point b, Point c) {
  const auto difference = [](int32_t to, int32_t from) {
    return static_cast<uint32_t>(to) - static_cast<uint32_t>(from);
  };
  return static_cast<int32_t>(difference(b.x, a.x) * difference(c.y, a.y) -
                              difference(c.x, a.x) * difference(b.y, a.y));
}

// Whether p lies before q on a line that has no order but its coordinates'.
bool Precedes(Point p, Point q) { return p.x != q.x ? p.x < q.x : p.y < q.y; }
bool Same(Point p, Point q) { return p.x == q.x && p.y == q.y; }

// The points on one line at the start of a polyline, as the segment from `first` to `second`.
struct Start {
  Point first, second;
  size_t count;
};

Start CollinearStart(std::span<const Point> points) {
  Start start = {points[0], points[0], 1};
  for (; start.count < points.size(); ++start.count) {
    const Point p = points[start.count];
    if (Same(start.first, start.second)) {
      start.second = p;
      continue;
    }
    if (Side(start.first, start.second, p) != 0) break;
    const bool forward = Precedes(start.first, start.second);
    if (Precedes(p, start.first) == forward && !Same(p, start.first)) {
      start.first = p;
    } else if (Precedes(start.second, p) == forward && !Same(p, start.second)) {
      start.second = p;
    }
  }
  return start;
}

// The hull as a deque that holds its newest vertex at both ends.
class HullDeque {
 public:
  HullDeque(Point* work, size_t points) : bottom_(work + points - 2), top_(bottom_ + 3) {}

  void Begin(const Start& start, Point p) {
    const bool left = Side(start.first, start.second, p) > 0;
    bottom_[0] = top_[0] = p;
    bottom_[1] = left ? start.first : start.second;
    bottom_[2] = left ? start.second : start.first;
  }

  void Add(Point p) {
    if (Side(bottom_[0], bottom_[1], p) > 0 && Side(top_[-1], top_[0], p) > 0) return;
    while (top_ - bottom_ > 1 && Side(bottom_[0], bottom_[1], p) <= 0) ++bottom_;
    *--bottom_ = p;
    while (top_ - bottom_ > 2 && Side(top_[-1], top_[0], p) <= 0) --top_;
    *++top_ = p;
  }

  std::span<const Point> Vertices() const { return {bottom_, static_cast<size_t>(top_ - bottom_)}; }

 private:
  Point* bottom_;
  Point* top_;
};

}  // namespace

std::span<const Point> ConvexHullOfPolyline(std::span<const Point> points, Point* work) {
  if (points.size() < 3) {
    std::copy(points.begin(), points.end(), work);
    return {work, points.size()};
  }
  const Start start = CollinearStart(points);
  if (start.count == points.size()) {
    work[0] = start.first;
    work[1] = start.second;
    return {work, 2};
  }
  HullDeque hull(work, points.size());
  hull.Begin(start, points[start.count]);
  for (const Point p : points.subspan(start.count + 1)) hull.Add(p);
  return hull.Vertices();
}

}  // namespace quillon
