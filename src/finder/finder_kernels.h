// Row kernels of the finder.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "simd/levels.h"

namespace quillon {

// A gradient's direction in 8 bits a part: (127, 0) is a clear edge from dark on the left to bright
// on the right; shorter where the picture is nearly even.
struct Direction8 {
  int8_t x, y;
};

struct Gradient16 {
  int16_t x, y;  // 3 x 3 Sobel sums
};

// A part of a turned template: weights for pairs of neighbouring pixels, and runs of pixels that it
// covers, [begin, end). Offsets count from the position's pixel, over rows.
struct WeightPair {
  int32_t offset;
  int16_t weight[2];
};
struct FootprintRun {
  int32_t begin, end;
};
struct TemplatePart {
  const WeightPair* weights;
  const FootprintRun* runs;
  int weightCount, runCount;
  // What is added for sums of products c, of pixels s and of their squares q:
  // factor c / sqrt(max(q - share s^2, leastVariance)), from 0 to `most`.
  float factor, most, share, leastVariance;
};

// Points of a template, column by column: where they are from its centre, their grey values, and
// how the template slopes there. Columns hold whole blocks of points.
constexpr int kPointBlock = 16, kPointColumns = 5;
struct FitColumns {
  const float *u, *v, *value, *slopeU, *slopeV;
};

// Where points come to lie: (u, v) at (x + a u - b v, y + b u + a v), from a pixel of the picture.
struct PointPlacement {
  float x, y, a, b;
};

// One taught edge point, in pixels of its level from the template's centre.
struct ModelPoint {
  float u = 0, v = 0;
  float p = 0, q = 0;  // the unit gradient, dark to bright
};

// The pixels of a level, one row after the other without gaps.
struct DirectionPlane {
  const Direction8* pixels;
  int width, height;
};

// Sums over points of the picture's sample s times: the template's value, 1, slopeU, slopeV, its
// turn u slopeV - v slopeU and its growth u slopeU + v slopeV; and of s times s.
constexpr int kPointSums = 7;

struct FinderKernels {
  const char* level;

  // out[x] = (a + b + c + d + 2) / 4 of the 2 x 2 pixels at column 2 x.
  void (*HalveRow)(const uint8_t* upper, const uint8_t* lower, uint8_t* out, int count);

  // out[x] = the largest of the 2 x 2 bytes at column 2 x.
  void (*PoolRow)(const uint8_t* upper, const uint8_t* lower, uint8_t* out, int count);

  // Sobel sums at columns 1 ... width - 2; zero at both ends.
  void (*GradientRow)(const uint8_t* above, const uint8_t* row, const uint8_t* below,
                      Gradient16* out, int width);

  // 127 g / max(|g|, contrast), rounded.
  void (*DirectionRow)(const Gradient16* gradient, float contrast, Direction8* out, int count);

  // How far each direction n agrees with (c, s), which is 127 long: 8 + 8 cos a of a full one,
  // rounded; or 8 + 8 cos 2a, which is the same for opposite directions. 0 ... 16.
  void (*AgreementRow)(const Direction8* directions, int c, int s, bool anyPolarity, uint8_t* out,
                       int count);

  // out[x] = sum over i < rowCount of rows[i][x], each at most 16. Reads and writes up to
  // kSumBlock - 1 columns beyond count.
  void (*SumRow)(const uint8_t* const* rows, int rowCount, int count, uint16_t* out);

  // The first column from `from` on whose value is at least `least`, and at least those of the
  // eight around it, of which the rows are `stride` apart; count if there is none. Of equal
  // neighbours the first is the top. Reads columns from -1 to count.
  int (*NextTop)(const uint16_t* row, ptrdiff_t stride, int from, int count, uint16_t least);

  // out[x] = (row[x], row[x + 1]); the last pair's second is the last pixel again.
  void (*PairRow)(const uint8_t* row, uint32_t* out, int count);

  // out[x] += what TemplatePart says, rounded down, at each position. `pairs` is made by PairRow;
  // the prefix sums are those of pixels and of their squares. Goes up to kSumBlock - 1 columns
  // beyond count.
  void (*CorrelatePart)(const TemplatePart& part, const uint32_t* pairs, const int32_t* prefix,
                        const int32_t* squarePrefix, int count, uint16_t* out);

  // What the picture shows at each of `count` points, less `middle`: between pixels linearly, or by
  // the cubics through four of them (Lagrange). Those move a fine pattern by less than cubic
  // convolution does, whose slopes are continuous, and which pulls a match by 0.02 pixels. The
  // points lie where all pixels are that this takes: 2 x 2 around each, or 4 x 4. Whole blocks of
  // points.
  void (*SamplePoints)(const uint8_t* pixel, ptrdiff_t stride, const PointPlacement& place,
                       const float* u, const float* v, int count, bool cubic, float middle,
                       float* samples);

  // How well edge points agree with the picture at nine places a pixel apart, the fifth of which is
  // `place`, row by row: sums of 127^2 cos a over the points, each at the nearest pixel, for the
  // angle a between its direction and the picture's; with anyPolarity of 127^2 cos 2a, which is the
  // same for opposite directions, and comes to nothing where they agree by chance. Shorter
  // directions count less. `unit` is 127 over the placement's scale; places outside of the picture
  // count as nothing.
  void (*SumNinePlaces)(const ModelPoint* points, int count, const PointPlacement& place,
                        float unit, const DirectionPlane& directions, bool anyPolarity,
                        int32_t* nine);

  // The sums that kPointSums names. Whole blocks of points.
  void (*CorrelatePoints)(const FitColumns& points, const float* samples, int count, float* sums);
};

constexpr int kSumBlock = 128;

// Compiling finder_kernels.cpp once per level defines one constant per level. They are no family of
// simd/families.h: the library that hosts load does not hold them.
#define QUILLON_DECLARE_LEVEL(level) \
  namespace level {                  \
  extern const FinderKernels search; \
  }
QUILLON_FOR_EACH_LEVEL(QUILLON_DECLARE_LEVEL)
#undef QUILLON_DECLARE_LEVEL

}  // namespace quillon
