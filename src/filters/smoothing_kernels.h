// Row kernels of the smoothing filters: sums down the columns of a window's rows, then across.
#pragma once

#include <stdint.h>

#include "simd/families.h"

namespace quillon {

// Column sums of one row, those of even and of odd columns apart, or those of every fourth: so
// bytes widen and narrow without a shuffle. Kernels write and read up to kColumnPadding lanes
// behind the last; odd[-1] and quarter[3][-1] are 0.
struct ColumnSums {
  uint16_t* even;
  uint16_t* odd;
};
struct WideColumnSums {
  uint32_t* quarter[4];  // columns 0, 4, 8 ..., then 1, 5, 9 ...
};
constexpr int kColumnPadding = 128;

// Rows that a small window takes at once.
constexpr int kBand = 4;

struct SmallWindow {
  // What is kept of the rows above, in bytes for a column.
  int stateBytes;
  // Adds `rowCount` rows to those before them: each out row becomes the weighed means of the
  // `count` windows whose last row it is. `rows` start at their windows' first column; `state`
  // holds stateBytes for each of `count` columns, rounded up to whole blocks of 64, and is zero
  // before the first row.
  void (*AddRows)(const uint8_t* const* rows, uint8_t* const* outs, int rowCount, int count,
                  uint8_t* state);
};

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
  // Of 3 x 3, 5 x 5 and 7 x 7.
  SmallWindow gaussians[3], means[3];

  // sums[x] += entering[x] - leaving[x]
  void (*MoveColumns)(const ColumnSums& sums, const uint8_t* entering, const uint8_t* leaving,
                      int width);
  // Means of `count` windows of size x size, any odd size up to kLargestNarrowMean, whose columns
  // are summed up.
  void (*Mean)(const ColumnSums& sums, int count, int size, const MeanScale& scale, uint8_t* out);

  // The same for larger windows, in 32-bit column sums.
  void (*MoveWideColumns)(const WideColumnSums& sums, const uint8_t* entering,
                          const uint8_t* leaving, int width);
  void (*MeanWide)(const WideColumnSums& sums, int count, int size, uint8_t* out);
};

}  // namespace quillon
