// Row kernels of the gradient filters. Compiled once per level.
//
//              Sobel                 Prewitt             Laplacian
//    gx: -1 0 1   gy: -1 -2 -1    the same with        -1 -1 -1
//        -2 0 2        0  0  0    1 in place of 2      -1  8 -1
//        -1 0 1        1  2  1                         -1 -1 -1
//
// Each formula is split into what one column of three pixels contributes and how three columns
// combine; neighbouring outputs share columns. All sums fit 16 bits with room to spare: 10 * 255.
#include "filters/gradient_kernels.h"

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

// V is int, or a vector of 16-bit lanes.
template <class V>
QUILLON_INLINE V Clamp(V v) {
  return Min(Max(v, V{}), V{} + 255);
}

// (|gx| + |gy|) / 4; the middle row and column weigh kMiddle.
template <int kMiddle>
struct GradientMagnitude {
  template <class V>
  struct Column {
    V smooth, slope;
  };
  template <class V>
  QUILLON_INLINE static Column<V> OfColumn(V top, V middle, V bottom) {
    return {top + bottom + kMiddle * middle, bottom - top};
  }
  template <class V>
  QUILLON_INLINE static V Combine(Column<V> left, Column<V> centre, Column<V> right) {
    const V gx = right.smooth - left.smooth;
    const V gy = left.slope + right.slope + kMiddle * centre.slope;
    return Min((Abs(gx) + Abs(gy)) >> 2, V{} + 255);
  }
};

// kCentre times the centre less its eight neighbours.
template <int kCentre>
struct CentreAgainstNeighbours {
  template <class V>
  struct Column {
    V sum, middle;
  };
  template <class V>
  QUILLON_INLINE static Column<V> OfColumn(V top, V middle, V bottom) {
    return {top + middle + bottom, middle};
  }
  template <class V>
  QUILLON_INLINE static V Combine(Column<V> left, Column<V> centre, Column<V> right) {
    return Clamp((kCentre + 1) * centre.middle - (left.sum + centre.sum + right.sum));
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

// N outputs at x. Even outputs lie between columns of `before` and `after`, which load the window's
// left and right columns; odd outputs one column further on.
template <class Formula, int N>
QUILLON_INLINE void FilterBlock(const Rows3& rows, uint8_t* out, int x) {
  struct Three {
    U8<N> top, middle, bottom;
  };
  const auto load = [&](int at) {
    return Three{Load<uint8_t, N>(rows.top + at), Load<uint8_t, N>(rows.middle + at),
                 Load<uint8_t, N>(rows.bottom + at)};
  };
  const auto even = [](const Three& p) {
    return Formula::OfColumn(Even(p.top), Even(p.middle), Even(p.bottom));
  };
  const auto odd = [](const Three& p) {
    return Formula::OfColumn(Odd(p.top), Odd(p.middle), Odd(p.bottom));
  };
  const Three before = load(x - 1), after = load(x + 1);
  const auto column0 = even(before), column1 = odd(before);
  const auto column2 = even(after), column3 = odd(after);
  const auto evens = Formula::Combine(column0, column1, column2);
  const auto odds = Formula::Combine(column1, column2, column3);
  Store(out + x, BitCast<U8<N>>(evens | odds << 8));
}

template <class Formula>
void FilterRow(const Rows3& rows, uint8_t* out, int from, int to) {
  const bool done = ForEachOverlappingBlock(
      from, to, [&](auto width, int x) { FilterBlock<Formula, width>(rows, out, x); });
  if (done) return;
  const auto column = [&](int x) {
    return Formula::template OfColumn<int>(rows.top[x], rows.middle[x], rows.bottom[x]);
  };
  for (int x = from; x < to; ++x) {
    out[x] = static_cast<uint8_t>(Formula::Combine(column(x - 1), column(x), column(x + 1)));
  }
}

// Twice the sum of the absolute differences along the two diagonals of 2 x 2 pixels.
template <class V>
QUILLON_INLINE V RobertsCross(V pixel, V east, V south, V southEast) {
  const V sum = AddSaturate(AbsDiff(pixel, southEast), AbsDiff(south, east));
  return AddSaturate(sum, sum);
}

void RobertRow(const Rows3& rows, uint8_t* out, int from, int to) {
  const uint8_t *here = rows.middle, *below = rows.bottom;
  const bool done = ForEachOverlappingBlock(from, to, [&](auto width, int x) {
    Store(out + x,
          RobertsCross(Load<uint8_t, width>(here + x), Load<uint8_t, width>(here + x + 1),
                       Load<uint8_t, width>(below + x), Load<uint8_t, width>(below + x + 1)));
  });
  if (done) return;
  for (int x = from; x < to; ++x) {
    const int sum = Abs(here[x] - below[x + 1]) + Abs(below[x] - here[x + 1]);
    out[x] = static_cast<uint8_t>(Min(2 * sum, 255));
  }
}

}  // namespace

const GradientKernels gradient = {.SobelRow = FilterRow<GradientMagnitude<2>>,
                                  .PrewittRow = FilterRow<GradientMagnitude<1>>,
                                  .RobertRow = RobertRow,
                                  .LaplacianRow = FilterRow<CentreAgainstNeighbours<8>>,
                                  .SharpenRow = FilterRow<CentreAgainstNeighbours<9>>,
                                  .WeakSharpenRow = FilterRow<CentreAgainstNeighbours<7>>};

}  // namespace quillon::QUILLON_LEVEL
