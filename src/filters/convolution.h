// Convolution with any integer kernel.
#pragma once

#include "quillon/image.h"

namespace quillon {

struct Kernels;

// size is 3, 5 or 7; `weights` has size x size of them, row by row. `result` may be the source.
void Convolve(const Kernels& kernels, const GreyImage& source, GreyImage& result,
              const int* weights, int size);

}  // namespace quillon
