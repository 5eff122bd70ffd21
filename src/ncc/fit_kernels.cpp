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

// ---- sums of products ---------------------------------------------------------------------------

// Calls body(first, second) for each two terms, first <= second, of the first kTerms and the image.
template <int kTerms, class Body>
QUILLON_INLINE void ForEachProduct(Body&& body) {
  Unroll<kTerms>([&](auto first) {
    Unroll<kTerms - first>([&](auto more) { body(first, first + more); });
    body(first, kImage);
  });
  body(kImage, kImage);
}

// The template at a vector of pixels: whether they take part, its value, its slopes.
struct Sample {
  F weight, value, du, dv;
};

// The terms that every fit has.
QUILLON_INLINE void MakeTerms(const Sample& sample, const uint8_t* pixels, F* b) {
  b[kOffset] = sample.weight;
  b[kGain] = (sample.value - 128.0f) * b[kOffset];
  b[kU] = sample.du * b[kOffset];
  b[kV] = sample.dv * b[kOffset];
  b[kImage] = (Floats(LoadBytesAsLongs(pixels)) - 128.0f) * b[kOffset];
}

// The sums of a fit with kTerms terms, while a row adds to them. Where a vector holds all lanes of
// a sum, there are registers enough to keep them in; elsewhere each product is added in memory.
template <int kTerms>
class RowSums {
 public:
  QUILLON_INLINE explicit RowSums(FitSums& sums) : sums_(sums) {
    if constexpr (kHeld) {
      ForEachProduct<kTerms>([&](int first, int second) {
        held_[first][second] = Load<float, kLanes>(sums_.sums[first][second]);
      });
    }
  }
  QUILLON_INLINE void Add(int lane, const F* b) {
    ForEachProduct<kTerms>([&](int first, int second) {
      if constexpr (kHeld) {
        held_[first][second] += b[first] * b[second];
      } else {
        float* const to = sums_.sums[first][second] + lane;
        Store(to, Load<float, kLanes>(to) + b[first] * b[second]);
      }
    });
  }
  QUILLON_INLINE void Close() {
    if constexpr (kHeld) {
      ForEachProduct<kTerms>(
          [&](int first, int second) { Store(sums_.sums[first][second], held_[first][second]); });
    }
  }

 private:
  static constexpr bool kHeld = kLanes == kFitLanes;
  FitSums& sums_;
  F held_[kFitTerms + 1][kFitTerms + 1];
};

void AddMoved(const FitSamples& samples, const uint8_t* pixels, int count, FitSums& sums) {
  RowSums<kTurn> rowSums(sums);
  for (int x = 0; x < count; x += kFitLanes) {
    for (int i = 0; i < kFitLanes; i += kLanes) {
      const auto load = [&](const float* from) { return Load<float, kLanes>(from + x + i); };
      F b[kFitTerms + 1];
      MakeTerms({load(samples.weight), load(samples.value), load(samples.du), load(samples.dv)},
                pixels + x + i, b);
      rowSums.Add(i, b);
    }
  }
  rowSums.Close();
}

// Where the pixels of a line lie in the template: their cells, and places within them.
void PlaceLine(const FitCells& cells, const FitLine& line, int count, const FitSamples& samples) {
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
}

// The bilinear sample at a vector of pixels that were placed.
QUILLON_INLINE Sample SampleCells(const FitSamples& placed, int x) {
  const auto cell = Load<uint32_t, kLanes>(placed.cells + x);
  const auto byte = [&](int i) { return Floats(BitCast<I>((cell >> (8 * i)) & 255)); };
  const F upperLeft = byte(0), upperRight = byte(1), lowerLeft = byte(2), lowerRight = byte(3);
  const F fu = Load<float, kLanes>(placed.du + x), fv = Load<float, kLanes>(placed.dv + x);
  const F above = upperRight - upperLeft, below = lowerRight - lowerLeft;
  const F upper = upperLeft + above * fu, lower = lowerLeft + below * fu;
  return {Load<float, kLanes>(placed.weight + x), upper + (lower - upper) * fv,
          above + (below - above) * fv, lower - upper};
}

