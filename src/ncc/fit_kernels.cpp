// Kernels of fitting a pose. Compiled once per level.
#include "ncc/fit_kernels.h"

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

constexpr int kLanes = kVectorBytes / 4;
using F = F32<kLanes>;
using I = I32<kLanes>;

// `first`, `first` + 1, ... in the lanes.
QUILLON_INLINE F Ramp(int first) {
  F ramp = {};
  for (int i = 0; i < kLanes; ++i) ramp[i] = static_cast<float>(first + i);
  return ramp;
}

QUILLON_INLINE F Floats(I v) { return Convert<float, kLanes>(v); }

QUILLON_INLINE int WholeLanes(int count) { return (count + kFitLanes - 1) / kFitLanes * kFitLanes; }

// One axis of a stretch of kFitLanes pixels from `start` on: cells, and places within them.
struct Axis {
  explicit Axis(double start, double step, int end) : step_(static_cast<float>(step)), end_(end) {
    whole_ = static_cast<int>(start);
    fraction_ = static_cast<float>(start - whole_);
  }
  QUILLON_INLINE void At(F ramp, I& cell, F& within) const {
    const F at = fraction_ + ramp * step_;
    I low = Convert<int32_t, kLanes>(at);
    low += Floats(low) > at;  // conversion rounds towards 0, and a comparison that holds is -1
    low += whole_;
    cell = Max(Min(low, I{} + end_), I{});
    within = at - Floats(cell - whole_);
  }

 private:
  int whole_;
  float fraction_, step_;
  int end_;
};

void SampleLine(const FitCells& cells, const FitLine& line, int count, const FitSamples& samples) {
  for (int x = 0; x < count; x += kFitLanes) {
    const Axis u(line.u + x * line.stepU, line.stepU, cells.width - 1);
    const Axis v(line.v + x * line.stepV, line.stepV, cells.height - 1);
    for (int i = 0; i < kFitLanes; i += kLanes) {
      I column, row;
      F fu, fv;
      u.At(Ramp(i), column, fu);
      v.At(Ramp(i), row, fv);
      Store(samples.cells + x + i, BitCast<U32<kLanes>>(row * cells.width + column));
      Store(samples.du + x + i, fu);
      Store(samples.dv + x + i, fv);
    }
  }
  const int whole = WholeLanes(count);
  for (int x = 0; x < count; ++x) {
    samples.weight[x] = cells.weights ? cells.weights[samples.cells[x]] : 1.0f;
  }
  for (int x = count; x < whole; ++x) samples.weight[x] = 0;
  for (int x = 0; x < whole; ++x) samples.cells[x] = cells.pixels[samples.cells[x]];
  for (int x = 0; x < whole; x += kLanes) {
    const auto cell = Load<uint32_t, kLanes>(samples.cells + x);
    const auto byte = [&](int i) { return Floats(BitCast<I>((cell >> (8 * i)) & 255)); };
    const F upperLeft = byte(0), upperRight = byte(1), lowerLeft = byte(2), lowerRight = byte(3);
    const F fu = Load<float, kLanes>(samples.du + x), fv = Load<float, kLanes>(samples.dv + x);
    const F above = upperRight - upperLeft, below = lowerRight - lowerLeft;
    const F upper = upperLeft + above * fu, lower = lowerLeft + below * fu;
    Store(samples.value + x, upper + (lower - upper) * fv);
    Store(samples.du + x, above + (below - above) * fv);
    Store(samples.dv + x, lower - upper);
  }
}

QUILLON_INLINE F Weigh(F a, F b, F c, F d, const float* weight) {
  return a * weight[0] + b * weight[1] + (c * weight[2] + d * weight[3]);
}

void FilterRow(const float* in, const float* weight, const float* slope, int count, float* value,
               float* slopes) {
  for (int x = 0; x < WholeLanes(count); x += kLanes) {
    const F a = Load<float, kLanes>(in + x), b = Load<float, kLanes>(in + x + 1);
    const F c = Load<float, kLanes>(in + x + 2), d = Load<float, kLanes>(in + x + 3);
    Store(value + x, Weigh(a, b, c, d, weight));
    Store(slopes + x, Weigh(a, b, c, d, slope));
  }
}

void FilterColumns(const float* const values[4], const float* const slopes[4], const float* weight,
                   const float* slope, int count, const FitSamples& samples) {
  for (int x = 0; x < WholeLanes(count); x += kLanes) {
    const F a = Load<float, kLanes>(values[0] + x), b = Load<float, kLanes>(values[1] + x);
    const F c = Load<float, kLanes>(values[2] + x), d = Load<float, kLanes>(values[3] + x);
    Store(samples.value + x, Weigh(a, b, c, d, weight));
    Store(samples.dv + x, Weigh(a, b, c, d, slope));
    Store(samples.du + x,
          Weigh(Load<float, kLanes>(slopes[0] + x), Load<float, kLanes>(slopes[1] + x),
                Load<float, kLanes>(slopes[2] + x), Load<float, kLanes>(slopes[3] + x), weight));
  }
}

template <int kTerms>
void AddProducts(const FitSamples& samples, const uint8_t* pixels, int count,
                 const FitLine& fromCentre, FitSums& sums) {
  for (int x = 0; x < count; x += kFitLanes) {
    const auto fromU = static_cast<float>(fromCentre.u + x * fromCentre.stepU);
    const auto fromV = static_cast<float>(fromCentre.v + x * fromCentre.stepV);
    const auto stepU = static_cast<float>(fromCentre.stepU);
    const auto stepV = static_cast<float>(fromCentre.stepV);
    for (int i = 0; i < kFitLanes; i += kLanes) {
      F b[kFitTerms + 1];
      b[kOffset] = Load<float, kLanes>(samples.weight + x + i);
      b[kGain] = (Load<float, kLanes>(samples.value + x + i) - 128.0f) * b[kOffset];
      b[kU] = Load<float, kLanes>(samples.du + x + i) * b[kOffset];
      b[kV] = Load<float, kLanes>(samples.dv + x + i) * b[kOffset];
      if constexpr (kTerms > kTurn) {
        const F u = fromU + Ramp(i) * stepU, v = fromV + Ramp(i) * stepV;
        b[kTurn] = b[kU] * v - b[kV] * u;
        if constexpr (kTerms > kScale) b[kScale] = -(b[kU] * u + b[kV] * v);
      }
      b[kImage] =
          (Floats(Convert<int32_t, kLanes>(Load<uint8_t, kLanes>(pixels + x + i))) - 128.0f) *
          b[kOffset];
      const auto add = [&](int first, int second) {
        float* const to = sums.sums[first][second] + i;
        Store(to, Load<float, kLanes>(to) + b[first] * b[second]);
      };
      Unroll<kTerms>([&](auto first) {
        Unroll<kTerms - first>([&](auto more) { add(first, first + more); });
        add(first, kImage);
      });
      add(kImage, kImage);
    }
  }
}

void AddProducts(const FitSamples& samples, const uint8_t* pixels, int count, int terms,
                 const FitLine& fromCentre, FitSums& sums) {
  if (terms <= kTurn) return AddProducts<kTurn>(samples, pixels, count, fromCentre, sums);
  if (terms <= kScale) return AddProducts<kScale>(samples, pixels, count, fromCentre, sums);
  AddProducts<kFitTerms>(samples, pixels, count, fromCentre, sums);
}

}  // namespace

const FitKernels fit = {.SampleLine = SampleLine,
                        .FilterRow = FilterRow,
                        .FilterColumns = FilterColumns,
                        .AddProducts = AddProducts};

}  // namespace quillon::QUILLON_LEVEL
