// Kernels of the median filters. Compiled once per level.
//
// Windows of neighbouring pixels overlap, so what they share is sorted once (A. Adams, "Fast median
// filters using separable sorting networks", ACM Transactions on Graphics 40(4), 2021).
//
// 3 x 3: the three neighbours of each row are sorted, once for the three rows around it. The median
// of a window is the median of the greatest low, the middle middle and the least high of its rows;
// of the two rows that two outputs share, these are formed once.
//
// 5 x 5: four outputs, two by two, share a core of 4 x 4 pixels.
//
//     nw n n n n ne     columns w, n/c/s, e of four pixels are sorted, pairs of columns merged;
//     w  c c c c e      of the 16 sorted core pixels the three lowest and the three highest cannot
//     w  c c c c e      be the median of any window, so 10 remain;
//     w  c c c c e      with column w, or e, of the 14 remain the middle 6;
//     w  c c c c e      with the row n, or s, the two middle ones of 10 bound the last pixel, a
//     sw s s s s se     corner: the median.
//
// The two outputs of a row lie in different vectors: rows are split into even and odd columns.
#include "filters/median_kernels.h"

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

// ---- sorted lists -------------------------------------------------------------------------------
// All of it is unrolled into registers, so the compiler drops what nobody reads of a result.

template <class V, int n>
struct Sorted {
  V at[n];  // ascending
};
template <class V>
struct Sorted<V, 0> {};

// The elements `first`, `first` + 2, ...
template <int first, class V, int n>
QUILLON_INLINE auto EverySecond(const Sorted<V, n>& a) {
  constexpr int kCount = (n + 1 - first) / 2;
  Sorted<V, kCount> half;
  if constexpr (kCount > 0) {
    Unroll<kCount>([&](auto i) { half.at[i] = a.at[2 * i + first]; });
  }
  return half;
}

// Batcher's odd-even merge.
template <class V, int n, int m>
QUILLON_INLINE Sorted<V, n + m> Merge(const Sorted<V, n>& a, const Sorted<V, m>& b) {
  if constexpr (n == 0) {
    return b;
  } else if constexpr (m == 0) {
    return a;
  } else if constexpr (n == 1 && m == 1) {
    return {{Min(a.at[0], b.at[0]), Max(a.at[0], b.at[0])}};
  } else {
    const auto even = Merge(EverySecond<0>(a), EverySecond<0>(b));
    const auto odd = Merge(EverySecond<1>(a), EverySecond<1>(b));
    constexpr int kEven = (n + 1) / 2 + (m + 1) / 2, kOdd = n / 2 + m / 2;
    Sorted<V, n + m> merged;
    merged.at[0] = even.at[0];
    Unroll<(n + m) / 2>([&](auto i) {
      if constexpr (i < kOdd && i + 1 < kEven) {
        merged.at[2 * i + 1] = Min(odd.at[i], even.at[i + 1]);
        merged.at[2 * i + 2] = Max(odd.at[i], even.at[i + 1]);
      } else if constexpr (i < kOdd) {
        merged.at[2 * i + 1] = odd.at[i];
      } else {
        merged.at[2 * i + 1] = even.at[i + 1];
      }
    });
    return merged;
  }
}

// Ranks first ... first + count - 1.
template <int first, int count, class V, int n>
QUILLON_INLINE Sorted<V, count> Middle(const Sorted<V, n>& a) {
  Sorted<V, count> middle;
  Unroll<count>([&](auto i) { middle.at[i] = a.at[first + i]; });
  return middle;
}

template <class V>
QUILLON_INLINE Sorted<V, 2> Sort(V a, V b) {
  return {{Min(a, b), Max(a, b)}};
}

template <class V>
QUILLON_INLINE Sorted<V, 4> Sort(V a, V b, V c, V d) {
  return Merge(Sort(a, b), Sort(c, d));
}

// v within [low, high].
template <class V>
QUILLON_INLINE V Between(V low, V v, V high) {
  return Max(low, Min(v, high));
}

// ---- 3 x 3 --------------------------------------------------------------------------------------

// A vector of N bytes, or, with N = 1, one byte.
template <int N>
QUILLON_INLINE auto LoadBytes(const uint8_t* from) {
  if constexpr (N == 1) {
    return *from;
  } else {
    return Load<uint8_t, N>(from);
  }
}

