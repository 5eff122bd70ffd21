// Kernels of the median filters.
#pragma once

#include <stdint.h>

#include "filters/row_frame.h"
#include "simd/families.h"

namespace quillon {

// A row with its columns 2k in `even` and 2k + 1 in `odd`. There is a byte before `odd`.
struct SplitRow {
  uint8_t *even, *odd;
};

struct MedianKernels {
  StripKernel* Filter3x3;

  void (*Split)(const uint8_t* row, int width, const SplitRow& split);

  // 5 x 5 medians of two rows at once, those between rows[1] and rows[4], for columns 2 ... 1 + 2 *
  // pairs. Reads and writes whole vectors: kMedianSlack bytes after what it needs.
  void (*Rows5x5)(const SplitRow rows[6], uint8_t* upper, uint8_t* lower, int pairs);
};

constexpr int kMedianSlack = 192;

}  // namespace quillon
