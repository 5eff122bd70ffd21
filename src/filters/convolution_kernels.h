// Row kernels of the convolution: sums of weighed columns, two neighbouring columns a term.
#pragma once

#include <stdint.h>

#include "simd/table.h"

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

// max(sum, 0) * 2 * factor >> 16 >> shift
struct ByteQuotient {
  uint16_t factor;
  int shift;
};

// Two columns of 16 bits; the first one's weight in the lower half.
struct WordTerm {
  const int16_t* from;
  uint32_t weights;
};

struct WordTerms {
  const WordTerm* terms;
  int count;
};

// low + 65536 * high, divided by the divisor. Where the high terms are none and the divisor is at
// most kLargestFloatDivisor, `shortReciprocal` is used, a little more than its reciprocal.
struct WordQuotient {
  int64_t divisor;
  float shortReciprocal;
  double reciprocal;
};
constexpr int kLargestFloatDivisor = 8192;

// One column of bytes.
struct ColumnTerm {
  const uint8_t* from;
  int16_t weight;
};

struct ConvolutionKernels {
  // out[x] = the quotient of the terms' sum, clamped to 0 ... 255. All partial sums fit 16 bits.
  void (*ByteSums)(const ByteTerm* terms, int termCount, const ByteQuotient& quotient, int count,
                   uint8_t* out);
  // The same; the sums of low and of high terms each fit 32 bits. Columns can be read up to
  // kLeastColumns beyond the last.
  void (*WordSums)(const WordTerms& low, const WordTerms& high, const WordQuotient& quotient,
                   int count, uint8_t* out);
  // sums[x] = the terms' sum, which fits 16 bits.
  void (*ColumnSums)(const ColumnTerm* terms, int termCount, int count, int16_t* sums);
};

QUILLON_KERNELS(ConvolutionKernels, convolution)

}  // namespace quillon
