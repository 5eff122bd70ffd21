#include "kit/operations/places.h"

#include <algorithm>

#include "kit/errors.h"

namespace quillon::kit {
namespace {

bool IsPlace(const Argument& argument) {
  return argument.type == Argument::Type::kBox || argument.type == Argument::Type::kRing;
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

}  // namespace quillon::kit
