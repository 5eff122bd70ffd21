// Smoothing: binomial (Gaussian) weights and box means.
#pragma once

#include "quillon/image.h"

namespace quillon {

struct Kernels;

// size is 3, 5 or 7. `result` may be the source.
void GaussianSmoothing(const Kernels& kernels, const GreyImage& source, GreyImage& result,
                       int size);

// Any odd size; others do nothing. `result` may be the source.
void MeanSmoothing(const Kernels& kernels, const GreyImage& source, GreyImage& result, int size);

}  // namespace quillon
