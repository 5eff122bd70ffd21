// Edge points of one level of a template.
#pragma once

#include "geomatch/geomatch_kernels.h"
#include "geomatch/level_pixels.h"
#include "geomatch/tool.h"

namespace quillon {

// Fills `level` with the edge points of its pixels, in raster order:
// pixels that suppression keeps and whose magnitude, on a scale where the strongest has 255, is at
// least `high`, or at least `low` beside one of the first kind. False when the memory is not there.
bool ExtractGeoEdges(const Kernels& kernels, const LevelPixels& pixels, double high, double low,
                     GeoOwnedLevel& level);

// One row of Sobel gradients of a level, columns `first` to `last`, those outside the level
// included as zeros. The outermost columns have none; the outermost rows have those of their
// neighbours.
void ComputeSobelGradients(const Kernels& kernels, const LevelPixels& level, int y, int first,
                           int last, PackedVector* gradients);

}  // namespace quillon
