// Turning an image by whole quarters, which moves pixels and changes none.
#pragma once

#include "quillon/image.h"

namespace quillon {

struct Kernels;

// Columns and rows become rows and columns: `result` shows the source turned about its centre by
// `quarters` times 90 degrees clockwise, 0 ... 3, at the source's size; what is uncovered is 0.
// Where a quarter puts pixels between pixels, the nearest is taken, halves going up. Not in place.
void TurnByQuarters(const Kernels& kernels, const GreyImage& source, GreyImage& result,
                    int quarters);

}  // namespace quillon
