// Row kernels of the morphology. Compiled once per level.
#include "morph/morph_kernels.h"

#include <bit>

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

struct Maximum {
  template <class V>
  QUILLON_INLINE static V Of(V a, V b) {
    return Max(a, b);
  }
};

struct Minimum {
  template <class V>
  QUILLON_INLINE static V Of(V a, V b) {
    return Min(a, b);
  }
};

// Calls body(value) with the value as a constant: it is one of those listed.
template <int... kValue, class Body>
QUILLON_INLINE void WithConstant(int value, Body&& body) {
  ((value == kValue ? body(Width<kValue>{}) : void()), ...);
}

// Copies a caller's pointers one by one. The compiler would load several as one vector, and that
// load has to wait: the caller has only just stored them, one by one.
template <int n, class T>
QUILLON_INLINE void CopyPointers(T* const* from, T** to) {
  Unroll<n>([&](auto i) {
    T* pointer = from[i];
    asm("" : "+r"(pointer));
    to[i] = pointer;
  });
}

// Covers [0, count) with blocks that write to `out`. The first is followed by those at aligned
// addresses, for a store across two cache lines costs as much as several, and the last reaches
// back: so rows of 16 pixels or more need no tail. For bodies that may run twice on the same
// pixels.
template <int kLargest = kVectorBytes, class Body>
QUILLON_INLINE void CoverWithBlocks(const uint8_t* out, int count, Body&& body) {
  if constexpr (kLargest > 1) {
    if (count < kLargest) {
      return CoverWithBlocks < kLargest == 16 ? 1 : kLargest / 2 > (out, count, body);
    }
    body(Width<kLargest>{}, 0);
    int x = kLargest - static_cast<int>(reinterpret_cast<uintptr_t>(out) % kLargest);
    for (; x <= count - 2 * kLargest; x += 2 * kLargest) {
      body(Width<kLargest>{}, x);
      body(Width<kLargest>{}, x + kLargest);
    }
    if (x <= count - kLargest) body(Width<kLargest>{}, x);
    body(Width<kLargest>{}, count - kLargest);
  } else {
    for (int x = 0; x < count; ++x) body(Width<1>{}, x);
  }
}

// A block of pixels: a vector, or one byte.
template <int N>
QUILLON_INLINE auto LoadBlock(const uint8_t* from) {
  if constexpr (N == 1) {
    return *from;
  } else {
    return Load<uint8_t, N>(from);
  }
}

QUILLON_INLINE void StoreBlock(uint8_t* to, uint8_t value) { *to = value; }
template <class V>
QUILLON_INLINE void StoreBlock(uint8_t* to, V value) {
  Store(to, value);
}

template <class Extreme, int kTerms>
void OfTerms(const uint8_t* const* from, uint8_t* out, int count) {
  const uint8_t* rows[kTerms];
  for (int i = 0; i < kTerms; ++i) rows[i] = from[i];
  CoverWithBlocks(out, count, [&](auto width, int x) {
    auto extreme = LoadBlock<width>(rows[0] + x);
    for (int i = 1; i < kTerms; ++i) {
      extreme = Extreme::Of(extreme, LoadBlock<width>(rows[i] + x));
    }
    StoreBlock(out + x, extreme);
  });
}

template <class Extreme>
void OfRows(const uint8_t* const* from, int terms, uint8_t* out, int count) {
  WithConstant<2, 3, 4, 5, 6, 7>(terms, [&](auto n) { OfTerms<Extreme, n>(from, out, count); });
}

template <int kLane, class V, int... i>
QUILLON_INLINE V SplatLane(V v, std::integer_sequence<int, i...>) {
  return __builtin_shufflevector(v, v, (kLane + 0 * i)...);
}
// One lane in all.
template <int kLane, class V>
QUILLON_INLINE V SplatLane(V v) {
  return SplatLane<kLane>(v, std::make_integer_sequence<int, sizeof(V)>{});
}

// Extremes of runs of kRun pixels, for a whole row, block by block from right to left. Each step
// joins the extremes of two shorter runs. The second of these starts further right, so some of its
// lanes are in the block to the right: right_ keeps what that block had at each step.
template <class Extreme, int kRun, int N>
class RunBlocks {
 public:
  explicit RunBlocks(const uint8_t* row) : row_(row) {}
  QUILLON_INLINE U8<N> Block(int x) {
    U8<N> extreme = Load<uint8_t, N>(row_ + x);
    for (int i = 1; i < kLoaded; ++i) {
      extreme = Extreme::Of(extreme, Load<uint8_t, N>(row_ + x + i));
    }
    Unroll<kSteps>([&](auto step) {
      constexpr int kCovered = kLoaded << step, kLeft = kRun - kCovered;
      constexpr int kShift = kCovered < kLeft ? kCovered : kLeft;
      const U8<N> shorter = extreme;
      extreme = Extreme::Of(shorter, BytesFrom<kShift>(shorter, right_[step]));
      right_[step] = shorter;
    });
    return extreme;
  }

