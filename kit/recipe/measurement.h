// A measurement of a recipe: what it takes its value from, in which unit, within which limits.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "kit/operations/operation.h"
#include "kit/recipe/formula.h"

namespace quillon::kit::recipe {

// Which of several things gives the value.
enum class Which { kFirst, kSmallest, kLargest, kMean, kSum };
struct NamedWhich {
  const char* name;
  Which which;
  const char* summary;
};
const std::vector<NamedWhich>& Whiches();

// What can be measured between two things.
struct Between {
  const char* name;
  const char* summary;
  Unit unit;
  std::optional<double> (*value)(const Thing& a, const Thing& b);
  bool isOfLine = false;  // the first is a line through points
};
const std::vector<Between>& Betweens();

struct Measurement {
  std::string name;
  int input = 0;  // slot
  const Quantity* quantity = nullptr;
  Which which = Which::kFirst;
  std::optional<double> min = {}, max = {};
  const Between* between = nullptr;     // instead of a quantity: of two things
  int other = -1;                       // the slot of the second one
  std::optional<Formula> formula = {};  // instead of both: of measurements before
  Unit unit = {};                       // of the value and of the limits
};

// The rule for `min` and `max`.
Argument Limit(const char* name);

// The unit in which the quantity is counted in pixels.
Unit UnitOf(const Quantity& quantity);

// As pages show it: digits after the point.
int DecimalsOf(const Measurement& measurement);

}  // namespace quillon::kit::recipe
