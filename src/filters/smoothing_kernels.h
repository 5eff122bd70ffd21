// Row kernels of the smoothing filters: sums down the columns of a window's rows, then across.
#pragma once

#include <stdint.h>

#include "simd/families.h"

namespace quillon {

// Column sums of one row, those of even and of odd columns apart: so bytes widen and narrow without
// a shuffle. Kernels write and read up to kColumnPadding lanes behind the last; odd[-1] is 0.
struct ColumnSums {
  uint16_t* even;
  uint16_t* odd;
};
constexpr int kColumnPadding = 128;
constexpr int kWideColumnPadding = 16;

// Rows that a Gaussian takes at once, and what it keeps of the rows above.
constexpr int kGaussianBand = 4;
constexpr int GaussianState(int size) { return size == 7 ? 16 : 2 * (size - 1); }

// The largest window whose means are formed from 16-bit column sums: differences of two sums stay
// within 16 bits, quotients by float are exact.
constexpr int kLargestNarrowMean = 127;

// How the sum of a window becomes its mean: sum * weight + bias are the bits of a float, or a whole
// number to be converted into one. That times the reciprocal plus the offset, rounded once or
// twice, is 1.5 * 2^23 + mean: its bits end in the mean's.
struct MeanScale {
  bool converted;
  int32_t weight, bias;
  float reciprocal, offset;
};

struct SmoothingKernels {
  // Adds `rowCount` rows to those before them: each out row becomes the weighed means of the
  // `count` windows whose last row it is. `rows` start at their windows' first column; `state`
  // holds GaussianState(size) bytes for each of `count` columns, rounded up to whole blocks of 64,
  // and is zero before the first row. The size is the name's.
  void (*Gaussian3)(const uint8_t* const* rows, uint8_t* const* outs, int rowCount, int count,
                    uint8_t* state);
  void (*Gaussian5)(const uint8_t* const* rows, uint8_t* const* outs, int rowCount, int count,
                    uint8_t* state);
  void (*Gaussian7)(const uint8_t* const* rows, uint8_t* const* outs, int rowCount, int count,
                    uint8_t* state);

  // sums[x] += entering[x] - leaving[x]
  void (*MoveColumns)(const ColumnSums& sums, const uint8_t* entering, const uint8_t* leaving,
                      int width);
  // Means of `count` windows of size x size, whose columns are summed up; `size` is the name's, or
  // any odd one up to kLargestNarrowMean, divided by `scale`.
  void (*Mean3)(const ColumnSums& sums, int count, uint8_t* out);
  void (*Mean5)(const ColumnSums& sums, int count, uint8_t* out);
  void (*Mean7)(const ColumnSums& sums, int count, uint8_t* out);
  void (*Mean)(const ColumnSums& sums, int count, int size, const MeanScale& scale, uint8_t* out);

  // The same for larger windows, in 32-bit column sums in their natural order: sums[-1] is 0, and
  // kWideColumnPadding lanes behind the last can be read.
  void (*MoveWideColumns)(uint32_t* sums, const uint8_t* entering, const uint8_t* leaving,
                          int width);
  void (*MeanWide)(const uint32_t* sums, int count, int size, uint8_t* out);
};

}  // namespace quillon
