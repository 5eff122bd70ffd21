// A rectangle of least area has a side along a hull edge. Walking the edges, the three supporting
// vertices only move forwards (rotating calipers), so all edges cost one walk around the hull.
#include "blob/min_rectangle.h"

#include <cmath>
#include <limits>
#include <numbers>

namespace quillon {
namespace {

struct Vector {
  float x, y;
};

Vector operator+(Vector a, Vector b) { return {a.x + b.x, a.y + b.y}; }
Vector operator-(Vector a, Vector b) { return {a.x - b.x, a.y - b.y}; }
Vector operator*(Vector a, float scale) { return {a.x * scale, a.y * scale}; }
float Dot(Vector a, Vector b) { return a.x * b.x + a.y * b.y; }
Vector ToVector(Point p) { return {static_cast<float>(p.x), static_cast<float>(p.y)}; }

// Degrees, rows growing downwards. A negative angle gets 90 added: hosts know this range,
// -90 ... 180, and a vertical side has angle 0.
float AngleOf(Vector v) {
  if (v.x == 0) return 0;
  const auto radians =
      static_cast<float>(std::atan2(-static_cast<double>(v.y), static_cast<double>(v.x)));
  const auto degrees = static_cast<float>(radians * 180.0f * std::numbers::inv_pi);
  return degrees < 0 ? degrees + 90 : degrees;
}

// A corner and the two sides that leave it.
struct Rectangle {
  Vector corner, side1, side2;
  float area;
};

// Which vertices are farthest along an edge, across it and against it.
struct Supports {
  size_t along, across, against;
};

class Hull {
 public:
  explicit Hull(std::span<const Point> vertices) : vertices_(vertices) {}

  // Moves the supports of the edge before on to those of the edge that leaves vertex i.
  Supports Advance(Supports from, size_t i) const {
    const Step edge = StepFrom(i);
    if (i == 0) from.along = Next(0);
    from.along = Farthest(from.along, edge);
    if (i == 0) from.across = from.along;
    from.across = Farthest(from.across, {-edge.y, edge.x});
    if (i == 0) from.against = from.across;
    from.against = Farthest(from.against, {-edge.x, -edge.y});
    return from;
  }

  // The rectangle with a side along the edge that leaves vertex i.
  Rectangle Fit(const Supports& supports, size_t i) const {
    const Vector origin = ToVector(vertices_[i]);
    const Vector edge = ToVector(vertices_[Next(i)]) - origin;
    const Vector along = edge * (1.0f / std::sqrt(edge.x * edge.x + edge.y * edge.y));
    const Vector across = {-along.y, along.x};
    const Vector back = ToVector(vertices_[supports.against]);
    const float length = Dot(ToVector(vertices_[supports.along]) - back, along);
    const float depth = Dot(ToVector(vertices_[supports.across]) - origin, across);
    return {origin + along * Dot(back - origin, along), along * length, across * depth,
            length * depth};
  }

 private:
  struct Step {
    int64_t x, y;
  };

  size_t Next(size_t i) const { return i + 1 < vertices_.size() ? i + 1 : 0; }

  Step StepFrom(size_t i) const {
    const Point from = vertices_[i], to = vertices_[Next(i)];
    return {static_cast<int64_t>(to.x) - from.x, static_cast<int64_t>(to.y) - from.y};
  }

  // The first vertex from i on whose successor is no farther in the direction.
  size_t Farthest(size_t i, Step direction) const {
    for (size_t walked = 0; walked < vertices_.size(); ++walked, i = Next(i)) {
      const Step step = StepFrom(i);
      if (step.x * direction.x + step.y * direction.y <= 0) break;
    }
    return i;
  }

  std::span<const Point> vertices_;
};

// Among rectangles of equal area the last edge's is taken.
Rectangle MinAreaRectOfHull(std::span<const Point> vertices) {
  const Hull hull(vertices);
  Rectangle best = {};
  best.area = std::numeric_limits<float>::infinity();
  Supports supports = {};
  for (size_t i = 0; i < vertices.size(); ++i) {
    supports = hull.Advance(supports, i);
    const Rectangle rectangle = hull.Fit(supports, i);
    if (rectangle.area <= best.area) best = rectangle;
  }
  return best;
}

MinRectangle OfPoint(Vector p) {
  return {p.x, p.y, 1, 1, 0, {p.x, p.y, p.x, p.y, p.x, p.y, p.x, p.y}};
}

// The first point is a corner twice: hosts know these four.
MinRectangle OfSegment(Vector p, Vector q) {
  const Vector centre = (p + q) * 0.5f;
  const Vector side = q - p;
  const double dx = side.x, dy = side.y;
  const auto length = static_cast<float>(std::sqrt(dx * dx + dy * dy));
  return {centre.x, centre.y, length, 0, AngleOf(side), {p.x, p.y, q.x, p.y, p.x, p.y, q.x, q.y}};
}

MinRectangle OfRectangle(const Rectangle& r) {
  const Vector centre = r.corner + (r.side1 + r.side2) * 0.5f;
  const Vector a = r.corner + r.side2, b = r.corner, c = r.corner + r.side1, d = c + r.side2;
  const float height = std::sqrt(Dot(r.side1, r.side1)), width = std::sqrt(Dot(r.side2, r.side2));
  return {centre.x, centre.y,         height,
          width,    AngleOf(r.side1), {a.x, a.y, b.x, b.y, c.x, c.y, d.x, d.y}};
}

}  // namespace

MinRectangle MinRectangleOfHull(std::span<const Point> hull) {
  if (hull.size() == 1) return OfPoint(ToVector(hull[0]));
  if (hull.size() == 2) return OfSegment(ToVector(hull[0]), ToVector(hull[1]));
  return OfRectangle(MinAreaRectOfHull(hull));
}

}  // namespace quillon