template <int N>
QUILLON_INLINE auto SortedNeighbours(const uint8_t* row, int x) {
  const auto sides = Sort(LoadBytes<N>(row + x - 1), LoadBytes<N>(row + x + 1));
  return Merge(Sorted<decltype(LoadBytes<N>(row)), 1>{{LoadBytes<N>(row + x)}}, sides);
}

template <class V>
QUILLON_INLINE V MedianOfRows(const Sorted<V, 3>& pairA, const Sorted<V, 3>& pairB,
                              const Sorted<V, 3>& single) {
  const V low = Max(Max(pairA.at[0], pairB.at[0]), single.at[0]);
  const V high = Min(Min(pairA.at[2], pairB.at[2]), single.at[2]);
  const auto middles = Sort(pairA.at[1], pairB.at[1]);
  const V middle = Between(middles.at[0], single.at[1], middles.at[1]);
  return Between(Min(low, high), middle, Max(low, high));
}

// Rows first ... first + kRows - 1 of a strip, at x. Outputs 0 and 1, 2 and 3 ... share a pair.
template <int N, int kRows>
QUILLON_INLINE void MedianBlock3x3(const Strip& strip, int first, int x) {
  Sorted<decltype(LoadBytes<N>(nullptr)), 3> row[kRows + 2];
  row[0] = SortedNeighbours<N>(strip.in[first], x);
  row[1] = SortedNeighbours<N>(strip.in[first + 1], x);
  Unroll<kRows>([&](auto i) {
    row[i + 2] = SortedNeighbours<N>(strip.in[first + i + 2], x);
    const auto median = i % 2 == 0 ? MedianOfRows(row[i + 1], row[i + 2], row[i])
                                   : MedianOfRows(row[i], row[i + 1], row[i + 2]);
    if constexpr (N == 1) {
      strip.out[first + i][x] = median;
    } else {
      Store(strip.out[first + i] + x, median);
    }
  });
}

template <int kRows>
QUILLON_INLINE void MedianRows3x3(const Strip& strip, int first, int from, int to) {
  const bool done = ForEachOverlappingBlock(
      from, to, [&](auto width, int x) { MedianBlock3x3<width, kRows>(strip, first, x); });
  if (done) return;
  for (int x = from; x < to; ++x) MedianBlock3x3<1, kRows>(strip, first, x);
}

void Filter3x3(const Strip& strip, int from, int to) {
  if (strip.rows == kStripRows) return MedianRows3x3<kStripRows>(strip, 0, from, to);
  for (int i = 0; i < strip.rows; ++i) MedianRows3x3<1>(strip, i, from, to);
}

// ---- 5 x 5 --------------------------------------------------------------------------------------

template <class V, int... i>
QUILLON_INLINE V EvenOf(V a, V b, std::integer_sequence<int, i...>) {
  return __builtin_shufflevector(a, b, 2 * i...);
}
template <class V, int... i>
QUILLON_INLINE V OddOf(V a, V b, std::integer_sequence<int, i...>) {
  return __builtin_shufflevector(a, b, (2 * i + 1)...);
}
// Lanes first, first + 1, ... of a, each followed by that of b.
template <int first, class V, int... i>
QUILLON_INLINE V Interleaved(V a, V b, std::integer_sequence<int, i...>) {
  return __builtin_shufflevector(a, b, (first + i / 2 + i % 2 * sizeof...(i))...);
}
template <int N>
constexpr std::make_integer_sequence<int, N> kLanes = {};

void Split(const uint8_t* row, int width, const SplitRow& split) {
  const bool done = ForEachOverlappingBlock(0, width / 2, [&](auto n, int k) {
    const auto a = Load<uint8_t, n>(row + 2 * k), b = Load<uint8_t, n>(row + 2 * k + n);
    Store(split.even + k, EvenOf(a, b, kLanes<n>));
    Store(split.odd + k, OddOf(a, b, kLanes<n>));
  });
  for (int x = done ? width / 2 * 2 : 0; x < width; ++x) {
    (x % 2 == 0 ? split.even : split.odd)[x / 2] = row[x];
  }
}

// Sorted lists of a stretch of columns, a row of bytes for each rank.
template <int kRanks, int kColumns>
struct SortedColumns {
  alignas(64) uint8_t rank[kRanks][kColumns];

  template <int N>
  QUILLON_INLINE Sorted<U8<N>, kRanks> LoadAt(int x) const {
    Sorted<U8<N>, kRanks> column;
    Unroll<kRanks>([&](auto i) { column.at[i] = Load<uint8_t, N>(rank[i] + x); });
    return column;
  }
  template <class V>
  QUILLON_INLINE void StoreAt(int x, const Sorted<V, kRanks>& column) {
    Unroll<kRanks>([&](auto i) { Store(rank[i] + x, column.at[i]); });
  }
};

