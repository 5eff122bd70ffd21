// A measurement of a recipe from its JSON.
#pragma once

#include "kit/recipe/fields.h"

namespace quillon::kit::recipe {

// What is wrong is told to the fields. It may measure what the recipe's slots so far name, and
// calculate with the measurements before it.
Measurement ParseMeasurement(Fields& fields, const Recipe& before);

}  // namespace quillon::kit::recipe
