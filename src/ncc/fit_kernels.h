// Kernels of fitting a pose: the template sampled along image rows, and sums of products.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "simd/families.h"

namespace quillon {

// The image is explained as offset + gain T + what small changes of the pose add to T:
//   b = (1, T, dT/du, dT/dv, dT/d(turn), dT/d(scale)), u and v along the template's axes.
enum FitTerm { kOffset, kGain, kU, kV, kTurn, kScale, kImage, kFitTerms = kImage };

// Lane x % kFitLanes of a sum takes column x: so sums do not depend on the vectors' width. Arrays
// along a row have room for whole kFitLanes.
constexpr int kFitLanes = 16;

// Sums of products of two terms, first <= second; the image is the last term.
struct FitSums {
  float sums[kFitTerms + 1][kFitTerms + 1][kFitLanes];
};

// The template at the pixels of a stretch of an image row, and its slopes.
struct FitSamples {
  float* weight;  // 0 where a pixel does not take part, else 1
  float *value, *du, *dv;
  uint32_t* cells;  // scratch
};

// Where the pixels of a stretch lie in the template: its point (u + x stepU, v + x stepV).
struct FitLine {
  double u, v, stepU, stepV;
};

// A plane of pixels as cells of four neighbouring pixels, the lower address in the lower byte:
// (x, y), (x + 1, y), (x, y + 1), (x + 1, y + 1).
struct FitCells {
  const uint32_t* pixels;
  const float* weights;  // null when all cells take part
  int width, height;     // of cells
};

// Points of a template around its centre, with room for whole kFitLanes, and `factorCount` numbers
// for each, array after array `stride` apart.
constexpr int kMostFitFactors = 5;
struct FitPoints {
  const float *u, *v, *factors;
  ptrdiff_t stride;
  int factorCount;  // 3 to kMostFitFactors
  int count;
};

// Where points lie on an image: (u, v) at (x + u stepX - v stepY, y + u stepY + v stepX), whole
// numbers being pixels; outside the image, on its outermost pixels.
struct FitPlacing {
  float x, y, stepX, stepY;
};

// Where the pixels of a turned row lie: (u + x stepU, v + x stepV), in 65536ths of a pixel, pixel
// (0, 0) covering the first of them.
struct TurnedRow {
  int u, v, stepU, stepV;
};
constexpr int kTurnedFraction = 16;  // bits

struct FitKernels {
  // value[x] = sum of in[x + i] weight[i], i = 0 ... 3; slope[x] likewise.
  void (*FilterRow)(const float* in, const float* weight, const float* slope, int count,
                    float* value, float* slopes);
  // The same down four filtered rows, for the value and both slopes.
  void (*FilterColumns)(const float* const values[4], const float* const slopes[4],
                        const float* weight, const float* slope, int count,
                        const FitSamples& samples);
  // Adds the products of the first 4 terms and the image. Reads whole kFitLanes of pixels, as does
  // the next one.
  void (*AddMoved)(const FitSamples& samples, const uint8_t* pixels, int count, FitSums& sums);
  // The same with bilinear samples along a line, and for the turn and, where `scales`, the scale.
  void (*AddLine)(const FitCells& cells, const FitLine& line, const uint8_t* pixels, int count,
                  bool scales, const FitSamples& scratch, FitSums& sums);
  // Bilinear samples, weighed in 256ths and rounded; beyond the middle of the outermost pixels,
  // those. Writes whole 16 bytes.
  void (*TurnRow)(const FitCells& cells, const TurnedRow& row, int count, uint8_t* out);
  // The cells of a row: `lower` is the next one.
  void (*PackCells)(const uint8_t* upper, const uint8_t* lower, int count, uint32_t* cells);
  // Over at most 1024 points, of the image's bilinear samples I less 128: the sums of I, of I * I
  // and of I times each factor.
  void (*CorrelatePoints)(const FitCells& image, const FitPoints& points, const FitPlacing& placing,
                          float sums[2 + kMostFitFactors]);
  // The sum of products of two arrays of `count` numbers, rounded up to whole kFitLanes, in any
  // order: for sums that are exact.
  double (*ExactProduct)(const float* a, const float* b, int count);
};

}  // namespace quillon
