#include "kit/operations/places.h"

#include <algorithm>
#include <cmath>

#include "kit/errors.h"
#include "kit/text/numbers.h"
#include "kit/text/text.h"

namespace quillon::kit {
namespace {

bool IsPlace(const Argument& argument) {
  return argument.type == Argument::Type::kBox || argument.type == Argument::Type::kRing;
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

// The pixels of [left, top, width, height], by their centres.
TurnedBox UprightBox(const std::vector<double>& list) {
  return {{list[0] + (list[2] - 1) / 2, list[1] + (list[3] - 1) / 2, 0}, list[2] - 1, list[3] - 1};
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

// They do not where a side of either has all of the other behind it.
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

}  // namespace

bool HasPlaces(const Operation& operation) {
  return std::any_of(operation.arguments.begin(), operation.arguments.end(), IsPlace);
}

Values PlacedIn(const Operation& operation, const Values& values, const Frame& frame) {
  Values placed = values;
  for (const Argument& argument : operation.arguments) {
    if (!IsPlace(argument) || !values.Has(argument.name)) continue;
    auto place = values.List<double>(argument.name);
    const Point at = frame.pose.At(frame.scale * place[0], frame.scale * place[1]);
    place[0] = at.x;
    place[1] = at.y;
    place[2] *= frame.scale;
    place[3] *= frame.scale;
    if (argument.type == Argument::Type::kBox) {
      place[4] = std::remainder(place[4] + frame.pose.degrees, 360);
    }
    const Json value = place;
    if (!argument.Fits(value)) {
      throw Failure(std::string("'") + argument.name + "' comes to lie at " + InMessage(value) +
                    ", which is not " + argument.Expected());
    }
    placed.Set(argument.name, value);
  }
  return placed;
}

void RequirePlacesIn(const Operation& operation, const Values& values, int width, int height) {
  const Corner corner = {width - 1.0, height - 1.0};
  const auto range = [](double from, double to) {
    return ShortestDigits(std::floor(from)) + " to " + ShortestDigits(std::ceil(to));
  };
  for (const Argument& argument : operation.arguments) {
    const bool isRing = argument.type == Argument::Type::kRing;
    const bool isUpright = argument.type == Argument::Type::kRectangle;
    if ((!IsPlace(argument) && !isUpright) || !values.Has(argument.name)) continue;
    const auto list = values.List<double>(argument.name);
    const TurnedBox box = isUpright ? UprightBox(list)
                          : isRing  ? TurnedBox{{list[0], list[1], 0}, 2 * list[3], 2 * list[3]}
                                    : TurnedBox{{list[0], list[1], list[4]}, list[2], list[3]};
    if (isRing ? Holds(list, corner) : Holds(box, corner)) continue;
    const auto [least, most] = ExtentOf(box);
    throw Failure(std::string("the ") + argument.name + ", columns " + range(least.x, most.x) +
                  " and rows " + range(least.y, most.y) + ", holds no pixel of the picture of " +
                  SizeText(width, height));
  }
}

}  // namespace quillon::kit