 private:
  static constexpr int kLoaded = kRun == 5 ? 3 : 2;
  static constexpr int kSteps = std::bit_width(static_cast<unsigned>((kRun - 1) / kLoaded));
  const uint8_t* row_;
  U8<N> right_[kSteps] = {};
};

// Blocks are written to aligned addresses, but for the first and the last one of a row.
template <class Extreme, int kRun, int N = kVectorBytes>
void OfRun(const uint8_t* row, uint8_t* out, int count) {
  if (count >= N) {
    RunBlocks<Extreme, kRun, N> blocks(row);
    blocks.Block(count);
    Store(out + count - N, blocks.Block(count - N));
    int x = count - static_cast<int>(reinterpret_cast<uintptr_t>(out + count) % N);
    blocks.Block(x);
    for (x -= N; x >= 0; x -= N) Store(out + x, blocks.Block(x));
    if (x == -N) return;
    blocks.Block(N);
    Store(out, blocks.Block(0));
  } else if constexpr (N > 16) {
    OfRun<Extreme, kRun, N / 2>(row, out, count);
  } else {
    for (int x = 0; x < count; ++x) {
      out[x] = row[x];
      for (int i = 1; i < kRun; ++i) out[x] = Extreme::Of(out[x], row[x + i]);
    }
  }
}

template <class Extreme>
void OfRuns(const uint8_t* row, int run, uint8_t* out, int count) {
  WithConstant<5, 7, 8, 16>(run, [&](auto n) { OfRun<Extreme, n>(row, out, count); });
}

// The widest block that is worth it for elements of few rows. Vectors of 64 bytes move, compare and
// store no more bytes a cycle than those of 32, and more of their unaligned loads cross two lines
// of the cache.
constexpr int kNarrow = kVectorBytes < 32 ? kVectorBytes : 32;

template <class V>
struct Four {
  V row[4];
};

// The four results of FourOfRows for one block of columns.
template <class Extreme, int kTerms, int N>
QUILLON_INLINE auto FourWindows(const uint8_t* const* rows, int x) {
  const auto load = [&](int i) { return LoadBlock<N>(rows[i] + x); };
  // What the first two windows share, and the last two.
  auto first = Extreme::Of(load(1), load(2));
  auto second = Extreme::Of(load(kTerms), load(kTerms + 1));
  if constexpr (kTerms > 3) {
    auto all = load(3);
    for (int i = 4; i < kTerms; ++i) all = Extreme::Of(all, load(i));
    first = Extreme::Of(first, all);
    second = Extreme::Of(second, all);
  }
  return Four<decltype(first)>{Extreme::Of(first, load(0)), Extreme::Of(first, load(kTerms)),
                               Extreme::Of(second, load(2)), Extreme::Of(second, load(kTerms + 2))};
}

template <class Extreme, int kTerms>
void FourOfTerms(const uint8_t* const* from, uint8_t* const* to, int count) {
  const uint8_t* rows[kTerms + 3];
  CopyPointers<kTerms + 3>(from, rows);
  uint8_t* out[4];
  CopyPointers<4>(to, out);
  CoverWithBlocks<kNarrow>(out[0], count, [&](auto width, int x) {
    const auto windows = FourWindows<Extreme, kTerms, width>(rows, x);
    for (int i = 0; i < 4; ++i) StoreBlock(out[i] + x, windows.row[i]);
  });
}

