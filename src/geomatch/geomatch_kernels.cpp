// Kernels of edge-based matching. Compiled once per level. Those of teaching are plain loops, which
// the compilers vectorise well.
#include "geomatch/geomatch_kernels.h"

#include <stddef.h>

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
    const int kept = ((centre < ahead) | (centre < behind)) ? 0 : centre;
    const int weak = kept < limits.weak ? kNoEdge : kWeakEdge;
    classes[x] = kept < limits.strong ? weak : kStrongEdge;
  }
}

// A weak pixel counts if it touches a strong one, and does not become strong by that. So chains of
// weak pixels are not followed, and the order in which pixels are visited does not matter.
void MarkRow(const PackedVector* gradients, const int32_t* above, const int32_t* classes,
             const int32_t* below, int32_t* __restrict marks, int count) {
  const auto strongest = [](const int32_t* p) { return Max(Max(p[-1], p[0]), p[1]); };
  for (int x = 0; x < count; ++x) {
    const int around = Max(Max(strongest(above + x), strongest(classes + x)), strongest(below + x));
    marks[x] = (around == kStrongEdge) & (classes[x] != kNoEdge) & (gradients[x] != 0);
  }
}

constexpr int kWords = kVectorBytes / 4;  // 32-bit lanes of a register

// Adding this leaves the nearest integer in the low bits of the sum.
constexpr float kRounder = 12582912.0f;  // 1.5 * 2^23

template <int N>
QUILLON_INLINE I32<N> Units(I32<N> gradients) {
  const auto gx = Convert<float, N>((gradients << 16) >> 16);
  const auto gy = Convert<float, N>(gradients >> 16);
  const auto square = gx * gx + gy * gy;
  const auto scale = kSearchUnit / Sqrt(square > 1 ? square : Splat<float, N>(1));
  const auto x = BitCast<I32<N>>(gx * scale + kRounder);
  const auto y = BitCast<I32<N>>(gy * scale + kRounder);
  return (x & 0xFFFF) | y << 16;
}

void UnitRow(const PackedVector* gradients, PackedVector* units, int count) {
  const int tail = ForEachBlock<kWords, 4>(count, [&](auto width, int x) {
    Store(units + x, Units<width>(Load<int32_t, width>(gradients + x)));
  });
  for (int x = tail; x < count; ++x) units[x] = Units<4>(Splat<int32_t, 4>(gradients[x]))[0];
}

void InverseRow(const PackedVector* gradients, double* inverses, int count) {
  constexpr int kLanes = kVectorBytes / 8;
  const auto inverse = [](auto squares) {
    return squares > 0 ? 1 / Sqrt(squares > 0 ? squares : squares + 1) : squares;
  };
  int x = 0;
  for (; x <= count - kLanes; x += kLanes) {
    F64<kLanes> squares;
    for (int i = 0; i < kLanes; ++i) {
      const int gx = VectorX(gradients[x + i]), gy = VectorY(gradients[x + i]);
      squares[i] = gx * gx + gy * gy;
    }
    Store(inverses + x, inverse(squares));
  }
  for (; x < count; ++x) {
    const int gx = VectorX(gradients[x]), gy = VectorY(gradients[x]);
    inverses[x] = inverse(Splat<double, 2>(gx * gx + gy * gy))[0];
  }
}

void TurnModel(const ModelTurn& turn) {
  const auto [count, xs, ys, gxs, gys, inverses, cosine, sine, stride, scale, offsets, gradients,
              units] = turn;
  for (int i = 0; i < count; ++i) {
    const int x = static_cast<int>(xs[i] * cosine - ys[i] * sine);
    const int y = static_cast<int>(ys[i] * cosine + xs[i] * sine);
    offsets[i] = y * stride + x;
  }
  for (int i = 0; i < count; ++i) {
    const int gx = static_cast<int>(gxs[i] * cosine - gys[i] * sine);
    const int gy = static_cast<int>(gxs[i] * sine + gys[i] * cosine);
    gradients[i] = PackVector(gx, gy);
    const double length = inverses[i] * scale;
    const double x = gx * length, y = gy * length;
    units[i] = PackVector(static_cast<int>(x + (x < 0 ? -0.5 : 0.5)),
                          static_cast<int>(y + (y < 0 ? -0.5 : 0.5)));
  }
}

// One bit per lane.
template <int kRegisters>
QUILLON_INLINE uint32_t LaneBits(const I32<kWords> (&lanes)[kRegisters]) {
  uint32_t bits = 0;
  for (int r = 0; r < kRegisters; ++r) bits |= MoveWordMask(lanes[r]) << (r * kWords);
  return bits;
}

