// Row kernels of the thresholds.
#pragma once

#include <stdint.h>

#include "simd/families.h"

namespace quillon {

struct ThresholdKernels {
  // row[x] = lower < row[x] && row[x] < upper ? 255 : 0, for bounds of 0 ... 256.
  void (*BetweenRow)(uint8_t* row, int count, int lower, int upper);
};

}  // namespace quillon