// Once row i is shifted by i columns, slanted windows are upright ones. The four results then begin
// and end at different columns: the part that they share goes to FourOfTerms, and both ends of each
// row are computed by a block of its own.
template <class Extreme, int kTerms>
void FourOfSlantedTerms(const uint8_t* const* from, int slant, uint8_t* const* to, int count) {
  constexpr int kEnd = 16;
  const uint8_t* rows[kTerms + 3];
  CopyPointers<kTerms + 3>(from, rows);
  uint8_t* out[4];
  CopyPointers<4>(to, out);
  for (int i = 0; i < kTerms + 3; ++i) rows[i] += slant * i;
  for (int i = 0; i < 4; ++i) out[i] += slant * i;
  const auto row = [&](int i, auto width, int x) {
    x -= slant * i;
    auto extreme = LoadBlock<width>(rows[i] + x);
    for (int k = 1; k < kTerms; ++k) {
      extreme = Extreme::Of(extreme, LoadBlock<width>(rows[i + k] + x));
    }
    StoreBlock(out[i] + x, extreme);
  };
  if (count < kEnd) {
    for (int i = 0; i < 4; ++i) {
      for (int x = 0; x < count; ++x) row(i, Width<1>{}, x);
    }
    return;
  }
  const int begin = slant > 0 ? 0 : 3;
  for (const uint8_t*& each : rows) each += begin;
  for (uint8_t*& each : out) each += begin;
  FourOfTerms<Extreme, kTerms>(rows, out, count - 3);
  for (int i = 0; i < 4; ++i) {
    row(i, Width<kEnd>{}, -begin);
    row(i, Width<kEnd>{}, count - kEnd - begin);
  }
}

// The same as RunBlocks for runs of 3, 5 and 7, but from blocks that are in registers instead of
// memory, and from left to right: a run ends at its place. Rows that go up in memory come sooner.
template <class Extreme, int kRun, class V>
class RunsOfBlocks {
 public:
  // What lies to the left of the first block.
  QUILLON_INLINE void Begin(V pixels) { one_ = two_ = four_ = pixels; }
  QUILLON_INLINE V Next(V one) {
    constexpr int kEnd = sizeof(V);
    const V two = Extreme::Of(one, BytesFrom<kEnd - 1>(one_, one));
    V run;
    if constexpr (kRun == 3) {
      run = Extreme::Of(two, BytesFrom<kEnd - 2>(one_, one));
    } else {
      const V four = Extreme::Of(two, BytesFrom<kEnd - 2>(two_, two));
      if constexpr (kRun == 5) {
        run = Extreme::Of(four, BytesFrom<kEnd - 4>(one_, one));
      } else {
        run = Extreme::Of(four, BytesFrom<kEnd - 3>(four_, four));
        four_ = four;
      }
      two_ = two;
    }
    one_ = one;
    return run;
  }

 private:
  V one_, two_, four_;
};

// Boxes: the results of windows along columns go straight on, in registers, to runs along the row.
// At either end of a row, where boxes reach over the edge, results are put together from two
// blocks.
template <class Extreme, int kSize, int N>
void FourOfBoxBlocks(const uint8_t* const* from, uint8_t* const* to, int width, int inset) {
  using V = U8<N>;
  constexpr int kRadius = kSize / 2;
  const uint8_t* rows[kSize + 3];
  CopyPointers<kSize + 3>(from, rows);
  uint8_t* out[4];  // for the column where a box ends
  CopyPointers<4>(to, out);
  for (uint8_t*& each : out) each -= kRadius + inset;
  // Stores one of two candidates for a row's end: the lanes for an inset of 0, or for 1. Both are
  // made in registers; storing the blocks and loading across them would wait for the stores.
  const auto storeLanes = [&](V without, V with, uint8_t* at) {
    Store(at, inset == 0 ? without : with);
  };

  RunsOfBlocks<Extreme, kSize, V> runs[4];
  const Four<V> first = FourWindows<Extreme, kSize, N>(rows, 0);
  const Four<V> second = FourWindows<Extreme, kSize, N>(rows, N);
  for (int i = 0; i < 4; ++i) {
    runs[i].Begin(SplatLane<0>(first.row[i]));
    const V low = runs[i].Next(first.row[i]);
    const V high = runs[i].Next(second.row[i]);
    Store(out[i] + N, high);
    storeLanes(BytesFrom<kRadius>(low, high), BytesFrom<kRadius + 1>(low, high), to[i]);
  }
  for (int x = 2 * N; x <= width - N; x += N) {
    const Four<V> block = FourWindows<Extreme, kSize, N>(rows, x);
    for (int i = 0; i < 4; ++i) Store(out[i] + x, runs[i].Next(block.row[i]));
  }
  const Four<V> beforeLast = FourWindows<Extreme, kSize, N>(rows, width - 2 * N);
  const Four<V> last = FourWindows<Extreme, kSize, N>(rows, width - N);
  for (int i = 0; i < 4; ++i) {
    runs[i].Next(beforeLast.row[i]);
    const V low = runs[i].Next(last.row[i]);
    const V high = runs[i].Next(SplatLane<N - 1>(last.row[i]));
    Store(out[i] + width - N, low);
    storeLanes(BytesFrom<kRadius>(low, high), BytesFrom<kRadius - 1>(low, high),
               to[i] + width - 2 * inset - N);
  }
}

