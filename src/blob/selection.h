// Narrowing the set of blobs by their features. Every selection works within the current one and
// fails, changing nothing, when that is empty.
#pragma once

#include "blob/region.h"

namespace quillon {

// Both bounds belong to the range. Widths and heights are compared as floats.
bool SelectBlobArea(RLERegion& region, int lowest, int highest);
bool SelectBlobWidth(RLERegion& region, int lowest, int highest);
bool SelectBlobHeight(RLERegion& region, int lowest, int highest);
bool SelectBlobCentre(RLERegion& region, int xLowest, int xHighest, int yLowest, int yHighest);

// Selects all blobs again.
bool ReselectBlobs(RLERegion& region);

// Copies the selected records one after another; `selected` has room for selectCount of them.
bool CopySelectedBlobs(const RLERegion& region, BlobFeature* selected);

}  // namespace quillon