template <int kTerms>
void AddPlaced(const FitCells& cells, const FitLine& line, const uint8_t* pixels, int count,
               const FitSamples& samples, FitSums& sums) {
  PlaceLine(cells, line, count, samples);
  RowSums<kTerms> rowSums(sums);
  const auto stepU = static_cast<float>(line.stepU), stepV = static_cast<float>(line.stepV);
  const double middleU = (cells.width - 1) * 0.5, middleV = (cells.height - 1) * 0.5;
  const FitLine fromCentre = {line.u - middleU, line.v - middleV, line.stepU, line.stepV};
  for (int x = 0; x < count; x += kFitLanes) {
    const auto fromU = static_cast<float>(fromCentre.u + x * line.stepU);
    const auto fromV = static_cast<float>(fromCentre.v + x * line.stepV);
    for (int i = 0; i < kFitLanes; i += kLanes) {
      F b[kFitTerms + 1];
      MakeTerms(SampleCells(samples, x + i), pixels + x + i, b);
      const F u = fromU + Ramp(i) * stepU, v = fromV + Ramp(i) * stepV;
      b[kTurn] = b[kU] * v - b[kV] * u;
      if constexpr (kTerms > kScale) b[kScale] = -(b[kU] * u + b[kV] * v);
      rowSums.Add(i, b);
    }
  }
  rowSums.Close();
}

void AddLine(const FitCells& cells, const FitLine& line, const uint8_t* pixels, int count,
             bool scales, const FitSamples& samples, FitSums& sums) {
  if (scales) return AddPlaced<kFitTerms>(cells, line, pixels, count, samples, sums);
  AddPlaced<kScale>(cells, line, pixels, count, samples, sums);
}

// Whole numbers below 2^24 all the way, so that single precision is exact.
void TurnRow(const FitCells& cells, const TurnedRow& turned, int count, uint8_t* out) {
  constexpr int kHalf = 1 << (kTurnedFraction - 1), kVectors = 16 / kLanes;
  I ramp = {};
  for (int i = 0; i < kLanes; ++i) ramp[i] = i;
  I u = ramp * turned.stepU + (turned.u - kHalf), v = ramp * turned.stepV + (turned.v - kHalf);
  const I lastU = I{} + ((cells.width - 1) << kTurnedFraction);
  const I lastV = I{} + ((cells.height - 1) << kTurnedFraction);
  for (int x = 0; x < count; x += kLanes) {
    const I column = Max(Min(u, lastU), I{}), row = Max(Min(v, lastV), I{});
    u += turned.stepU * kLanes;
    v += turned.stepV * kLanes;
    const auto cell =
        Gather(cells.pixels, (row >> kTurnedFraction) * cells.width + (column >> kTurnedFraction));
    const auto byte = [&](int i) { return Floats(BitCast<I>((cell >> (8 * i)) & 255)); };
    const F fu = Floats((column >> 8) & 255), fv = Floats((row >> 8) & 255);
    const F upperLeft = byte(0), lowerLeft = byte(2);
    const F upper = upperLeft * 256.0f + (byte(1) - upperLeft) * fu;
    const F lower = lowerLeft * 256.0f + (byte(3) - lowerLeft) * fu;
    const F sum = upper * 256.0f + (lower - upper) * fv + 32768.0f;
    // The first of 16 bytes; the next vector's overwrite the others.
    I values[kVectors];
    for (I& value : values) value = Convert<int32_t, kLanes>(sum) >> kTurnedFraction;
    Store(out + x, PackToBytes(values));
  }
}

void PackCells(const uint8_t* upper, const uint8_t* lower, int count, uint32_t* cells) {
  int x = 0;
  for (; x + kLanes < count; x += kLanes) {
    Store(cells + x, LoadBytesAsLongs(upper + x) | LoadBytesAsLongs(upper + x + 1) << 8 |
                         LoadBytesAsLongs(lower + x) << 16 | LoadBytesAsLongs(lower + x + 1) << 24);
  }
  for (; x < count; ++x) {
    const int right = x + 1 < count ? x + 1 : x;
    cells[x] = static_cast<uint32_t>(upper[x]) | static_cast<uint32_t>(upper[right]) << 8 |
               static_cast<uint32_t>(lower[x]) << 16 | static_cast<uint32_t>(lower[right]) << 24;
  }
}

// ---- points of a template on an image -----------------------------------------------------------