template <class Extreme, int kSize, int N = kVectorBytes>
void FourOfBox(const uint8_t* const* from, uint8_t* const* out, int width, int inset) {
  // Boxes shuffle so much that blocks of 64 bytes are worth it, but on long rows alone: two of a
  // row may be computed twice.
  constexpr int kLeastBlocks = N <= kNarrow ? 2 : kSize > 3 ? 10 : 24;
  if (width >= kLeastBlocks * N) {
    FourOfBoxBlocks<Extreme, kSize, N>(from, out, width, inset);
  } else if constexpr (N > 16) {
    FourOfBox<Extreme, kSize, N / 2>(from, out, width, inset);
  } else {
    // Narrow rows go through copies that repeat their last pixel up to the width of two blocks.
    uint8_t copies[kSize + 3][2 * N], results[4][2 * N];
    const uint8_t* rows[kSize + 3];
    for (int i = 0; i < kSize + 3; ++i) {
      const auto last = Splat<uint8_t, N>(from[i][width - 1]);
      Store(copies[i], last);
      Store(copies[i] + N, last);
      __builtin_memcpy(copies[i], from[i], static_cast<unsigned>(width));
      rows[i] = copies[i];
    }
    uint8_t* const to[] = {results[0], results[1], results[2], results[3]};
    FourOfBoxBlocks<Extreme, kSize, N>(rows, to, 2 * N, inset);
    for (int i = 0; i < 4; ++i) {
      __builtin_memcpy(out[i], results[i], static_cast<unsigned>(width - 2 * inset));
    }
  }
}

template <class Extreme>
void FourOfRows(const uint8_t* const* from, int terms, uint8_t* const* out, int count) {
  WithConstant<3, 4, 5, 6, 7>(terms, [&](auto n) { FourOfTerms<Extreme, n>(from, out, count); });
}

template <class Extreme>
void FourOfSlants(const uint8_t* const* from, int terms, int slant, uint8_t* const* out,
                  int count) {
  WithConstant<3, 4, 5, 6, 7>(
      terms, [&](auto n) { FourOfSlantedTerms<Extreme, n>(from, slant, out, count); });
}

template <class Extreme>
void FourOfBoxes(const uint8_t* const* from, int size, uint8_t* const* out, int width, int inset) {
  WithConstant<3, 5, 7>(size, [&](auto n) { FourOfBox<Extreme, n>(from, out, width, inset); });
}

template <class Extreme>
void FourOfCrosses(const uint8_t* const* from, uint8_t* const* to, int count) {
  const uint8_t* rows[6];
  for (int i = 0; i < 6; ++i) rows[i] = from[i] + 1;
  uint8_t* const out[] = {to[0], to[1], to[2], to[3]};
  CoverWithBlocks<kNarrow>(out[0], count, [&](auto width, int x) {
    const auto load = [&](int i) { return LoadBlock<width>(rows[i] + x); };
    const auto store = [&](int i, auto along) {
      const auto beside =
          Extreme::Of(LoadBlock<width>(rows[i + 1] + x - 1), LoadBlock<width>(rows[i + 1] + x + 1));
      StoreBlock(out[i] + x, Extreme::Of(along, beside));
    };
    // Of three rows, two enter the next window as well.
    const auto first = Extreme::Of(load(1), load(2)), second = Extreme::Of(load(3), load(4));
    store(0, Extreme::Of(load(0), first));
    store(1, Extreme::Of(first, load(3)));
    store(2, Extreme::Of(load(2), second));
    store(3, Extreme::Of(second, load(5)));
  });
}

template <class Extreme>
void Suffixes(uint8_t* rows, ptrdiff_t stride, int rowCount, int count) {
  CoverWithBlocks(rows, count, [&](auto width, int x) {
    uint8_t* row = rows + (rowCount - 1) * stride + x;
    auto extreme = LoadBlock<width>(row);
    for (int i = rowCount - 2; i >= 0; --i) {
      row -= stride;
      extreme = Extreme::Of(extreme, LoadBlock<width>(row));
      StoreBlock(row, extreme);
    }
  });
}

template <class Extreme>
void Slide(const uint8_t* row, const uint8_t* suffix, uint8_t* prefix, uint8_t* out, int count) {
  CoverWithBlocks(out, count, [&](auto width, int x) {
    const auto extreme = Extreme::Of(LoadBlock<width>(prefix + x), LoadBlock<width>(row + x));
    StoreBlock(prefix + x, extreme);
    StoreBlock(out + x, Extreme::Of(extreme, LoadBlock<width>(suffix + x)));
  });
}

