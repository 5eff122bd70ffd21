// Hulls and minimum rectangles of blobs, all points against all others.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <span>
#include <vector>

#include "blob/hull.h"
#include "blob/region.h"

namespace quillon::test::reference {

// The points of blob n: both ends of every run that carries its number, the whole table scanned.
inline std::vector<Point> EdgePoints(const BlobRecord& blob, std::span<const RunRecord> runs,
                                     int n) {
  const RunRecord& head = runs[static_cast<size_t>(blob.head)];
  if (blob.area == 1) return {{head.xStart, head.y}};
  std::vector<Point> points;
  int taken = 0;
  for (size_t i = 0; i < runs.size() && taken < blob.runCount; ++i) {
    const RunRecord& run = runs[i];
    if (run.blob != n) continue;
    points.push_back({run.xStart, run.y});
    points.push_back({run.xEnd, run.y});
    ++taken;
  }
  return points;
}

inline int64_t Cross(Point a, Point b, Point c) {
  return static_cast<int64_t>(b.x - a.x) * (c.y - a.y) -
         static_cast<int64_t>(c.x - a.x) * (b.y - a.y);
}

// The strictly convex hull in Cross's positive direction, by sorting.
inline std::vector<Point> Hull(std::vector<Point> points) {
  const auto less = [](Point a, Point b) { return a.x != b.x ? a.x < b.x : a.y < b.y; };
  const auto same = [](Point a, Point b) { return a.x == b.x && a.y == b.y; };
  std::sort(points.begin(), points.end(), less);
  points.erase(std::unique(points.begin(), points.end(), same), points.end());
  if (points.size() < 3) return points;
  std::vector<Point> hull;
  for (int pass = 0; pass < 2; ++pass) {
    const size_t begin = hull.size();
    for (const Point p : points) {
      while (hull.size() >= begin + 2 && Cross(hull[hull.size() - 2], hull.back(), p) <= 0) {
        hull.pop_back();
      }
      hull.push_back(p);
    }
    hull.pop_back();
    std::reverse(points.begin(), points.end());
  }
  return hull;
}

// A. Melkman's deque for polylines, step by step: the vertices from bottom to top, each once.
// Points on one line at the start shrink to the ends of their segment.
inline std::vector<Point> Melkman(const std::vector<Point>& points) {
  if (points.size() < 3) return points;
  Point a = points[0], b = points[0];
  size_t i = 1;
  for (; i < points.size() && Cross(a, b, points[i]) == 0; ++i) b = points[i];
  if (i == points.size()) return {a, b};
  std::vector<Point> deque(2 * points.size() + 1);
  size_t bottom = points.size() - 2, top = bottom + 3;
  deque[bottom] = deque[top] = points[i];
  const bool left = Cross(a, b, points[i]) > 0;
  deque[bottom + 1] = left ? a : b;
  deque[bottom + 2] = left ? b : a;
  for (++i; i < points.size(); ++i) {
    const Point p = points[i];
    if (Cross(deque[bottom], deque[bottom + 1], p) > 0 &&
        Cross(deque[top - 1], deque[top], p) > 0) {
      continue;
    }
    while (Cross(deque[bottom], deque[bottom + 1], p) <= 0) ++bottom;
    deque[--bottom] = p;
    while (Cross(deque[top - 1], deque[top], p) <= 0) --top;
    deque[++top] = p;
  }
  return {deque.begin() + static_cast<ptrdiff_t>(bottom),
          deque.begin() + static_cast<ptrdiff_t>(top)};
}

// The least area over all edges and all pairs of points, in double.
inline double MinArea(const std::vector<Point>& hull) {
  double best = INFINITY;
  for (size_t i = 0; i < hull.size(); ++i) {
    const Point a = hull[i], b = hull[(i + 1) % hull.size()];
    const double length = std::hypot(b.x - a.x, b.y - a.y);
    double from = INFINITY, to = -INFINITY, depth = 0;
    for (const Point p : hull) {
      const double along =
          ((p.x - a.x) * double(b.x - a.x) + (p.y - a.y) * double(b.y - a.y)) / length;
      from = std::min(from, along);
      to = std::max(to, along);
      depth = std::max(depth, static_cast<double>(Cross(a, b, p)) / length);
    }
    best = std::min(best, (to - from) * depth);
  }
  return best;
}

// Thirteen floats from the hull in the order in which it was found, every support searched among
// all vertices.
inline std::array<float, 13> Rectangle(std::span<const Point> hull) {
  const auto angleOf = [](float dx, float dy) {
    if (dx == 0) return 0.0f;
    const float radians = static_cast<float>(std::atan2(-double(dy), double(dx)));
    const float degrees = static_cast<float>(radians * 180.0f * (1.0 / std::numbers::pi));
    return degrees < 0 ? degrees + 90 : degrees;
  };
  const auto x = [&](size_t i) { return static_cast<float>(hull[i % hull.size()].x); };
  const auto y = [&](size_t i) { return static_cast<float>(hull[i % hull.size()].y); };
  if (hull.size() == 1)
    return {x(0), y(0), 1, 1, 0, x(0), y(0), x(0), y(0), x(0), y(0), x(0), y(0)};
  if (hull.size() == 2) {
    const float dx = x(1) - x(0), dy = y(1) - y(0);
    return {(x(0) + x(1)) * 0.5f,
            (y(0) + y(1)) * 0.5f,
            static_cast<float>(std::sqrt(double(dx) * dx + double(dy) * dy)),
            0,
            angleOf(dx, dy),
            x(0),
            y(0),
            x(1),
            y(0),
            x(0),
            y(0),
            x(1),
            y(1)};
  }
  std::array<float, 13> result = {};
  float best = INFINITY;
  for (size_t i = 0; i < hull.size(); ++i) {
    const int64_t ex = hull[(i + 1) % hull.size()].x - hull[i].x;
    const int64_t ey = hull[(i + 1) % hull.size()].y - hull[i].y;
    // The first vertex from `start` on that no other one exceeds in this direction.
    const auto farthest = [&](size_t start, int64_t dx, int64_t dy) {
      size_t found = start;
      for (size_t k = 0; k < hull.size(); ++k) {
        const Point p = hull[(start + k) % hull.size()], q = hull[found % hull.size()];
        if (p.x * dx + p.y * dy > q.x * dx + q.y * dy) found = start + k;
      }
      return found;
    };
    const size_t front = farthest(i + 1, ex, ey), far = farthest(i + 1, -ey, ex);
    const size_t back = farthest(far, -ex, -ey);
    const float dx = x(i + 1) - x(i), dy = y(i + 1) - y(i);
    const float scale = 1.0f / std::sqrt(dx * dx + dy * dy);
    const float ux = dx * scale, uy = dy * scale;
    const float length = (x(front) - x(back)) * ux + (y(front) - y(back)) * uy;
    const float depth = (x(far) - x(i)) * -uy + (y(far) - y(i)) * ux;
    if (length * depth > best) continue;
    best = length * depth;
    const float offset = (x(back) - x(i)) * ux + (y(back) - y(i)) * uy;
    const float ox = x(i) + ux * offset, oy = y(i) + uy * offset;
    const float ax = ux * length, ay = uy * length, bx = -uy * depth, by = ux * depth;
    result = {ox + (ax + bx) * 0.5f,
              oy + (ay + by) * 0.5f,
              std::sqrt(ax * ax + ay * ay),
              std::sqrt(bx * bx + by * by),
              angleOf(ax, ay),
              ox + bx,
              oy + by,
              ox,
              oy,
              ox + ax,
              oy + ay,
              ox + ax + bx,
              oy + ay + by};
  }
  return result;
}

}  // namespace quillon::test::reference
