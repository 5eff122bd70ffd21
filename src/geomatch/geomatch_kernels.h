// Kernels of edge-based matching.
#pragma once

#include <stdint.h>

#include "simd/families.h"

namespace quillon {

// Two signed 16-bit components in one word, x in the low half: a gradient, or a unit vector in
// fixed point.
using PackedVector = int32_t;
[[gnu::always_inline]] inline PackedVector PackVector(int x, int y) {
  return static_cast<int32_t>((static_cast<uint32_t>(x) & 0xFFFFu) | static_cast<uint32_t>(y)
                                                                         << 16);
}
[[gnu::always_inline]] inline int VectorX(PackedVector v) { return static_cast<int16_t>(v); }
[[gnu::always_inline]] inline int VectorY(PackedVector v) { return v >> 16; }

// In a plane of gradients: not a gradient, but a place outside the image. No gradient is as long,
// and memset can write it.
constexpr int kOutsideByte = 0x80;
constexpr PackedVector kOutside = static_cast<PackedVector>(kOutsideByte * 0x01010101u);

// What suppression and the two thresholds make of a pixel.
constexpr int32_t kNoEdge = 0, kWeakEdge = 1, kStrongEdge = 2;

// The squared magnitudes from which on an edge is weak, and strong.
struct EdgeLimits {
  int32_t weak, strong;
};

// A model as a scan reads it: turned, and laid out for one plane of gradients.
struct TurnedModel {
  int count;
  int reachX, reachY;             // no point is farther from the reference
  const int32_t* offsets;         // of the points within the plane
  const PackedVector* gradients;  // truncated to integers
  const double* inverses;         // 1 / magnitude before turning
  const PackedVector* units;      // gradient * inverse * unitScale
};

// Room for the arrays of a TurnedModel, and what fills them.
struct ModelTurn {
  int count;
  const int32_t *x, *y, *gradientX, *gradientY;
  const double* inverses;
  double cosine, sine;
  int stride;
  double unitScale;
  int32_t* offsets;
  PackedVector *gradients, *units;
};

constexpr int kFloorPoints = 4;    // a scan tests its floors after every so many points
constexpr int kSearchUnit = 4096;  // the length of a unit vector in a search plane
constexpr int kMaxScanLanes = 32;  // positions that a kernel looks at together, at most

struct GeomatchKernels {
  // Sobel gradients of `count` pixels; the rows start one pixel to the left of the first.
  void (*SobelRow)(const uint8_t* above, const uint8_t* row, const uint8_t* below,
                   PackedVector* gradients, int count);
  // Squared magnitudes.
  void (*SquareRow)(const PackedVector* gradients, int32_t* squares, int count);
  // Keeps a pixel whose magnitude is not below its two neighbours' across the edge, and classifies
  // it; one that is dropped counts as magnitude 0. All pointers are at the first pixel; the rows of
  // squares reach one pixel further on both sides.
  void (*ClassifyRow)(const PackedVector* gradients, const int32_t* above, const int32_t* squares,
                      const int32_t* below, EdgeLimits limits, int32_t* classes, int count);
  // 1 for an edge point: a gradient, and a strong pixel, or a weak one with a strong one among its
  // eight neighbours; else 0. Rows of classes as those of squares above.
  void (*MarkRow)(const PackedVector* gradients, const int32_t* above, const int32_t* classes,
                  const int32_t* below, int32_t* marks, int count);
  // Gradients scaled to the length kSearchUnit, each component off by less than 0.501.
  void (*UnitRow)(const PackedVector* gradients, PackedVector* units, int count);
  // 1 / sqrt(gx^2 + gy^2), or 0.
  void (*InverseRow)(const PackedVector* gradients, double* inverses, int count);
  void (*TurnModel)(const ModelTurn& turn);

  // Scanning, on the positions that start at `units`, `scanLanes` at a time; bit i stands for the
  // i-th. What is looked at beyond `lanes` positions must be there, and its bits mean nothing.
  int scanLanes;
  // Sums of products of unit vectors over the first `points` points. A position passes when its sum
  // is above floors[i] after every (i + 1) * kFloorPoints points, and above `last` in the end. With
  // `gradients`, the plane beside that of the units, a floor says nothing about a position where
  // the last of those points lies outside the image; null where none does.
  uint32_t (*PassingLanes)(const PackedVector* units, const PackedVector* gradients,
                           const TurnedModel& model, int points, const int32_t* floors,
                           int32_t last, int lanes);
  // Positions with any gradient under the first `points` points.
  uint32_t (*TouchedLanes)(const PackedVector* units, const TurnedModel& model, int points);

  // The sums of gradient product * model inverse * search inverse at three rows of four positions.
  void (*SumNeighbourhood)(const PackedVector* gradients, const double* inverses, int stride,
                           const TurnedModel& model, double (*sums)[4]);
};

}  // namespace quillon
