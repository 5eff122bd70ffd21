// Kernels of edge-based matching.
#pragma once

#include <stdint.h>

#include "simd/table.h"

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

// What suppression and the two thresholds make of a pixel.
constexpr int32_t kNoEdge = 0, kWeakEdge = 1, kStrongEdge = 2;

// The squared magnitudes from which on an edge is weak, and strong.
struct EdgeLimits {
  int32_t weak, strong;
};

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
};

QUILLON_KERNELS(GeomatchKernels, geomatch)

}  // namespace quillon