template <int kRegisters, bool kPartlyOutside>
QUILLON_INLINE uint32_t PassingLanes(const PackedVector* units, const PackedVector* gradients,
                                     const TurnedModel& model, int points, const int32_t* floors,
                                     int32_t last) {
  I32<kWords> sum[kRegisters] = {}, alive[kRegisters];
  for (auto& lanes : alive) lanes = Splat<int32_t, kWords>(-1);
  const auto add = [&](int i) {
    const PackedVector* at = units + model.offsets[i];
    const auto unit = BitCast<I16<2 * kWords>>(Splat<int32_t, kWords>(model.units[i]));
    for (int r = 0; r < kRegisters; ++r) {
      sum[r] += DotPairs(BitCast<I16<2 * kWords>>(Load<int32_t, kWords>(at + r * kWords)), unit);
    }
  };
  int i = 0;
  for (; i <= points - kFloorPoints; i += kFloorPoints) {
    for (int k = 0; k < kFloorPoints; ++k) add(i + k);
    const auto floor = Splat<int32_t, kWords>(*floors++);
    I32<kWords> any = {};
    for (int r = 0; r < kRegisters; ++r) {
      auto passes = sum[r] > floor;
      if constexpr (kPartlyOutside) {
        const PackedVector* at = gradients + model.offsets[i + kFloorPoints - 1] + r * kWords;
        passes |= Load<int32_t, kWords>(at) == kOutside;
      }
      alive[r] &= passes;
      any |= alive[r];
    }
    if (MoveMask(any) == 0) return 0;
  }
  for (; i < points; ++i) add(i);
  for (int r = 0; r < kRegisters; ++r) alive[r] &= sum[r] > last;
  return LaneBits(alive);
}

uint32_t PassingLanes(const PackedVector* units, const PackedVector* gradients,
                      const TurnedModel& model, int points, const int32_t* floors, int32_t last,
                      int lanes) {
  if (gradients) {
    return lanes <= kWords ? PassingLanes<1, true>(units, gradients, model, points, floors, last)
                           : PassingLanes<2, true>(units, gradients, model, points, floors, last);
  }
  return lanes <= kWords ? PassingLanes<1, false>(units, nullptr, model, points, floors, last)
                         : PassingLanes<2, false>(units, nullptr, model, points, floors, last);
}

uint32_t TouchedLanes(const PackedVector* units, const TurnedModel& model, int points) {
  I32<kWords> any[2] = {};
  for (int i = 0; i < points; ++i) {
    for (int r = 0; r < 2; ++r) {
      any[r] |= Load<int32_t, kWords>(units + model.offsets[i] + r * kWords);
    }
  }
  for (auto& lanes : any) lanes = lanes != 0;
  return LaneBits(any);
}

// Plain loops again. Each of the four sums adds the points in their order, as the definition does.
void SumNeighbourhood(const PackedVector* gradients, const double* inverses, int stride,
                      const TurnedModel& model, double (*sums)[4]) {
  double sum[3][4] = {};
  for (int i = 0; i < model.count; ++i) {
    const int gx = VectorX(model.gradients[i]), gy = VectorY(model.gradients[i]);
    const double inverse = model.inverses[i];
    for (int row = 0; row < 3; ++row) {
      const ptrdiff_t at = model.offsets[i] + static_cast<ptrdiff_t>(row) * stride;
      for (int lane = 0; lane < 4; ++lane) {
        const PackedVector g = gradients[at + lane];
        sum[row][lane] += (gx * VectorX(g) + gy * VectorY(g)) * inverse * inverses[at + lane];
      }
    }
  }
  for (int row = 0; row < 3; ++row) {
    for (int lane = 0; lane < 4; ++lane) sums[row][lane] = sum[row][lane];
  }
}

}  // namespace

const GeomatchKernels geomatch = {.SobelRow = SobelRow,
                                  .SquareRow = SquareRow,
                                  .ClassifyRow = ClassifyRow,
                                  .MarkRow = MarkRow,
                                  .UnitRow = UnitRow,
                                  .InverseRow = InverseRow,
                                  .TurnModel = TurnModel,
                                  .scanLanes = 2 * kWords,
                                  .PassingLanes = PassingLanes,
                                  .TouchedLanes = TouchedLanes,
                                  .SumNeighbourhood = SumNeighbourhood};

}  // namespace quillon::QUILLON_LEVEL