// Hosts rely on the last columns as they are: a difference that is not negative is not stored.
void Subtract(const uint8_t* a, const uint8_t* b, uint8_t* out, int count) {
  const int whole = count / 8 * 8;
  const int blocks = ForEachBlock(whole, [&](auto width, int x) {
    Store(out + x, SubSaturate(Load<uint8_t, width>(a + x), Load<uint8_t, width>(b + x)));
  });
  for (int x = blocks; x < whole; ++x) out[x] = static_cast<uint8_t>(a[x] > b[x] ? a[x] - b[x] : 0);
  for (int x = whole; x < count; ++x) out[x] = a[x] < b[x] ? 0 : a[x];
}

template <class V>
struct Range {
  V least, largest;
};

template <class V>
QUILLON_INLINE Range<V> Join(Range<V> a, Range<V> b) {
  return {Min(a.least, b.least), Max(a.largest, b.largest)};
}

template <int N>
QUILLON_INLINE auto LoadRange(const uint8_t* from) {
  auto block = LoadBlock<N>(from);
  return Range<decltype(block)>{block, block};
}

// The range of three neighbours, the first of them at `from`.
template <int N>
QUILLON_INLINE auto RangeOf3(const uint8_t* from) {
  return Join(Join(LoadRange<N>(from), LoadRange<N>(from + 1)), LoadRange<N>(from + 2));
}

template <class V>
QUILLON_INLINE V Extent(Range<V> range) {
  if constexpr (sizeof(V) == 1) {
    return static_cast<uint8_t>(range.largest - range.least);
  } else {
    return range.largest - range.least;
  }
}

template <int kRows>
void GradientOfRows(const uint8_t* const* from, uint8_t* const* to, int count) {
  const uint8_t* rows[kRows + 2];
  for (int i = 0; i < kRows + 2; ++i) rows[i] = from[i];
  uint8_t* out[kRows];
  for (int i = 0; i < kRows; ++i) out[i] = to[i] + 1;
  CoverWithBlocks(out[0], count - 2, [&](auto width, int x) {
    auto before = RangeOf3<width>(rows[0] + x), here = RangeOf3<width>(rows[1] + x);
    Unroll<kRows>([&](auto i) {
      const auto after = RangeOf3<width>(rows[i + 2] + x);
      StoreBlock(out[i] + x, Extent(Join(Join(before, here), after)));
      before = here;
      here = after;
    });
  });
  for (int i = 0; i < kRows; ++i) {
    to[i][0] = to[i][1];
    to[i][count - 1] = to[i][count - 2];
    // In the last columns, a difference that is not negative is not stored: see Subtract.
    for (int x = count / 8 * 8; x < count; ++x) {
      // The first column of the window, which stays inside the row.
      const int left = x < 1 ? 0 : x > count - 2 ? count - 3 : x - 1;
      auto range = RangeOf3<1>(rows[i] + left);
      for (int k = 1; k < 3; ++k) range = Join(range, RangeOf3<1>(rows[i + k] + left));
      to[i][x] = range.largest;
    }
  }
}

void GradientOf3x3(const uint8_t* const* rows, int rowCount, uint8_t* const* out, int count) {
  if (rowCount == MorphKernels::kMaxGradientRows) {
    return GradientOfRows<MorphKernels::kMaxGradientRows>(rows, out, count);
  }
  for (int i = 0; i < rowCount; ++i) GradientOfRows<1>(rows + i, out + i, count);
}

template <class Extreme>
constexpr ExtremeKernels kExtreme = {.OfRows = OfRows<Extreme>,
                                     .OfRuns = OfRuns<Extreme>,
                                     .FourOfRows = FourOfRows<Extreme>,
                                     .FourOfSlants = FourOfSlants<Extreme>,
                                     .FourOfBoxes = FourOfBoxes<Extreme>,
                                     .FourOfCrosses = FourOfCrosses<Extreme>,
                                     .Suffixes = Suffixes<Extreme>,
                                     .Slide = Slide<Extreme>};

}  // namespace

const MorphKernels morph = {.maximum = kExtreme<Maximum>,
                            .minimum = kExtreme<Minimum>,
                            .Subtract = Subtract,
                            .GradientOf3x3 = GradientOf3x3};

}  // namespace quillon::QUILLON_LEVEL
