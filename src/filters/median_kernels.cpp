// Row kernels of the median filters. Compiled once per level.
//
// Windows of neighbouring pixels overlap, so what they share is sorted once (A. Adams, "Fast median
// filters using separable sorting networks", ACM Transactions on Graphics 40(4), 2021).
//
// 3 x 3: columns of three are sorted; of the pair of rows that two outputs share, once for both.
// The median of a window is the median of the greatest low, the middle middle and the least high of
// its three columns.
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
// Everything is unrolled into registers: what nobody reads of a result is never computed.

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

template <class V>
QUILLON_INLINE Sorted<V, 3> Insert(V v, const Sorted<V, 2>& pair) {
  return Merge(Sorted<V, 1>{{v}}, pair);
}

template <class V>
QUILLON_INLINE V MedianOf3(V a, V b, V c) {
  return Between(Min(a, b), c, Max(a, b));
}

template <class V>
QUILLON_INLINE V MedianOfColumns(const Sorted<V, 3>& a, const Sorted<V, 3>& b,
                                 const Sorted<V, 3>& c) {
  const V low = Max(Max(a.at[0], b.at[0]), c.at[0]);
  const V middle = MedianOf3(a.at[1], b.at[1], c.at[1]);
  const V high = Min(Min(a.at[2], b.at[2]), c.at[2]);
  return MedianOf3(low, middle, high);
}

// A vector of N bytes, or, with N = 1, one byte.
template <int N>
QUILLON_INLINE auto LoadBytes(const uint8_t* from) {
  if constexpr (N == 1) {
    return *from;
  } else {
    return Load<uint8_t, N>(from);
  }
}
template <class V>
QUILLON_INLINE void StoreBytes(uint8_t* to, V value) {
  if constexpr (sizeof(V) == 1) {
    *to = value;
  } else {
    Store(to, value);
  }
}

// Calls body(width, x) over [0, count), in vectors or, where there are few, byte by byte.
template <class Body>
QUILLON_INLINE void ForEachColumn(int count, Body&& body) {
  if (ForEachOverlappingBlock(0, count, body)) return;
  for (int x = 0; x < count; ++x) body(Width<1>{}, x);
}

// Sorted columns of a stretch of a row: short enough to stay in the nearest cache.
constexpr int kStretch = 1024;
template <int kRanks, int kColumns = kStretch + 64>
struct SortedColumns {
  alignas(64) uint8_t rank[kRanks][kColumns];

  template <int N>
  QUILLON_INLINE auto LoadAt(int x) const {
    Sorted<decltype(LoadBytes<N>(nullptr)), kRanks> column;
    Unroll<kRanks>([&](auto i) { column.at[i] = LoadBytes<N>(rank[i] + x); });
    return column;
  }
  template <class V>
  QUILLON_INLINE void StoreAt(int x, const Sorted<V, kRanks>& column) {
    Unroll<kRanks>([&](auto i) { StoreBytes(rank[i] + x, column.at[i]); });
  }
};

void Stretch3x3(const uint8_t* const rows[4], uint8_t* upper, uint8_t* lower, int count) {
  SortedColumns<3> above, below;  // column 0 of both is the one before the first output
  ForEachColumn(count + 2, [&](auto width, int x) {
    const auto load = [&](int i) { return LoadBytes<width>(rows[i] + x - 1); };
    const auto shared = Sort(load(1), load(2));
    above.StoreAt(x, Insert(load(0), shared));
    below.StoreAt(x, Insert(load(3), shared));
  });
  const auto combine = [&](const SortedColumns<3>& columns, uint8_t* out) {
    ForEachColumn(count, [&](auto width, int x) {
      StoreBytes(out + x, MedianOfColumns(columns.LoadAt<width>(x), columns.LoadAt<width>(x + 1),
                                          columns.LoadAt<width>(x + 2)));
    });
  };
  combine(above, upper);
  combine(below, lower);
}

void Rows3x3(const uint8_t* const rows[4], uint8_t* upper, uint8_t* lower, int from, int to) {
  for (int x = from; x < to; x += kStretch) {
    const uint8_t* const at[4] = {rows[0] + x, rows[1] + x, rows[2] + x, rows[3] + x};
    Stretch3x3(at, upper + x, lower + x, Min(kStretch, to - x));
  }
}

// ---- 5 x 5 --------------------------------------------------------------------------------------

using Bytes = U8<kVectorBytes>;

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
constexpr std::make_integer_sequence<int, kVectorBytes> kLanes = {};

