// Places that follow what was found: the arguments of operations that are turned rectangles or
// rings are given in the directions of a thing, and brought to where it lies.
#pragma once

#include "kit/geometry.h"
#include "kit/operations/operation.h"

namespace quillon::kit {

bool HasPlaces(const Operation& operation);

// The values with all places brought to the picture. Throws Failure where one comes to lie farther
// away than places can be.
Values PlacedIn(const Operation& operation, const Values& values, const Frame& frame);

}  // namespace quillon::kit
