// Nearest-neighbour scaling.
#pragma once

#include "quillon/image.h"

namespace quillon {

struct Kernels;

// Re-creates `result` at trunc(width * scaleX + 0.5) x trunc(height * scaleY + 0.5); a pixel takes
// the source's column min(trunc((x + 0.5) / scaleX), width - 1), its row likewise. The result may
// be the source. A scale that is not finite and positive, or a side outside 1 ... 32767: nothing
// happens.
void ScaleImage(const Kernels& kernels, const GreyImage& source, GreyImage& result, double scaleX,
                double scaleY);

}  // namespace quillon
