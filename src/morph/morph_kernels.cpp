// Row kernels of the morphology. Compiled once per level.
#include "morph/morph_kernels.h"

#include <algorithm>
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
  switch (terms) {
    case 2:
      return OfTerms<Extreme, 2>(from, out, count);
    case 3:
      return OfTerms<Extreme, 3>(from, out, count);
    case 4:
      return OfTerms<Extreme, 4>(from, out, count);
    case 5:
      return OfTerms<Extreme, 5>(from, out, count);
    case 6:
      return OfTerms<Extreme, 6>(from, out, count);
    case 7:
      return OfTerms<Extreme, 7>(from, out, count);
  }
}

// Lanes kShift, kShift + 1 ... of `low`, then the first ones of `high`; kShift is 1 ... 15.
template <int kShift, class V>
QUILLON_INLINE V LanesFrom(V low, V high) {
  if constexpr (sizeof(V) == 16) {
    return BitCast<V>(_mm_srli_si128(BitCast<__m128i>(low), kShift) |
                      _mm_slli_si128(BitCast<__m128i>(high), 16 - kShift));
#if QUILLON_AVX2
  } else if constexpr (sizeof(V) == 32) {
    const __m256i from = BitCast<__m256i>(low);
    const __m256i next = _mm256_permute2x128_si256(from, BitCast<__m256i>(high), 0x21);
    return BitCast<V>(_mm256_alignr_epi8(next, from, kShift));
#endif
#if QUILLON_AVX512
  } else {
    const __m512i from = BitCast<__m512i>(low);
    const __m512i next = _mm512_maskz_alignr_epi64(0xFF, BitCast<__m512i>(high), from, 2);
    return BitCast<V>(_mm512_alignr_epi8(next, from, kShift));
#endif
  }
}

// Extremes of runs, a block after the one to its right. Each step joins the extremes of two shorter
// runs, the second one's from the same step of the block before.
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
      constexpr int kCovered = kLoaded << step;
      const U8<N> shorter = extreme;
      extreme = Extreme::Of(shorter,
                            LanesFrom<std::min(kCovered, kRun - kCovered)>(shorter, right_[step]));
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

// Blocks that write to aligned addresses, and one at either end that does not.
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
  switch (run) {
    case 5:
      return OfRun<Extreme, 5>(row, out, count);
    case 7:
      return OfRun<Extreme, 7>(row, out, count);
    case 8:
      return OfRun<Extreme, 8>(row, out, count);
    case 16:
      return OfRun<Extreme, 16>(row, out, count);
  }
}

template <class Extreme, int kTerms>
void FourOfTerms(const uint8_t* const* from, uint8_t* const* to, int count) {
  const uint8_t* rows[kTerms + 3];
  for (int i = 0; i < kTerms + 3; ++i) rows[i] = from[i];
  uint8_t* const out[] = {to[0], to[1], to[2], to[3]};
  CoverWithBlocks(out[0], count, [&](auto width, int x) {
    const auto load = [&](int i) { return LoadBlock<width>(rows[i] + x); };
    // What the first two windows share, and the last two.
    auto first = Extreme::Of(load(1), load(2));
    auto second = Extreme::Of(load(kTerms), load(kTerms + 1));
    if constexpr (kTerms > 3) {
      auto all = load(3);
      for (int i = 4; i < kTerms; ++i) all = Extreme::Of(all, load(i));
      first = Extreme::Of(first, all);
      second = Extreme::Of(second, all);
    }
    StoreBlock(out[0] + x, Extreme::Of(first, load(0)));
    StoreBlock(out[1] + x, Extreme::Of(first, load(kTerms)));
    StoreBlock(out[2] + x, Extreme::Of(second, load(2)));
    StoreBlock(out[3] + x, Extreme::Of(second, load(kTerms + 2)));
  });
}

template <class Extreme>
void FourOfRows(const uint8_t* const* from, int terms, uint8_t* const* out, int count) {
  switch (terms) {
    case 3:
      return FourOfTerms<Extreme, 3>(from, out, count);
    case 4:
      return FourOfTerms<Extreme, 4>(from, out, count);
    case 5:
      return FourOfTerms<Extreme, 5>(from, out, count);
    case 6:
      return FourOfTerms<Extreme, 6>(from, out, count);
    case 7:
      return FourOfTerms<Extreme, 7>(from, out, count);
  }
}

template <class Extreme>
void FourOfCrosses(const uint8_t* const* from, uint8_t* const* to, int count) {
  const uint8_t* rows[6];
  for (int i = 0; i < 6; ++i) rows[i] = from[i] + 1;
  uint8_t* const out[] = {to[0], to[1], to[2], to[3]};
  CoverWithBlocks(out[0], count, [&](auto width, int x) {
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
    // The subtraction's last columns.
    for (int x = count / 8 * 8; x < count; ++x) {
      const int left = std::clamp(x, 1, count - 2) - 1;
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
                                     .FourOfCrosses = FourOfCrosses<Extreme>,
                                     .Suffixes = Suffixes<Extreme>,
                                     .Slide = Slide<Extreme>};

}  // namespace

const MorphKernels morph = {.maximum = kExtreme<Maximum>,
                            .minimum = kExtreme<Minimum>,
                            .Subtract = Subtract,
                            .GradientOf3x3 = GradientOf3x3};

}  // namespace quillon::QUILLON_LEVEL
