// Flat-field correction: a gain per grey level, kept in the image, applied to a region.
#pragma once

#include "quillon/image.h"

namespace quillon {

struct Kernels;

// Columns xStart ... xEnd - 1 of rows yStart ... yEnd - 1.
struct FlatFieldRegion {
  int32_t xStart, xEnd, yStart, yEnd;
};

// Gives the image the gains target / level and writes them, with the region, to a file. False when
// the file cannot be opened, or there is no memory for the table.
bool BuildFlatFieldTable(GreyImage& image, int target, const FlatFieldRegion& region,
                         const char* fileName);

// Gives the image the table of a file and reports the file's region. False, and an image without a
// table, when the file cannot be opened. Gains that a short file lacks are 0; words of the region
// stay as they were.
bool LoadFlatFieldTable(GreyImage& image, FlatFieldRegion& region, const char* fileName);

// Corrects what of the region lies inside the image; nothing without a table.
void ApplyFlatField(const Kernels& kernels, GreyImage& image, const FlatFieldRegion& region);

}  // namespace quillon
