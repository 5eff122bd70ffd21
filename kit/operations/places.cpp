#include "kit/operations/places.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "kit/errors.h"
#include "kit/measure/fit.h"
#include "kit/text/numbers.h"
#include "kit/text/text.h"

namespace quillon::kit {
namespace {

// Whether it can follow a thing. An upright rectangle cannot: it would have to turn.
bool IsPlace(const Argument& argument) {
  using Type = Argument::Type;
  return argument.type == Type::kBox || argument.type == Type::kRing ||
         (argument.type == Type::kPoints && !argument.isOfTemplate);
}

bool IsRegion(const Argument& argument) {
  return IsPlace(argument) || argument.type == Argument::Type::kRectangle;
}

// The pixels of [left, top, width, height], by their centres.
TurnedBox UprightBox(const std::vector<double>& list) {
  return {{list[0] + (list[2] - 1) / 2, list[1] + (list[3] - 1) / 2, 0}, list[2] - 1, list[3] - 1};
}

TurnedBox BoxOf(const std::vector<double>& list) {
  return {{list[0], list[1], list[4]}, list[2], list[3]};
}

std::vector<Point> CornersOf(const TurnedBox& box) {
  const auto corners = box.Corners();
  std::vector<Point> points;
  for (size_t i = 0; i < corners.size(); i += 2) points.push_back({corners[i], corners[i + 1]});
  return points;
}

// What a page draws of a place: its outline, of a ring both circles.
std::vector<std::vector<Point>> OutlinesOf(const Argument& argument, const Json& value) {
  using Type = Argument::Type;
  if (argument.type == Type::kPoints) {
    std::vector<Point> points;
    for (const auto& [x, y] : value.get<std::vector<std::array<double, 2>>>()) {
      points.push_back({x, y});
    }
    return {points};
  }
  const auto list = value.get<std::vector<double>>();
  if (argument.type == Type::kBox) return {CornersOf(BoxOf(list))};
  if (argument.type == Type::kRing) {
    const auto circle = [&](double radius) {
      return EllipseIn({{list[0], list[1], 0}, 2 * radius, 2 * radius});
    };
    return {circle(list[2]), circle(list[3])};
  }
  return {CornersOf(UprightBox(list))};
}

// The centres of a picture's pixels lie from (0, 0) to this corner.
using Corner = Point;

// The columns and rows that a place reaches.
struct Extent {
  Point least, most;
};

bool Overlap(double least, double most, double low, double high) {
  return most >= low && least <= high;
}

Extent ExtentOf(const TurnedBox& box) {
  const auto corners = box.Corners();
  Extent extent = {{corners[0], corners[1]}, {corners[0], corners[1]}};
  for (size_t i = 2; i < corners.size(); i += 2) {
    extent.least = {std::min(extent.least.x, corners[i]), std::min(extent.least.y, corners[i + 1])};
    extent.most = {std::max(extent.most.x, corners[i]), std::max(extent.most.y, corners[i + 1])};
  }
  return extent;
}

// Whether the turned box and the picture meet: they do not where one of them lies wholly beyond a
// side of the other.
bool Holds(const TurnedBox& box, Corner corner) {
  const Extent extent = ExtentOf(box);
  if (!Overlap(extent.least.x, extent.most.x, 0, corner.x) ||
      !Overlap(extent.least.y, extent.most.y, 0, corner.y)) {
    return false;
  }
  const Point across = Pose{0, 0, box.pose.degrees}.At(1, 0);
  const double middleX = box.pose.x - corner.x / 2, middleY = box.pose.y - corner.y / 2;
  const auto reaches = [&](double dx, double dy, double side) {
    const double half = (std::abs(dx) * corner.x + std::abs(dy) * corner.y) / 2;
    return std::abs(middleX * dx + middleY * dy) <= half + side / 2;
  };
  return reaches(across.x, across.y, box.width) && reaches(-across.y, across.x, box.height);
}

// [x, y, inner radius, outer radius]: the nearest pixel lies within the outer circle, the farthest
// beyond the inner one.
bool Holds(const std::vector<double>& ring, Corner corner) {
  const double x = ring[0], y = ring[1];
  const double nearest = Length(x - std::clamp(x, 0.0, corner.x), y - std::clamp(y, 0.0, corner.y));
  const double farthest = Length(std::max(std::abs(x), std::abs(x - corner.x)),
                                 std::max(std::abs(y), std::abs(y - corner.y)));
  return nearest <= ring[3] && farthest >= ring[2];
}

// A place in the directions of a frame, brought to the picture; polygons go by whole pixels.
Json Placed(const Argument& argument, const Json& value, const Frame& frame) {
  const auto at = [&](double x, double y) {
    return frame.pose.At(frame.scale * x, frame.scale * y);
  };
  if (argument.type == Argument::Type::kPoints) {
    Json points = Json::array();
    for (const Json& point : value) {
      const auto [x, y] = at(point[0].get<double>(), point[1].get<double>());
      points.push_back({std::llround(x), std::llround(y)});
    }
    return points;
  }
  auto place = value.get<std::vector<double>>();
  const Point centre = at(place[0], place[1]);
  place[0] = centre.x;
  place[1] = centre.y;
  place[2] *= frame.scale;
  place[3] *= frame.scale;
  if (argument.type == Argument::Type::kBox) {
    place[4] = std::remainder(place[4] + frame.pose.degrees, 360);
  }
  return place;
}

}  // namespace

std::vector<Point> EllipseIn(const TurnedBox& box) {
  constexpr int kCorners = 72;
  std::vector<Point> points;
  for (int i = 0; i < kCorners; ++i) {
    const Point onCircle = Pose{0, 0, i * 360.0 / kCorners}.At(0.5, 0);
    points.push_back(box.At(onCircle.x * box.width, onCircle.y * box.height));
  }
  return points;
}

bool HasPlaces(const Operation& operation) {
  return std::any_of(operation.arguments.begin(), operation.arguments.end(), IsPlace);
}

std::optional<Frame> FrameOf(const Thing& thing) {
  if (!IsThere(thing)) return {};
  return Frame{{thing.x, thing.y, thing.angle}, thing.scale > 0 ? thing.scale : 1};
}

std::optional<Frame> FrameOf(const Thing& first, Kind firstKind, const Thing& second,
                             Kind secondKind) {
  if (!IsThere(first) || !IsThere(second)) return {};
  if (firstKind == Kind::kCircles && secondKind == Kind::kCircles) {
    const double x = second.x - first.x, y = second.y - first.y;
    if (x == 0 && y == 0) return {};
    return Frame{{first.x, first.y, ArcTangent(y, x) * 180 / std::numbers::pi}, 1};
  }
  const auto along = [](const Thing& thing, Kind kind) {
    const bool runsAcross = kind == Kind::kEdges || kind == Kind::kPairs;
    return thing.angle + (runsAcross ? 90 : 0);
  };
  double degrees = along(first, firstKind);
  const auto origin =
      Crossing({first.x, first.y}, degrees, {second.x, second.y}, along(second, secondKind));
  if (!origin) return {};
  // The angle of a line is known up to half a turn: its middle says which way it runs.
  const Point ahead = Pose{0, 0, degrees}.At(1, 0);
  const bool isBehind = (first.x - origin->x) * ahead.x + (first.y - origin->y) * ahead.y < 0;
  if (isBehind) degrees += 180;
  return Frame{{origin->x, origin->y, std::remainder(degrees, 360)}, 1};
}

Values PlacedIn(const Operation& operation, const Values& values, const Frame& frame) {
  Values placed = values;
  for (const Argument& argument : operation.arguments) {
    if (!IsPlace(argument) || !values.Has(argument.name)) continue;
    const Json value = Placed(argument, values.At(argument.name), frame);
    const std::string where =
        std::string("'") + argument.name + "' comes to lie at " + InMessage(value);
    if (!argument.Fits(value)) throw Failure(where + ", which is not " + argument.Expected());
    if (const std::string problem = argument.Contradiction(value); !problem.empty()) {
      throw Failure(where + ": " + problem);
    }
    placed.Set(argument.name, value);
  }
  return placed;
}

std::vector<std::vector<Point>> OutlinesOf(const Operation& operation, const Values& values) {
  std::vector<std::vector<Point>> all;
  for (const Argument& argument : operation.arguments) {
    if (!IsRegion(argument) || !values.Has(argument.name)) continue;
    for (auto& outline : OutlinesOf(argument, values.At(argument.name))) {
      all.push_back(std::move(outline));
    }
  }
  return all;
}

void RequirePlacesIn(const Operation& operation, const Values& values, int width, int height) {
  const Corner corner = {width - 1.0, height - 1.0};
  const auto range = [](double from, double to) {
    return ShortestDigits(std::floor(from)) + " to " + ShortestDigits(std::ceil(to));
  };
  for (const Argument& argument : operation.arguments) {
    // Polygons are looked at where they are used, pixel by pixel.
    if (!IsRegion(argument) || argument.type == Argument::Type::kPoints) continue;
    if (!values.Has(argument.name)) continue;
    const bool isRing = argument.type == Argument::Type::kRing;
    const bool isUpright = argument.type == Argument::Type::kRectangle;
    const auto list = values.List<double>(argument.name);
    const TurnedBox box = isUpright ? UprightBox(list)
                          : isRing  ? TurnedBox{{list[0], list[1], 0}, 2 * list[3], 2 * list[3]}
                                    : BoxOf(list);
    if (isRing ? Holds(list, corner) : Holds(box, corner)) continue;
    const auto [least, most] = ExtentOf(box);
    throw Failure(std::string("the ") + argument.name + ", columns " + range(least.x, most.x) +
                  " and rows " + range(least.y, most.y) + ", holds no pixel of the picture of " +
                  SizeText(width, height));
  }
}

}  // namespace quillon::kit
