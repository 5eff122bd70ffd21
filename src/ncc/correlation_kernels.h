// Kernels of the correlation: sums of products of pixels.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "simd/families.h"

namespace quillon {

// Rows that are correlated with a pattern are packed into the elements that the level multiplies
// best, with room behind the last row for vectors that reach past it.
constexpr int kPackedMargin =
    192;  // elements behind the image rows; pattern rows end in whole 64 bytes

// One row of a pattern and where it lies on the image for position 0.
struct PackedRow {
  const uint8_t* image;
  const uint8_t* pattern;
  int count;  // columns
};

// Joint sums add up a pixel less 128 and its square in one number, (pixel - 128) * 2^19 + (pixel -
// 128)^2, which halves the loads: both can be told from the sum of no more than kMostJoint pixels.
constexpr int kJointShift = 19;
constexpr int kMostJoint = 31;  // 31 * 128^2 is below 2^19

// One run of columns and its place in the image's running sums for position 0.
struct RunSum {
  const uint32_t *values, *squares;
  int length;
};
struct JointRun {
  const uint32_t* sums;
  int length;
};

// What decides whether a position is worth an exact score.
struct ScoreBound {
  double inverseCount;  // 1 / n
  double mean;          // of the pattern
  double squared;       // the square of the score to beat, times the pattern's deviation
};

// The same for a pattern of at most kMostFew values, n, where 32 bits hold
//   n^2 times the covariance  = n sum(I (T - patternBias)) + cross sum(I) and
//   n^2 times the deviation   = n sum(I^2) - sum(I)^2
// whatever overflows on the way: neither exceeds n^2 (255 / 2)^2.
struct FewBound {
  int count;      // n
  int cross;      // n patternBias - sum(T)
  float squared;  // the square of the score to beat, times n and the pattern's deviation
};
constexpr int kMostFew = 363;

struct CorrelationKernels {
  // The sums of a[i], of a[i] * a[i] and of a[i] * b[i] over `count` bytes of each of `rows` rows,
  // which are a pitch apart.
  void (*SumProducts)(const uint8_t* a, ptrdiff_t aPitch, const uint8_t* b, ptrdiff_t bPitch,
                      int count, int rows, uint64_t (&sums)[3]);

  int elementBytes;  // of packed rows
  int patternBias;   // packed patterns hold pixel - patternBias where they take part
  void (*PackImage)(const uint8_t* pixels, int count, uint8_t* packed);
  // Starts the running sums of a row with its first plane, or adds one more: `planes` counts it.
  // Entry x is the sum of the columns before x, modulo 2^32: of values and of squares, or, where
  // `squares` is null, joint sums instead of values. Reads and writes whole vectors.
  void (*AddRunningSums)(const uint8_t* pixels, int count, int planes, uint32_t* values,
                         uint32_t* squares);
  // Zero where `care` is 0, and up to the next whole 64 bytes.
  void (*PackPattern)(const uint8_t* pixels, const uint8_t* care, int count, uint8_t* packed);

  // out[x] = the sum over all rows of image[x + i] * pattern[i], modulo 2^32. Image rows are
  // entered `offset` bytes further on. Writes whole blocks of 64.
  void (*CorrelateRow)(const PackedRow* rows, int rowCount, ptrdiff_t offset, int count,
                       uint32_t* out);
  // The same for at most 7 positions, which share the loads of the pattern. Writes 8.
  void (*CorrelateWindow)(const PackedRow* rows, int rowCount, ptrdiff_t offset, int count,
                          uint32_t* out);
  // Sums over runs, from running sums entered `offset` further on, modulo 2^32. Writes whole
  // blocks of 16.
  void (*SumRuns)(const RunSum* runs, int runCount, ptrdiff_t offset, int count, uint32_t* values,
                  uint32_t* squares);
  // The same from joint sums, over `valueCount` values altogether.
  void (*SumShortRuns)(const JointRun* runs, int runCount, int valueCount, ptrdiff_t offset,
                       int count, uint32_t* values, uint32_t* squares);
  // The positions whose correlation may exceed a score that is not negative, in order; returns
  // their number. None that does is left out. Sums of a band are below 2^31, and its products are
  // those with the packed pattern; those of several bands are with the pattern.
  int (*PromisingOfBand)(const uint32_t* values, const uint32_t* squares, const uint32_t* products,
                         int count, const ScoreBound& bound, int* positions);
  // The same for patterns of few values.
  int (*PromisingOfFew)(const uint32_t* values, const uint32_t* squares, const uint32_t* products,
                        int count, const FewBound& bound, int* positions);
  int (*Promising)(const double* values, const double* squares, const double* products, int count,
                   const ScoreBound& bound, int* positions);
};

}  // namespace quillon