// The pixel at or before a place, and how far behind it the place is.
struct Place {
  QUILLON_INLINE Place(F at, int last) {
    at = Min(Max(at, F{}), F{} + static_cast<float>(last));
    whole = Convert<int32_t, kLanes>(at);
    fraction = at - Floats(whole);
  }
  I whole;
  F fraction;
};

QUILLON_INLINE F SampleImage(const FitCells& image, const FitPlacing& placing, F u, F v) {
  const Place x(placing.x + u * placing.stepX - v * placing.stepY, image.width - 1);
  const Place y(placing.y + u * placing.stepY + v * placing.stepX, image.height - 1);
  const auto cell = Gather(image.pixels, y.whole * image.width + x.whole);
  const auto byte = [&](int i) { return Floats(BitCast<I>((cell >> (8 * i)) & 255)); };
  const F upperLeft = byte(0), lowerLeft = byte(2);
  const F upper = upperLeft + (byte(1) - upperLeft) * x.fraction;
  const F lower = lowerLeft + (byte(3) - lowerLeft) * x.fraction;
  return upper + (lower - upper) * y.fraction - 128.0f;
}

// Halves are added until four lanes are left: the same order of additions at every level.
template <class V>
QUILLON_INLINE float SumOfLanes(V v) {
  if constexpr (sizeof(V) > 16) {
    return SumOfLanes(Low(v) + High(v));
  } else {
    return (v[0] + v[2]) + (v[1] + v[3]);
  }
}

template <int kFactors>
void CorrelatePoints(const FitCells& image, const FitPoints& points, const FitPlacing& placing,
                     float sums[2 + kMostFitFactors]) {
  constexpr int kGroups = kFitLanes / kLanes, kSums = 2 + kFactors;
  F sum[kSums][kGroups];
  for (int group = 0; group < kGroups; ++group) {
    F s[kSums] = {};
    for (int at = group * kLanes; at < points.count; at += kFitLanes) {
      F value = SampleImage(image, placing, Load<float, kLanes>(points.u + at),
                            Load<float, kLanes>(points.v + at));
      // Lanes behind the last point count nothing.
      value = BitCast<F>(BitCast<I>(value) & (Ramp(at) < F{} + static_cast<float>(points.count)));
      s[0] += value;
      s[1] += value * value;
      Unroll<kFactors>([&](auto i) {
        s[2 + i] += value * Load<float, kLanes>(points.factors + i * points.stride + at);
      });
    }
    for (int i = 0; i < kSums; ++i) sum[i][group] = s[i];
  }
  for (int i = 0; i < kSums; ++i) {
    for (int half = kGroups / 2; half > 0; half /= 2) {
      for (int group = 0; group < half; ++group) sum[i][group] += sum[i][group + half];
    }
    sums[i] = SumOfLanes(sum[i][0]);
  }
}

void CorrelatePoints(const FitCells& image, const FitPoints& points, const FitPlacing& placing,
                     float sums[2 + kMostFitFactors]) {
  if (points.factorCount == 3) return CorrelatePoints<3>(image, points, placing, sums);
  if (points.factorCount == 4) return CorrelatePoints<4>(image, points, placing, sums);
  CorrelatePoints<5>(image, points, placing, sums);
}

double ExactProduct(const float* a, const float* b, int count) {
  constexpr int kWide = kVectorBytes / 8, kSums = kFitLanes / kWide < 4 ? kFitLanes / kWide : 4;
  using D = F64<kWide>;
  D sums[kSums] = {};
  for (int x = 0; x < count; x += kSums * kWide) {
    Unroll<kSums>([&](auto i) {
      const auto load = [&](const float* from) {
        return Convert<double, kWide>(Load<float, kWide>(from + x + i * kWide));
      };
      sums[i] += load(a) * load(b);
    });
  }
  for (int i = 1; i < kSums; ++i) sums[0] += sums[i];
  double total = 0;
  for (int i = 0; i < kWide; ++i) total += sums[0][i];
  return total;
}

}  // namespace

const FitKernels fit = {.FilterRow = FilterRow,
                        .FilterColumns = FilterColumns,
                        .AddMoved = AddMoved,
                        .AddLine = AddLine,
                        .TurnRow = TurnRow,
                        .PackCells = PackCells,
                        .CorrelatePoints = CorrelatePoints,
                        .ExactProduct = ExactProduct};

}  // namespace quillon::QUILLON_LEVEL
