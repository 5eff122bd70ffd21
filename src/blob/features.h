// Minimum rectangles of blobs, and the table of their features.
#pragma once

#include "blob/min_rectangle.h"
#include "blob/region.h"

namespace quillon {

struct Kernels;

// False when there is no such blob, or no memory.
bool ComputeBlobMinRect(const Kernels& kernels, const RLERegion& region, int n,
                        MinRectangle& result);

// Fills the feature table and selects all of it. False when nothing was labelled, or there is no
// memory.
bool ComputeAllBlobFeatures(const Kernels& kernels, RLERegion& region);

}  // namespace quillon
