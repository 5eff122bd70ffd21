// Row kernels of the convolution: sums of weighed columns, two neighbouring columns a term.
#pragma once

#include <stdint.h>

#include "simd/families.h"

namespace quillon {

// Rows are at least this long for the kernels: shorter ones go through padded copies.
constexpr int kLeastColumns = 64;

// Two columns of bytes, weighed by small weights. `even` holds the weights for windows at even
// places, first column's first, twice over; `odd` those for windows at odd places, which see the
// columns one place further left.
struct ByteTerm {
  const uint8_t* from;
  uint32_t even, odd;
};

// A sum of 16 bits with sign becomes ((sum + bias) * factor >> 16) >> shift, or sum >> shift where
// the factor is 0.
struct ByteQuotient {
  int16_t bias, factor;
  int shift;
};

// One column of a window in two source rows, whose pixels alternate in memory. `first` and `second`
// hold its weights for the upper and the lower one of two result rows: the upper pixel's weight in
// the low 16 bits, the lower pixel's in the high ones.
struct PairTerm {
  const int16_t* from;
  uint32_t first, second;
};

struct PairTerms {
  const PairTerm* terms;
  int count;
};

// How sums of low + 65536 * high terms become pixels.
struct PairQuotient {
  enum Way {
    kShift,      // sum >> shift
    kFloat,      // truncated product with the reciprocal, which is a little too large
    kCorrected,  // the same with one a little too small, and then compared with the divisor
    kLong,       // kCorrected for sums beyond 32 bits
    kDouble,     // the same in double
  };

  Way way;
  int32_t divisor;
  int shift;
  float reciprocal;
  double doubleReciprocal;
};

// 3 x 3 weights, row by row: low + 256 * high, the low part within -128 ... 127 in the low 16 bits,
// the high part in the high ones. The magnitudes of the first five add up to less than 2^24, and
// those of the last four. The divisor is the sum of all, 4096 or more, and at least 1/128 of the
// sum of the magnitudes. The reciprocal is off by at most 2^-20 of it.
struct WideWeights {
  uint32_t pairs[9];
  int32_t divisor;
  float reciprocal;
};

struct ConvolutionKernels {
  // out[x] = the quotient of the terms' sum, clamped to 0 ... 255. All partial sums fit 16 bits.
  void (*ByteSums)(const ByteTerm* terms, int termCount, const ByteQuotient& quotient, int count,
                   uint8_t* out);
  // pairs[2 x] = upper[x], pairs[2 x + 1] = lower[x]
  void (*PairPixels)(const uint8_t* upper, const uint8_t* lower, int count, int16_t* pairs);
  // The same with the terms' sums in place of pixels; they are in an order that only SplitPairSums
  // knows, and written up to the end of the last kLeastColumns.
  void (*PairByteSums)(const ByteTerm* upper, const ByteTerm* lower, int termCount, int count,
                       int16_t* pairs);
  // Two rows of quotients, clamped to 0 ... 255. There is a low term, and high ones where the way
  // is kLong or kDouble; otherwise all sums fit 32 bits, and the sums of either always do.
  void (*PairSums)(const PairTerms& low, const PairTerms& high, const PairQuotient& quotient,
                   int count, uint8_t* const out[2]);
  // The same from the rows that PairByteSums wrote. A term is a whole row, not a column, and all
  // sums fit 32 bits.
  void (*SplitPairSums)(const PairTerms& terms, const PairQuotient& quotient, int count,
                        uint8_t* const out[2]);
  // The next two are null at levels where PairSums is faster.
  // wide[2 x] = pixels[x] - 128, wide[2 x + 1] = 256 * (pixels[x] - 128)
  void (*WidenPixels)(const uint8_t* pixels, int count, int16_t* wide);
  // One row of quotients, clamped to 0 ... 255, of 3 x 3 weights and three rows of wide pixels.
  void (*WideSums)(const WideWeights& weights, const int16_t* const rows[3], int count,
                   uint8_t* out);
};

}  // namespace quillon
