// Places in a picture: the arguments of operations that are rectangles, turned ones or rings.
// Where they follow what was found they are given in the directions of a thing, and brought to
// where it lies.
#pragma once

#include "kit/geometry.h"
#include "kit/operations/operation.h"

namespace quillon::kit {

// Whether it has places that can follow things.
bool HasPlaces(const Operation& operation);

// The values with all places brought to the picture. Throws Failure where one comes to lie farther
// away than places can be.
Values PlacedIn(const Operation& operation, const Values& values, const Frame& frame);

// Throws Failure where a place holds no pixel of a picture of this size: looking there would find
// nothing, as on a part that lacks what is looked for.
void RequirePlacesIn(const Operation& operation, const Values& values, int width, int height);

}  // namespace quillon::kit
