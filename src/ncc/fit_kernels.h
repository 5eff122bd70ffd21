// Kernels of fitting a pose: the template sampled along image rows, and sums of products.
#pragma once

#include <stdint.h>

#include "simd/table.h"

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

// A plane of a template as cells of four neighbouring pixels, the lower address in the lower byte:
// (x, y), (x + 1, y), (x, y + 1), (x + 1, y + 1).
struct FitCells {
  const uint32_t* pixels;
  const float* weights;  // null when all cells take part
  int width, height;     // of cells
};

struct FitKernels {
  // Bilinear samples.
  void (*SampleLine)(const FitCells& cells, const FitLine& line, int count,
                     const FitSamples& samples);
  // value[x] = sum of in[x + i] weight[i], i = 0 ... 3; slope[x] likewise.
  void (*FilterRow)(const float* in, const float* weight, const float* slope, int count,
                    float* value, float* slopes);
  // The same down four filtered rows, for the value and both slopes.
  void (*FilterColumns)(const float* const values[4], const float* const slopes[4],
                        const float* weight, const float* slope, int count,
                        const FitSamples& samples);
  // Adds the products of the first `terms` (4, 5 or 6) and the image. `fromU` and `fromV` are the
  // distances of the first pixel from the template's centre. Reads whole kFitLanes of pixels.
  void (*AddProducts)(const FitSamples& samples, const uint8_t* pixels, int count, int terms,
                      const FitLine& fromCentre, FitSums& sums);
};

QUILLON_KERNELS(FitKernels, fit)

}  // namespace quillon
