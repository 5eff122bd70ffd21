// A region of interest from a polygon.
#pragma once

#include "blob/region.h"

namespace quillon {

// Steps that a boundary may have. Longer ones, and those for which there is no memory, leave the
// region of interest empty.
constexpr int kMaxChainCodes = 1 << 24;

// Replaces the region of interest by the closed polygon through the points: count pairs x, y.
// The boundary belongs to it where it runs clockwise as displayed. Stops at kMaxRuns runs.
void BuildRegionOfInterest(RLERegion& region, const int32_t* points, int count);

}  // namespace quillon
