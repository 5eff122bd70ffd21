// A rectangle of least area has a side along a hull edge. A kernel tries all edges of a small hull
// at once. Along a large one they are walked: the three supporting vertices only move forwards
// (rotating calipers), so all edges cost one walk around the hull.
#include "blob/min_rectangle.h"

#include <cmath>
#include <limits>
#include <numbers>

#include "blob/hull_kernels.h"
#include "simd/kernels.h"

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
};

// The edges of a hull in their order, each with the vertices that are farthest along it, across it
// and against it. From edge to edge those only move forwards.
class Calipers {
 public:
  explicit Calipers(std::span<const Point> hull)
      : first_(hull.data()), end_(first_ + hull.size()), from_(first_), to_(first_ + 1) {
    along_ = Farthest(to_, Edge());
    across_ = Farthest(along_, Turned(Edge()));
    against_ = Farthest(across_, Turned(Turned(Edge())));
  }

  // False after the last edge.
  bool Advance() {
    from_ = Next(from_);
    to_ = Next(to_);
    if (from_ == first_) return false;
    along_ = Farthest(along_, Edge());
    across_ = Farthest(across_, Turned(Edge()));
    against_ = Farthest(against_, Turned(Turned(Edge())));
    return true;
  }

  // Unit vector along the edge.
  Vector Along() const {
    const Vector edge = ToVector(*to_) - ToVector(*from_);
    return edge * (1.0f / std::sqrt(edge.x * edge.x + edge.y * edge.y));
  }
  float Length(Vector along) const { return Dot(ToVector(*along_) - ToVector(*against_), along); }
  float Depth(Vector along) const {
    return Dot(ToVector(*across_) - ToVector(*from_), {-along.y, along.x});
  }
  // The corner at the start of the edge's side.
  Vector Corner(Vector along) const {
    const Vector origin = ToVector(*from_);
    return origin + along * Dot(ToVector(*against_) - origin, along);
  }

 private:
  struct Step {
    int64_t x, y;
  };
  static Step Turned(Step s) { return {-s.y, s.x}; }
  static Step Between(const Point* p, const Point* q) {
    return {static_cast<int64_t>(q->x) - p->x, static_cast<int64_t>(q->y) - p->y};
  }

  Step Edge() const { return Between(from_, to_); }
  const Point* Next(const Point* p) const { return p + 1 < end_ ? p + 1 : first_; }

  // The first vertex from p on whose successor is no farther in the direction.
  const Point* Farthest(const Point* p, Step direction) const {
    for (ptrdiff_t left = end_ - first_; left > 0; --left) {
      const Point* next = Next(p);
      const Step step = Between(p, next);
      if (step.x * direction.x + step.y * direction.y <= 0) break;
      p = next;
    }
    return p;
  }

  const Point* const first_;
  const Point* const end_;
  const Point* from_;
  const Point* to_;
  const Point* along_;
  const Point* across_;
  const Point* against_;
};

Rectangle RectangleAlong(Vector corner, Vector along, float length, float depth) {
  return {corner, along * length, Vector{-along.y, along.x} * depth};
}

// Among rectangles of equal area the last edge's is taken.
Rectangle MinAreaRectByCalipers(std::span<const Point> hull) {
  Rectangle best = {};
  float leastArea = std::numeric_limits<float>::infinity();
  Calipers calipers(hull);
  do {
    const Vector along = calipers.Along();
    const float length = calipers.Length(along), depth = calipers.Depth(along);
    if (length * depth <= leastArea) {
      leastArea = length * depth;
      best = RectangleAlong(calipers.Corner(along), along, length, depth);
    }
  } while (calipers.Advance());
  return best;
}

// The same, by the kernel where it takes the hull.
Rectangle MinAreaRectOfHull(const Kernels& kernels, std::span<Point> hull) {
  SideBox box;
  if (!kernels.hull.FindLeastSide(hull.data(), static_cast<int>(hull.size()), box)) {
    return MinAreaRectByCalipers(hull);
  }
  const Vector along = {box.alongX, box.alongY};
  const Vector back = {static_cast<float>(box.backX), static_cast<float>(box.backY)};
  const Vector corner = ToVector(hull[box.side]) + along * Dot(back, along);
  return RectangleAlong(corner, along, box.length, box.depth);
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

MinRectangle MinRectangleOfHull(const Kernels& kernels, std::span<Point> hull) {
  if (hull.size() == 1) return OfPoint(ToVector(hull[0]));
  if (hull.size() == 2) return OfSegment(ToVector(hull[0]), ToVector(hull[1]));
  return OfRectangle(MinAreaRectOfHull(kernels, hull));
}

}  // namespace quillon
