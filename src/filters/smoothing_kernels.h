// Row kernels of the smoothing filters: sums down the columns of a window's rows, then across.
#pragma once

#include <stdint.h>

#include "simd/table.h"

namespace quillon {

// Column sums of one row, those of even and of odd columns apart: so bytes widen and narrow without
// a shuffle. Kernels write and read up to kColumnPadding lanes behind the last.
struct ColumnSums {
  uint16_t* even;
  uint16_t* odd;
};
constexpr int kColumnPadding = 128;

// The largest window whose means are formed from 16-bit column sums: differences of two sums stay
// within 16 bits, quotients by float are exact.
constexpr int kLargestNarrowMean = 127;

struct SmoothingKernels {
  // Means of the `width - size + 1` windows of a row, size being the name's. `rows` are the
  // window's rows from their first column, `sums` is scratch.
  void (*Gaussian3)(const uint8_t* const* rows, int width, const ColumnSums& sums, uint8_t* out);
  void (*Gaussian5)(const uint8_t* const* rows, int width, const ColumnSums& sums, uint8_t* out);
  void (*Gaussian7)(const uint8_t* const* rows, int width, const ColumnSums& sums, uint8_t* out);

  // sums[x] += entering[x] - leaving[x]
  void (*MoveColumns)(const ColumnSums& sums, const uint8_t* entering, const uint8_t* leaving,
                      int width);
  // Means of `count` windows of size x size, whose columns are summed up; `size` is the name's, or
  // any odd one up to kLargestNarrowMean with a reciprocal that gives exact quotients.
  void (*Mean3)(const ColumnSums& sums, int count, uint8_t* out);
  void (*Mean5)(const ColumnSums& sums, int count, uint8_t* out);
  void (*Mean7)(const ColumnSums& sums, int count, uint8_t* out);
  void (*Mean)(const ColumnSums& sums, int count, int size, float reciprocal, uint8_t* out);

  // The same for larger windows, in 32-bit column sums in their natural order.
  void (*MoveWideColumns)(uint32_t* sums, const uint8_t* entering, const uint8_t* leaving,
                          int width);
  void (*MeanWide)(const uint32_t* sums, int count, int size, uint8_t* out);
};

QUILLON_KERNELS(SmoothingKernels, smoothing)

}  // namespace quillon
