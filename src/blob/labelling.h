// Blobs of a grey image inside a region of interest, and filling the holes of a binary image.
#pragma once

#include "blob/region.h"

namespace quillon {

struct Kernels;

// Labels the pixels min(low, high) ... max(low, high) inside the region of interest and gives every
// blob its number, area and centre. Parts of the region outside the image hold no pixels. A region
// that lacks a table for what is found stays as it was; one without runs of interest has no blobs.
void LabelGrayBlobs(const Kernels& kernels, RLERegion& region, const GreyImage& image, int low,
                    int high);

// Sets every group of pixels that differ from `value` to it, unless the group touches the top row
// or the last column. Overwrites the blob and run tables. False when they are not there, or memory.
bool FillUpHoles(const Kernels& kernels, RLERegion& region, GreyImage& image, uint8_t value);

}  // namespace quillon