// Sorted columns of four rows, those that an upper and a lower output share, for a stretch of pairs
// of outputs (pixels 2k and 2k + 1). Index i holds two columns: the odd one left of pair i, and the
// even one of pair i.
struct FourRowColumns {
  static constexpr int kPairs = 512;
  static constexpr int kColumns = kPairs + 3 * kVectorBytes;
  SortedColumns<4, kColumns> odd, even;
  SortedColumns<8, kColumns> both;
};

// The outputs of a pair of columns: pixels (2k, 2k + 1).
template <class V>
struct Pair {
  V even, odd;
};

template <class V>
QUILLON_INLINE void StorePair(uint8_t* out, const Pair<V>& pair) {
  constexpr int N = sizeof(V);
  Store(out, Interleaved<0>(pair.even, pair.odd, kLanes<N>));
  Store(out + N, Interleaved<N / 2>(pair.even, pair.odd, kLanes<N>));
}

// The medians of the windows that consist of `west` and `east`, 20 pixels without those that cannot
// be the median, and of `row`, six pixels of which each window takes five.
template <class V>
QUILLON_INLINE Pair<V> WithRow(const Sorted<V, 6>& west, const Sorted<V, 6>& east,
                               const SplitRow& row, int k) {
  constexpr int N = sizeof(V);
  const auto core = Sort(Load<uint8_t, N>(row.odd + k - 1), Load<uint8_t, N>(row.even + k),
                         Load<uint8_t, N>(row.odd + k), Load<uint8_t, N>(row.even + k + 1));
  const auto withWest = Merge(west, core), withEast = Merge(east, core);
  return {Between(withWest.at[4], Load<uint8_t, N>(row.even + k - 1), withWest.at[5]),
          Between(withEast.at[4], Load<uint8_t, N>(row.odd + k + 1), withEast.at[5])};
}

// In vectors of N pairs, or of half as many where these hold all that is left.
template <int N>
void Stretch5x5(const SplitRow rows[6], uint8_t* upper, uint8_t* lower, int first, int count) {
  if constexpr (N > 16) {
    if (count <= N / 2) return Stretch5x5<N / 2>(rows, upper, lower, first, count);
  }
  FourRowColumns columns;
  const int base = first - 1;  // the pair that index 0 stands for
  for (int i = 0; i < count + 3; i += N) {
    const int k = base + i;
    const auto odd =
        Sort(Load<uint8_t, N>(rows[1].odd + k - 1), Load<uint8_t, N>(rows[2].odd + k - 1),
             Load<uint8_t, N>(rows[3].odd + k - 1), Load<uint8_t, N>(rows[4].odd + k - 1));
    const auto even = Sort(Load<uint8_t, N>(rows[1].even + k), Load<uint8_t, N>(rows[2].even + k),
                           Load<uint8_t, N>(rows[3].even + k), Load<uint8_t, N>(rows[4].even + k));
    columns.odd.StoreAt(i, odd);
    columns.even.StoreAt(i, even);
    columns.both.StoreAt(i, Merge(odd, even));
  }
  for (int i = 1; i <= count; i += N) {
    const int k = base + i;
    const auto both = Merge(columns.both.LoadAt<N>(i), columns.both.LoadAt<N>(i + 1));
    const auto core = Middle<3, 10>(both);
    const auto west = Middle<4, 6>(Merge(core, columns.even.LoadAt<N>(i - 1)));
    const auto east = Middle<4, 6>(Merge(core, columns.odd.LoadAt<N>(i + 2)));
    StorePair(upper + 2 * k, WithRow(west, east, rows[0], k));
    StorePair(lower + 2 * k, WithRow(west, east, rows[5], k));
  }
}

void Rows5x5(const SplitRow rows[6], uint8_t* upper, uint8_t* lower, int pairs) {
  for (int k = 1; k <= pairs; k += FourRowColumns::kPairs) {
    Stretch5x5<kVectorBytes>(rows, upper, lower, k, Min(FourRowColumns::kPairs, pairs + 1 - k));
  }
}

}  // namespace

const MedianKernels median = {.Filter3x3 = Filter3x3, .Split = Split, .Rows5x5 = Rows5x5};

}  // namespace quillon::QUILLON_LEVEL
