// Kernels of the gradient filters.
#pragma once

#include "filters/row_frame.h"
#include "simd/families.h"

namespace quillon {

struct GradientKernels {
  StripKernel* Sobel;
  StripKernel* Prewitt;
  StripKernel* Robert;  // of the middle and the lower row of a window
  StripKernel* Laplacian;
  StripKernel* Sharpen;      // the centre weighs 9
  StripKernel* WeakSharpen;  // the centre weighs 7
};

}  // namespace quillon
