// Kernels of the correlation: sums of products of pixels.
#pragma once

#include <stdint.h>

#include "simd/table.h"

namespace quillon {

struct CorrelationKernels {
  // The sums of a[i], of a[i] * a[i] and of a[i] * b[i].
  void (*SumProducts)(const uint8_t* a, const uint8_t* b, int count, uint64_t sums[3]);
};

QUILLON_KERNELS(CorrelationKernels, correlation)

}  // namespace quillon
