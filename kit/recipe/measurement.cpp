#include "kit/recipe/measurement.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string_view>

#include "kit/elementary.h"
#include "kit/measure/fit.h"

namespace quillon::kit::recipe {

const std::vector<NamedWhich>& Whiches() {
  static const std::vector<NamedWhich> whiches = {
      {"first", Which::kFirst, "the topmost blob or defect, the best match"},
      {"smallest", Which::kSmallest, "the smallest value"},
      {"largest", Which::kLargest, "the largest value"},
      {"mean", Which::kMean, "the mean of all values"},
      {"sum", Which::kSum, "the sum of all values"},
  };
  return whiches;
}

namespace {

// The angle between two lines, from 0 to 90: a line turned by 180 degrees is the same line.
std::optional<double> AngleBetween(const Thing& a, const Thing& b) {
  const double between = std::fmod(std::abs(a.angle - b.angle), 180);
  return std::min(between, 180 - between);
}

std::optional<double> Distance(const Thing& a, const Thing& b) {
  return Length(a.x - b.x, a.y - b.y);
}

std::optional<double> DistanceFromLine(const Thing& a, const Thing& line) {
  const double angle = line.angle * std::numbers::pi / 180;
  return std::abs((a.y - line.y) * Cosine(angle) - (a.x - line.x) * Sine(angle));
}

// The least distance between two lines that hold all points of the first one between them; they
// run in the second one's direction, or at `turned` degrees to it.
template <int turned>
std::optional<double> ZoneOfPoints(const Thing& line, const Thing& datum) {
  if (line.usedPoints.empty()) return {};
  const double angle = (datum.angle + turned) * std::numbers::pi / 180;
  std::vector<double> aside;
  for (const Point& at : line.usedPoints) {
    aside.push_back((at.y - line.y) * Cosine(angle) - (at.x - line.x) * Sine(angle));
  }
  const auto [least, most] = std::minmax_element(aside.begin(), aside.end());
  return *most - *least;
}

template <double Point::*coordinate>
std::optional<double> CrossingOf(const Thing& a, const Thing& b) {
  const auto crossing = Crossing({a.x, a.y}, a.angle, {b.x, b.y}, b.angle);
  return crossing ? std::optional((*crossing).*coordinate) : std::nullopt;
}

}  // namespace

const std::vector<Between>& Betweens() {
  constexpr Unit kPixels = {1, 0, 0}, kDegrees = {0, 0, 1};
  static const std::vector<Between> betweens = {
      {"distance", "from centre to centre", kPixels, Distance},
      {"distance-from-line",
       "from the first one's centre, at right angles to the second's direction", kPixels,
       DistanceFromLine},
      {"angle-between", "between their directions, 0 for parallel ones, 90 at the most", kDegrees,
       AngleBetween},
      {"parallelism",
       "of a line to the second's direction: how far apart two lines in that direction are that "
       "hold all its used edge points between them",
       kPixels, ZoneOfPoints<0>, true},
      {"perpendicularity", "the same for two lines at right angles to that direction", kPixels,
       ZoneOfPoints<90>, true},
      {"crossing-x", "column where their directions cross", kPixels, CrossingOf<&Point::x>},
      {"crossing-y", "row of it", kPixels, CrossingOf<&Point::y>},
  };
  return betweens;
}

Unit UnitOf(const Quantity& quantity) {
  const std::string_view name = quantity.name;
  for (const char* length :
       {"x", "y", "width", "height", "position", "diameter", "length", "rms", "worst", "form"}) {
    if (name == length) return {1, 0, 0};
  }
  for (const char* area : {"area", "missing", "extra", "hull", "mxx", "mxy", "myy"}) {
    if (name == area) return {2, 0, 0};
  }
  return {0, 0, name == "angle" || name == "axis" ? 1 : 0};
}

int DecimalsOf(const Measurement& measurement) {
  const int decimals = measurement.quantity ? measurement.quantity->decimals : 3;
  return measurement.unit.mm > 0 ? std::max(decimals, 3) : decimals;
}

Argument Limit(const char* name) {
  constexpr double kLargest = 1e12;
  return Number(name, -kLargest, kLargest, "");
}

}  // namespace quillon::kit::recipe
