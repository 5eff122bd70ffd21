// Row kernels of the thresholds.
#pragma once

#include <stdint.h>

#include "simd/families.h"

namespace quillon {

struct ThresholdKernels {
  // row[x] = row[x] > threshold ? 255 : 0
  void (*AboveRow)(uint8_t* row, int count, uint8_t threshold);
  // row[x] = lower < row[x] && row[x] < upper ? 255 : 0
  void (*BetweenRow)(uint8_t* row, int count, uint8_t lower, uint8_t upper);
};

}  // namespace quillon
