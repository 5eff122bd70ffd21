// Row kernels of the gradient filters.
#pragma once

#include <stdint.h>

#include "simd/table.h"

namespace quillon {

// The rows y - 1, y and y + 1 of the source.
struct Rows3 {
  const uint8_t *top, *middle, *bottom;
};

// out[x] for the columns x of [from, to), from columns from - 1 ... to of the source.
using Row3x3 = void(const Rows3& rows, uint8_t* out, int from, int to);

struct GradientKernels {
  Row3x3* SobelRow;
  Row3x3* PrewittRow;
  Row3x3* RobertRow;  // of the middle and the bottom row
  Row3x3* LaplacianRow;
  Row3x3* SharpenRow;      // the centre weighs 9
  Row3x3* WeakSharpenRow;  // the centre weighs 7
};

QUILLON_KERNELS(GradientKernels, gradient)

}  // namespace quillon
