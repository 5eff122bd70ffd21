// Blobs, matches and defects as structured arrays, a row each.
#pragma once

#include <pybind11/numpy.h>

#include <vector>

#include "kit/operations/operation.h"

namespace quillon::python {

// A column for all that can be measured of this kind of thing, whole numbers as int64.
pybind11::array ThingsArray(kit::Kind kind, const std::vector<kit::Thing>& things);

}  // namespace quillon::python
