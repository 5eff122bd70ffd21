// Minimum rectangles of blobs, and the table of their features.
#pragma once

#include "blob/min_rectangle.h"
#include "blob/region.h"

namespace quillon {

// False when there is no such blob, or no memory.
bool ComputeBlobMinRect(const RLERegion& region, int n, MinRectangle& result);

// Fills the feature table and selects all of it. False when nothing was labelled, or there is no
// memory.
bool ComputeAllBlobFeatures(RLERegion& region);

}  // namespace quillon
