// Kernels of edge-based matching. Compiled once per level. Those of teaching are plain loops, which
// the compilers vectorise well.
#include "geomatch/geomatch_kernels.h"

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

void SobelRow(const uint8_t* above, const uint8_t* row, const uint8_t* below,
              PackedVector* __restrict gradients, int count) {
  for (int x = 0; x < count; ++x) {
    const uint8_t *a = above + x, *m = row + x, *b = below + x;
    gradients[x] = PackVector((a[2] + 2 * m[2] + b[2]) - (a[0] + 2 * m[0] + b[0]),
                              (b[0] + 2 * b[1] + b[2]) - (a[0] + 2 * a[1] + a[2]));
  }
}

void SquareRow(const PackedVector* gradients, int32_t* __restrict squares, int count) {
  for (int x = 0; x < count; ++x) {
    const int gx = VectorX(gradients[x]), gy = VectorY(gradients[x]);
    squares[x] = gx * gx + gy * gy;
  }
}

// An edge is suppressed along the row, except where gx and gy have the same sign: there, with the
// angle a of the gradient, 22.5 < a < 67.5 compares with the diagonal and a > 67.5 with the column.
// Taught models rely on gradients of opposite signs never being told apart. With
// tan 22.5 = sqrt 2 - 1 and tan 67.5 = sqrt 2 + 1 the limits are exact in integers:
//   |gy| > tan 22.5 |gx|   <=>   (|gy| + |gx|)^2 > 2 gx^2
//   |gy| > tan 67.5 |gx|   <=>   |gy| > |gx| and (|gy| - |gx|)^2 > 2 gx^2
void ClassifyRow(const PackedVector* gradients, const int32_t* above, const int32_t* squares,
                 const int32_t* below, EdgeLimits limits, int32_t* __restrict classes, int count) {
  for (int x = 0; x < count; ++x) {
    const int gx = VectorX(gradients[x]), gy = VectorY(gradients[x]);
    const int ax = gx < 0 ? -gx : gx, ay = gy < 0 ? -gy : gy;
    const int sum = ay + ax, difference = ay > ax ? ay - ax : 0, twice = 2 * ax * ax;
    const int rises = (gx ^ gy) >= 0 ? ax : 0;  // of one sign, and not vertical
    const bool diagonal = (rises > 0) & (sum * sum > twice);
    const bool steep = (rises > 0) & (difference * difference > twice);
    const int ahead = steep ? above[x] : (diagonal ? above[x + 1] : squares[x + 1]);
    const int behind = steep ? below[x] : (diagonal ? below[x - 1] : squares[x - 1]);
    const int centre = squares[x];
    const int kept = (centre < ahead) | (centre < behind) ? 0 : centre;
    const int weak = kept < limits.weak ? kNoEdge : kWeakEdge;
    classes[x] = kept < limits.strong ? weak : kStrongEdge;
  }
}

}  // namespace

const GeomatchKernels geomatch = {
    .SobelRow = SobelRow, .SquareRow = SquareRow, .ClassifyRow = ClassifyRow};

}  // namespace quillon::QUILLON_LEVEL
