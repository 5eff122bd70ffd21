// Row kernels of the image pyramid.
#pragma once

#include <stdint.h>

#include "simd/families.h"

namespace quillon {

constexpr int kMaxPyramidLevel = 6;

struct PyramidKernels {
  // ReduceRow[k - 1] makes one row of level k: out[x] is the mean of the 2^k x 2^k block at column
  // x * 2^k of the 2^k `rows`, truncated; at level 4 the mean of its left half, halved and
  // truncated, plus that of its right half.
  void (*ReduceRow[kMaxPyramidLevel])(const uint8_t* const* rows, uint8_t* out, int count);
};

}  // namespace quillon
