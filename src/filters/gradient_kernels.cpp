// Kernels of the gradient filters. Compiled once per level.
//
//              Sobel                 Prewitt             Laplacian
//    gx: -1 0 1   gy: -1 -2 -1    the same with        -1 -1 -1
//        -2 0 2        0  0  0    1 in place of 2      -1  8 -1
//        -1 0 1        1  2  1                         -1 -1 -1
//
// Each formula is split into what three neighbours of one row contribute and how three rows
// combine: walking down a strip, a row's part serves three outputs. All sums fit 16 bits with room
// to spare: 10 * 255.
#include "filters/gradient_kernels.h"

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

// (|gx| + |gy|) / 4; the middle row and column weigh kMiddle. V is int, or a vector of 16-bit
// lanes. Sums are grouped so that neighbours share them.
template <int kMiddle>
struct GradientMagnitude {
  template <class V>
  struct Part {
    V smooth, slope;
  };
  template <class V>
  QUILLON_INLINE static Part<V> OfRow(V west, V centre, V east) {
    return {(west + centre) + (east + (kMiddle - 1) * centre), east - west};
  }
  template <class V>
  QUILLON_INLINE static V Combine(const Part<V>& above, const Part<V>& here, const Part<V>& below) {
    const V gx = (above.slope + here.slope) + (below.slope + (kMiddle - 1) * here.slope);
    const V gy = below.smooth - above.smooth;
    return Min((Abs(gx) + Abs(gy)) >> 2, V{} + 255);
  }
};

// kCentre times the centre less its eight neighbours.
template <int kCentre>
struct CentreAgainstNeighbours {
  template <class V>
  struct Part {
    V sum, centre;
  };
  template <class V>
  QUILLON_INLINE static Part<V> OfRow(V west, V centre, V east) {
    return {west + centre + east, centre};
  }
  template <class V>
  QUILLON_INLINE static V Combine(const Part<V>& above, const Part<V>& here, const Part<V>& below) {
    const V v = (kCentre + 1) * here.centre - (above.sum + here.sum + below.sum);
    return Min(Max(v, V{}), V{} + 255);
  }
};

// Pixels of every second column, as 16-bit lanes.
template <class V>
QUILLON_INLINE auto Even(V v) {
  return BitCast<I16<sizeof(V) / 2>>(EvenBytes(v));
}
template <class V>
QUILLON_INLINE auto Odd(V v) {
  return BitCast<I16<sizeof(V) / 2>>(OddBytes(v));
}

// The parts of a row around N columns from x on: at x, x + 2, ... and at x + 1, x + 3, ...
template <class Formula, int N>
struct Parts {
  typename Formula::template Part<I16<N / 2>> even, odd;

  QUILLON_INLINE static Parts Load(const uint8_t* row, int x) {
    const auto west = QUILLON_LEVEL::Load<uint8_t, N>(row + x - 1);
    const auto east = QUILLON_LEVEL::Load<uint8_t, N>(row + x + 1);
    return {Formula::OfRow(Even(west), Odd(west), Even(east)),
            Formula::OfRow(Odd(west), Even(east), Odd(east))};
  }
};

// Rows first ... first + kRows - 1 of a strip, N columns from x on.
template <class Formula, int N, int kRows>
QUILLON_INLINE void FilterBlock(const Strip& strip, int first, int x) {
  using P = Parts<Formula, N>;
  P above = P::Load(strip.in[first], x), here = P::Load(strip.in[first + 1], x);
  Unroll<kRows>([&](auto i) {
    const P below = P::Load(strip.in[first + i + 2], x);
    const auto even = Formula::Combine(above.even, here.even, below.even);
    const auto odd = Formula::Combine(above.odd, here.odd, below.odd);
    Store(strip.out[first + i] + x, BitCast<U8<N>>(even | odd << 8));
    above = here;
    here = below;
  });
}

template <class Formula, int kRows>
QUILLON_INLINE void FilterRows(const Strip& strip, int first, int from, int to) {
  const bool done = ForEachOverlappingBlock(
      from, to, [&](auto width, int x) { FilterBlock<Formula, width, kRows>(strip, first, x); });
  if (done) return;
  for (int i = first; i < first + kRows; ++i) {
    const auto part = [&](const uint8_t* row, int x) {
      return Formula::template OfRow<int>(row[x - 1], row[x], row[x + 1]);
    };
    for (int x = from; x < to; ++x) {
      strip.out[i][x] = static_cast<uint8_t>(Formula::Combine(
          part(strip.in[i], x), part(strip.in[i + 1], x), part(strip.in[i + 2], x)));
    }
  }
}

template <class Formula>
void Filter(const Strip& strip, int from, int to) {
  if (strip.rows == kStripRows) return FilterRows<Formula, kStripRows>(strip, 0, from, to);
  for (int i = 0; i < strip.rows; ++i) FilterRows<Formula, 1>(strip, i, from, to);
}

// Twice the sum of the absolute differences along the two diagonals of 2 x 2 pixels. By least and
// greatest, which more of a processor's units compute than saturating differences.
template <class V>
QUILLON_INLINE V RobertsCross(V pixel, V east, V south, V southEast) {
  const V sum = AddSaturate(Max(pixel, southEast) - Min(pixel, southEast),
                            Max(south, east) - Min(south, east));
  return AddSaturate(sum, sum);
}

// Rows of a strip from `first` on, N columns from x on.
template <int N, int kRows>
QUILLON_INLINE void RobertBlock(const Strip& strip, int first, int x) {
  const uint8_t* row = strip.in[first + 1];
  auto pixel = Load<uint8_t, N>(row + x), east = Load<uint8_t, N>(row + x + 1);
  Unroll<kRows>([&](auto i) {
    row = strip.in[first + i + 2];
    const auto south = Load<uint8_t, N>(row + x), southEast = Load<uint8_t, N>(row + x + 1);
    Store(strip.out[first + i] + x, RobertsCross(pixel, east, south, southEast));
    pixel = south;
    east = southEast;
  });
}

template <int kRows>
QUILLON_INLINE void RobertRows(const Strip& strip, int first, int from, int to) {
  const bool done = ForEachOverlappingBlock(
      from, to, [&](auto width, int x) { RobertBlock<width, kRows>(strip, first, x); });
  if (done) return;
  for (int i = first; i < first + kRows; ++i) {
    const uint8_t *here = strip.in[i + 1], *below = strip.in[i + 2];
    for (int x = from; x < to; ++x) {
      const int sum = Abs(here[x] - below[x + 1]) + Abs(below[x] - here[x + 1]);
      strip.out[i][x] = static_cast<uint8_t>(Min(2 * sum, 255));
    }
  }
}

void Robert(const Strip& strip, int from, int to) {
  if (strip.rows == kStripRows) return RobertRows<kStripRows>(strip, 0, from, to);
  for (int i = 0; i < strip.rows; ++i) RobertRows<1>(strip, i, from, to);
}

}  // namespace

const GradientKernels gradient = {.Sobel = Filter<GradientMagnitude<2>>,
                                  .Prewitt = Filter<GradientMagnitude<1>>,
                                  .Robert = Robert,
                                  .Laplacian = Filter<CentreAgainstNeighbours<8>>,
                                  .Sharpen = Filter<CentreAgainstNeighbours<9>>,
                                  .WeakSharpen = Filter<CentreAgainstNeighbours<7>>};

}  // namespace quillon::QUILLON_LEVEL
