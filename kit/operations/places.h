// Places in a picture: the arguments of operations that are turned rectangles, rings or polygons.
// Where they follow what was found they are given in the directions of a thing, or of two that
// cross, and brought to where it lies.
#pragma once

#include <optional>
#include <vector>

#include "kit/geometry.h"
#include "kit/operations/operation.h"

namespace quillon::kit {

// The ellipse that fills a box, as pages draw it.
std::vector<Point> EllipseIn(const TurnedBox& box);

// Whether it has places that can follow things.
bool HasPlaces(const Operation& operation);

// The directions of a thing; nothing where it was not found.
std::optional<Frame> FrameOf(const Thing& thing);

// The directions of two things, such as two lines: (0, 0) is where their lines cross, and x runs
// along the first one's, towards its middle. The line of an edge or a pair is the one that is drawn
// for it, at right angles to the direction in which it was looked for. Of two circles (0, 0) is the
// first one's centre, and x runs to the second one's. Nothing where one was not found, where lines
// are parallel and where circles have one centre.
std::optional<Frame> FrameOf(const Thing& first, Kind firstKind, const Thing& second,
                             Kind secondKind);

// The values with all places brought to the picture. Throws Failure where one comes to lie farther
// away than places can be.
Values PlacedIn(const Operation& operation, const Values& values, const Frame& frame);

// The outlines of all places, and of upright rectangles, as pages draw them; a ring has two.
std::vector<std::vector<Point>> OutlinesOf(const Operation& operation, const Values& values);

// Throws Failure where a place holds no pixel of a picture of this size: looking there would find
// nothing, as on a part that lacks what is looked for.
void RequirePlacesIn(const Operation& operation, const Values& values, int width, int height);

}  // namespace quillon::kit
