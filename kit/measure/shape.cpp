#include "kit/measure/shape.h"

#include <cmath>

#include "kit/errors.h"

namespace quillon::kit {
namespace {

template <class Shape>
using Found = std::optional<FoundShape<Shape>>;

template <auto Fit>
auto Through(std::vector<Point> points, double refuse)
    -> Found<typename decltype(Fit(points, refuse))::value_type> {
  const auto shape = Fit(points, refuse);
  if (!shape) return {};
  return {{*shape, std::move(points)}};
}

template <auto Fit>
Found<FittedEllipse> FindRound(const GreyImage& image, const Annulus& ring, double rayWidth,
                               const ShapeRule& rule) try {
  const auto about = [&](Point centre) {
    const Annulus laid = {centre, ring.inner, ring.outer};
    return Through<Fit>(EdgesAround(image, laid, rule.calipers, rayWidth, rule.edge), rule.refuse);
  };
  auto first = about(ring.centre);
  // A ring that holds a part of the outline may not hold it about the outline's own middle.
  const bool isHeld =
      first && first->shape.height / 2 > ring.inner && first->shape.width / 2 < ring.outer;
  if (!isHeld) return first;
  auto second = about(first->shape.centre);
  return second ? second : first;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a shape around a centre");
}

}  // namespace

Found<FittedLine> FindLine(const GreyImage& image, const TurnedBox& box,
                           const ShapeRule& rule) try {
  const auto along = [&](double degrees) {
    const TurnedBox laid = {{box.pose.x, box.pose.y, degrees}, box.width, box.height};
    return Through<FitLine>(EdgesAcross(image, laid, rule.calipers, rule.edge), rule.refuse);
  };
  auto first = along(box.pose.degrees);
  if (!first) return first;
  // The line's direction is that of the rectangle's height, or the opposite one.
  const double turned = std::remainder(first->shape.degrees - box.pose.degrees - 90, 180);
  auto second = along(box.pose.degrees + turned);
  return second ? second : first;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a line in a rectangle");
}

Found<FittedEllipse> FindCircle(const GreyImage& image, const Annulus& ring, double rayWidth,
                                const ShapeRule& rule) {
  return FindRound<FitCircle>(image, ring, rayWidth, rule);
}

Found<FittedEllipse> FindEllipse(const GreyImage& image, const Annulus& ring, double rayWidth,
                                 const ShapeRule& rule) {
  return FindRound<FitEllipse>(image, ring, rayWidth, rule);
}

}  // namespace quillon::kit