void Split(const uint8_t* row, int width, const SplitRow& split) {
  int x = 0;
  for (; x <= width - 2 * kVectorBytes; x += 2 * kVectorBytes) {
    const Bytes a = Load<uint8_t, kVectorBytes>(row + x);
    const Bytes b = Load<uint8_t, kVectorBytes>(row + x + kVectorBytes);
    Store(split.even + x / 2, EvenOf(a, b, kLanes));
    Store(split.odd + x / 2, OddOf(a, b, kLanes));
  }
  for (; x < width; ++x) (x % 2 == 0 ? split.even : split.odd)[x / 2] = row[x];
}

QUILLON_INLINE Bytes LoadFrom(const uint8_t* from) { return Load<uint8_t, kVectorBytes>(from); }

// Sorted columns of the four rows that two outputs share, around a stretch of pairs of outputs.
// Index i stands for the odd column left of pair i and the even column of pair i.
struct FourRowColumns {
  static constexpr int kPairs = 512;
  static constexpr int kColumns = kPairs + 3 * kVectorBytes;
  SortedColumns<4, kColumns> odd, even;
  SortedColumns<8, kColumns> both;
};

// The outputs of a pair of columns: pixels (2k, 2k + 1).
struct Pair {
  Bytes even, odd;
};

QUILLON_INLINE void StorePair(uint8_t* out, const Pair& pair) {
  Store(out, Interleaved<0>(pair.even, pair.odd, kLanes));
  Store(out + kVectorBytes, Interleaved<kVectorBytes / 2>(pair.even, pair.odd, kLanes));
}

// The medians of the windows that consist of `west` and `east`, 20 pixels without those that cannot
// be the median, and of `row`, six pixels of which each window takes five.
QUILLON_INLINE Pair WithRow(const Sorted<Bytes, 6>& west, const Sorted<Bytes, 6>& east,
                            const SplitRow& row, int k) {
  const auto core = Sort(LoadFrom(row.odd + k - 1), LoadFrom(row.even + k), LoadFrom(row.odd + k),
                         LoadFrom(row.even + k + 1));
  const auto withWest = Merge(west, core), withEast = Merge(east, core);
  return {Between(withWest.at[4], LoadFrom(row.even + k - 1), withWest.at[5]),
          Between(withEast.at[4], LoadFrom(row.odd + k + 1), withEast.at[5])};
}

void Stretch5x5(const SplitRow rows[6], uint8_t* upper, uint8_t* lower, int first, int count) {
  FourRowColumns columns;
  const int base = first - 1;  // the pair that index 0 stands for
  for (int i = 0; i < count + 3; i += kVectorBytes) {
    const int k = base + i;
    const auto odd = Sort(LoadFrom(rows[1].odd + k - 1), LoadFrom(rows[2].odd + k - 1),
                          LoadFrom(rows[3].odd + k - 1), LoadFrom(rows[4].odd + k - 1));
    const auto even = Sort(LoadFrom(rows[1].even + k), LoadFrom(rows[2].even + k),
                           LoadFrom(rows[3].even + k), LoadFrom(rows[4].even + k));
    columns.odd.StoreAt(i, odd);
    columns.even.StoreAt(i, even);
    columns.both.StoreAt(i, Merge(odd, even));
  }
  for (int i = 1; i <= count; i += kVectorBytes) {
    const int k = base + i;
    const auto core = Middle<3, 10>(
        Merge(columns.both.LoadAt<kVectorBytes>(i), columns.both.LoadAt<kVectorBytes>(i + 1)));
    const auto west = Middle<4, 6>(Merge(core, columns.even.LoadAt<kVectorBytes>(i - 1)));
    const auto east = Middle<4, 6>(Merge(core, columns.odd.LoadAt<kVectorBytes>(i + 2)));
    StorePair(upper + 2 * k, WithRow(west, east, rows[0], k));
    StorePair(lower + 2 * k, WithRow(west, east, rows[5], k));
  }
}

void Rows5x5(const SplitRow rows[6], uint8_t* upper, uint8_t* lower, int pairs) {
  for (int k = 1; k <= pairs; k += FourRowColumns::kPairs) {
    Stretch5x5(rows, upper, lower, k, Min(FourRowColumns::kPairs, pairs + 1 - k));
  }
}

}  // namespace

const MedianKernels median = {.Rows3x3 = Rows3x3, .Split = Split, .Rows5x5 = Rows5x5};

}  // namespace quillon::QUILLON_LEVEL
