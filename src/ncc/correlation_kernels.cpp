// Kernels of the correlation. Compiled once per level.
#include "ncc/correlation_kernels.h"

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

template <class V>
QUILLON_INLINE uint64_t SumLanes(V v) {
  uint64_t sum = 0;
  for (size_t i = 0; i < sizeof(V) / sizeof(v[0]); ++i) sum += static_cast<uint64_t>(v[i]);
  return sum;
}

// Where a lane can add four products of bytes, but the second ones have a sign, that side is
// shifted down by 128. Where it cannot, bytes are multiplied as 16-bit numbers.
#if QUILLON_BYTE_DOTS
constexpr int kBias = std::is_same_v<DotFactor, int8_t> ? 128 : 0;
#else
constexpr int kBias = 0;
#endif

// Each lane plus the products of four neighbouring bytes a and b - kBias: at most 4 * 255^2.
template <class Sums, class V>
QUILLON_INLINE Sums AddByteProducts(Sums sums, V a, V b) {
#if QUILLON_BYTE_DOTS
  return AddDotBytes(sums, a, b ^ kBias);
#else
  using Words = I16<sizeof(V) / 2>;
  return sums + DotPairs(BitCast<Words>(EvenBytes(a)), BitCast<Words>(EvenBytes(b))) +
         DotPairs(BitCast<Words>(OddBytes(a)), BitCast<Words>(OddBytes(b)));
#endif
}

// Sums of a, of a * a and of a * b, a vector at a time.
template <int kBytes>
struct ProductAccumulator {
  U64<kBytes / 8> values = {};
  I32<kBytes / 4> squares = {}, products = {};

  QUILLON_INLINE void Add(U8<kBytes> a, U8<kBytes> b) {
    values += SumsOf8(a);
    squares = AddByteProducts(squares, a, a);
    products = AddByteProducts(products, a, b);
  }
  QUILLON_INLINE void MoveTo(uint64_t (&sums)[3]) {
    const uint64_t value = SumLanes(values);
    sums[0] += value;
    sums[1] += SumLanes(squares) + kBias * value;
    sums[2] += SumLanes(products) + kBias * value;
    *this = {};
  }
};

// From byte 16 - n on, the last n of 16 bytes.
alignas(16) constexpr uint8_t kLastBytes[32] = {
    0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255};

void SumProducts(const uint8_t* a, ptrdiff_t aPitch, const uint8_t* b, ptrdiff_t bPitch, int count,
                 int rows, uint64_t (&sums)[3]) {
  // Lanes of 32 bits hold 8256 sums of four products; they are emptied in time. After the blocks of
  // a row, at most kVectorBytes / 16 more vectors come.
  constexpr int kMost = 8192;
  sums[0] = sums[1] = sums[2] = 0;
  ProductAccumulator<kVectorBytes> wide;
  ProductAccumulator<16> narrow;
  int held = 0;
  for (int y = 0; y < rows; ++y, a += aPitch, b += bPitch) {
    int x = 0;
    while (x <= count - kVectorBytes) {
      const int blocks = (count - x) / kVectorBytes, room = kMost - held;
      const int end = x + (blocks < room ? blocks : room) * kVectorBytes;
      held += (end - x) / kVectorBytes;
      for (; x < end; x += kVectorBytes) {
        wide.Add(Load<uint8_t, kVectorBytes>(a + x), Load<uint8_t, kVectorBytes>(b + x));
      }
      if (held == kMost) wide.MoveTo(sums), narrow.MoveTo(sums), held = 0;
    }
    for (; x <= count - 16; x += 16, ++held) {
      narrow.Add(Load<uint8_t, 16>(a + x), Load<uint8_t, 16>(b + x));
    }
    const int rest = count - x;
    if (rest > 0 && count >= 16) {
      const auto part = Load<uint8_t, 16>(a + count - 16) & Load<uint8_t, 16>(kLastBytes + rest);
      narrow.Add(part, Load<uint8_t, 16>(b + count - 16));
      ++held;
    } else {
      for (; x < count; ++x) {
        sums[0] += a[x];
        sums[1] += static_cast<uint64_t>(a[x] * a[x]);
        sums[2] += static_cast<uint64_t>(a[x] * b[x]);
      }
    }
    if (held >= kMost) wide.MoveTo(sums), narrow.MoveTo(sums), held = 0;
  }
  wide.MoveTo(sums);
  narrow.MoveTo(sums);
}

// ---- packed rows --------------------------------------------------------------------------------
// Patterns are shifted down by kBias.

#if QUILLON_BYTE_DOTS
using Element = uint8_t;
#else
using Element = int16_t;
#endif
constexpr int kGroup = 4 / static_cast<int>(sizeof(Element));  // products a lane

template <int kBytes>
QUILLON_INLINE I32<kBytes / 4> AddProducts(I32<kBytes / 4> sums, U8<kBytes> image,
                                           U8<kBytes> pattern) {
#if QUILLON_BYTE_DOTS
  return AddDotBytes(sums, image, pattern);
#else
  // Sums run to 2^32 and are read without sign.
  return AddDotPairs(sums, BitCast<I16<kBytes / 2>>(image), BitCast<I16<kBytes / 2>>(pattern));
#endif
}

void PackImage(const uint8_t* pixels, int count, uint8_t* packed) {
  auto* out = reinterpret_cast<Element*>(packed);
  for (int x = 0; x < count; ++x) out[x] = pixels[x];
}

// Stores a plane's sums, or adds them to those of the planes before.
template <class V>
QUILLON_INLINE void Pool(V sums, int planes, uint32_t* to) {
  Store(to, planes > 1 ? sums + Load<uint32_t, kVectorBytes / 4>(to) : sums);
}

void AddRunningSums(const uint8_t* pixels, int count, int planes, uint32_t* values,
                    uint32_t* squares) {
  constexpr int kLanes = kVectorBytes / 4;
  constexpr uint32_t kZero = 128u * 128u - (128u << kJointShift);  // what a pixel of 0 adds
  U32<kLanes> columns = {};
  for (int i = 0; i < kLanes; ++i) columns[i] = static_cast<uint32_t>(i + 1);
  values[0] = 0;
  if (squares) squares[0] = 0;
  I32<kLanes> valueBefore = {}, squareBefore = {};
  for (int x = 0; x < count; x += kLanes, columns += kLanes) {
    const auto pixel = BitCast<I32<kLanes>>(LoadBytesAsLongs(pixels + x));
    const auto words = BitCast<I16<2 * kLanes>>(pixel);
    const auto valueSums = PrefixSums(pixel) + valueBefore;
    const auto squareSums = PrefixSums(DotPairs(words, words)) + squareBefore;
    valueBefore = SplatLast(valueSums);
    squareBefore = SplatLast(squareSums);
    auto value = BitCast<U32<kLanes>>(valueSums);
    const auto square = BitCast<U32<kLanes>>(squareSums);
    if (squares) {
      Pool(square, planes, squares + 1 + x);
    } else {
      value = square + (value << kJointShift) - (value << 8) + columns * kZero;
    }
    Pool(value, planes, values + 1 + x);
  }
}

void PackPattern(const uint8_t* pixels, const uint8_t* care, int count, uint8_t* packed) {
  auto* out = reinterpret_cast<Element*>(packed);
  constexpr int kWhole = 64 / static_cast<int>(sizeof(Element));
  int x = 0;
  for (; x < count; ++x) out[x] = care[x] ? static_cast<Element>(pixels[x] - kBias) : Element{0};
  for (; x % kWhole != 0; ++x) out[x] = 0;
}

template <bool kUpper, class V, int... i>
QUILLON_INLINE V Zip(V a, V b, std::integer_sequence<int, i...>) {
  constexpr int kAll = sizeof...(i);
  return __builtin_shufflevector(a, b, (i / 2 + (kUpper ? kAll / 2 : 0) + i % 2 * kAll)...);
}
// The lanes of a and b in turn, a[0] b[0] a[1] b[1] ...: the first half of them, or the second.
template <bool kUpper, class V>
QUILLON_INLINE V Zip(V a, V b) {
  return Zip<kUpper>(a, b, std::make_integer_sequence<int, sizeof(V) / 4>{});
}

// The sums of kBytes positions' products, or of as many as four vectors of that width hold. Lane j
// of sums r belongs to position kGroup * j + r: loads at neighbouring elements give the positions
// in between without a shuffle.
template <int kBytes>
QUILLON_INLINE void CorrelateBlock(const PackedRow* rows, int rowCount, ptrdiff_t offset,
                                   uint32_t* out) {
  constexpr int kLanes = kBytes / 4, kSums = 4;
  constexpr int kStep = static_cast<int>(sizeof(Element));
  using V = I32<kLanes>;
  V sums[kSums] = {};
  for (const PackedRow* row = rows; row != rows + rowCount; ++row) {
    const uint8_t* image = row->image + offset;
    const uint8_t* pattern = row->pattern;
    for (int i = 0; i < row->count; i += kGroup, image += 4, pattern += 4) {
      int32_t group;
      __builtin_memcpy(&group, pattern, 4);
      const auto wanted = BitCast<U8<kBytes>>(Splat<int32_t, kLanes>(group));
      for (int r = 0; r < kSums; ++r) {
        const int at = r / kGroup * kBytes + r % kGroup * kStep;
        sums[r] = AddProducts<kBytes>(sums[r], Load<uint8_t, kBytes>(image + at), wanted);
      }
    }
  }
  const auto store = [&](int i, V sum) { Store(out + i * kLanes, BitCast<U32<kLanes>>(sum)); };
  if constexpr (kGroup == 2) {
    for (int i = 0; i < kSums; i += 2) {
      store(i, Zip<false>(sums[i], sums[i + 1]));
      store(i + 1, Zip<true>(sums[i], sums[i + 1]));
    }
  } else {
    const V evenLow = Zip<false>(sums[0], sums[2]), oddLow = Zip<false>(sums[1], sums[3]);
    const V evenHigh = Zip<true>(sums[0], sums[2]), oddHigh = Zip<true>(sums[1], sums[3]);
    store(0, Zip<false>(evenLow, oddLow));
    store(1, Zip<true>(evenLow, oddLow));
    store(2, Zip<false>(evenHigh, oddHigh));
    store(3, Zip<true>(evenHigh, oddHigh));
  }
}

void CorrelateRow(const PackedRow* rows, int rowCount, ptrdiff_t offset, int count, uint32_t* out) {
  constexpr int kBlock = kVectorBytes;  // positions
  constexpr int kStep = static_cast<int>(sizeof(Element));
  for (int x = 0; x < count; x += kBlock) {
    if constexpr (kBlock == 64) {  // so wide that half of a last block is often left empty
      if (count - x <= kBlock / 2) {
        return CorrelateBlock<kVectorBytes / 2>(rows, rowCount, offset + x * kStep, out + x);
      }
    }
    CorrelateBlock<kVectorBytes>(rows, rowCount, offset + x * kStep, out + x);
  }
}

template <int kBytes, int kCount>
QUILLON_INLINE void CorrelateWindow(const PackedRow* rows, int rowCount, ptrdiff_t offset,
                                    uint32_t* out) {
  constexpr int kStep = static_cast<int>(sizeof(Element));
  I32<kBytes / 4> sums[kCount] = {};
  for (const PackedRow* row = rows; row != rows + rowCount; ++row) {
    const uint8_t* image = row->image + offset;
    for (int i = 0; i < row->count * kStep; i += kBytes) {
      const auto pattern = Load<uint8_t, kBytes>(row->pattern + i);
      for (int c = 0; c < kCount; ++c) {
        sums[c] =
            AddProducts<kBytes>(sums[c], Load<uint8_t, kBytes>(image + i + c * kStep), pattern);
      }
    }
  }
  for (int c = 0; c < kCount; ++c) {
    uint32_t sum = 0;
    for (int j = 0; j < kBytes / 4; ++j) sum += static_cast<uint32_t>(sums[c][j]);
    out[c] = sum;
  }
}

void CorrelateWindow(const PackedRow* rows, int rowCount, ptrdiff_t offset, int count,
                     uint32_t* out) {
  int longest = 0;
  for (int row = 0; row < rowCount; ++row) {
    longest = rows[row].count > longest ? rows[row].count : longest;
  }
  const auto run = [&](auto bytes) {
    if (count <= 5) {
      CorrelateWindow<bytes, 5>(rows, rowCount, offset, out);
    } else {
      CorrelateWindow<bytes, 7>(rows, rowCount, offset, out);
    }
  };
  const int bytes = longest * static_cast<int>(sizeof(Element));
  if (kVectorBytes >= 64 && bytes > 32) return run(Width<kVectorBytes>{});
  if (kVectorBytes >= 32 && bytes > 16) return run(Width < kVectorBytes < 32 ? 16 : 32 > {});
  run(Width<16>{});
}

void SumRuns(const RunSum* runs, int runCount, ptrdiff_t offset, int count, uint32_t* values,
             uint32_t* squares) {
  constexpr int kLanes = kVectorBytes / 4;
  for (int x = 0; x < count; x += kLanes) {
    U32<kLanes> valueSum = {}, squareSum = {};
    for (const RunSum* run = runs; run != runs + runCount; ++run) {
      const uint32_t* v = run->values + offset + x;
      const uint32_t* q = run->squares + offset + x;
      valueSum += Load<uint32_t, kLanes>(v + run->length) - Load<uint32_t, kLanes>(v);
      squareSum += Load<uint32_t, kLanes>(q + run->length) - Load<uint32_t, kLanes>(q);
    }
    Store(values + x, valueSum);
    Store(squares + x, squareSum);
  }
}

void SumShortRuns(const JointRun* runs, int runCount, int valueCount, ptrdiff_t offset, int count,
                  uint32_t* values, uint32_t* squares) {
  constexpr int kLanes = kVectorBytes / 4;
  using V = U32<kLanes>;
  const auto n = static_cast<uint32_t>(valueCount);
  for (int x = 0; x < count; x += kLanes) {
    V sum = {}, valueSum = {};
    for (const JointRun* run = runs; run != runs + runCount; ++run) {
      const uint32_t* from = run->sums + offset + x;
      const V joint = Load<uint32_t, kLanes>(from + run->length) - Load<uint32_t, kLanes>(from);
      sum += joint;
      valueSum += BitCast<V>(BitCast<I32<kLanes>>(joint) >> kJointShift);
    }
    const V squareSum = sum - (valueSum << kJointShift);  // of pixels less 128, as valueSum
    Store(values + x, valueSum + 128 * n);
    Store(squares + x, squareSum + (valueSum << 8) + 128 * 128 * n);
  }
}

// covariance^2 > score^2 dev(I) dev(T) without dividing. The slack is far wider than the rounding
// of either side, and far narrower than what would let a flat patch pass in numbers.
template <int kProductBias, class Sum>
int FindPromising(const Sum* values, const Sum* squares, const Sum* products, int count,
                  const ScoreBound& bound, int* positions) {
  constexpr int kLanes = kVectorBytes / 8;
  constexpr double kSlack = 1e-11;
  int found = 0;
  const auto wide = [](const Sum* from) {
    return Convert<double, kLanes>(Load<Sum, kLanes>(from));
  };
  for (int x = 0; x < count; x += kLanes) {
    const auto s = wide(values + x), q = wide(squares + x);
    const auto c = wide(products + x) + s * static_cast<double>(kProductBias);
    const auto covariance = c * (1 + kSlack) - s * bound.mean;
    const auto deviation = q * (1 - kSlack) - s * s * bound.inverseCount;
    const auto good = (covariance > 0.0) & (covariance * covariance > bound.squared * deviation);
    uint64_t mask = MoveMask(BitCast<U8<kVectorBytes>>(good));
    if (count - x < kLanes) mask &= (uint64_t{1} << 8 * (count - x)) - 1;
    while (mask != 0) {
      const int lane = __builtin_ctzll(mask) / 8;
      positions[found++] = x + lane;
      mask &= ~(uint64_t{0xFF} << 8 * lane);
    }
  }
  return found;
}

int PromisingOfBand(const uint32_t* values, const uint32_t* squares, const uint32_t* products,
                    int count, const ScoreBound& bound, int* positions) {
  const auto sums = [](const uint32_t* from) { return reinterpret_cast<const int32_t*>(from); };
  return FindPromising<kBias>(sums(values), sums(squares), sums(products), count, bound, positions);
}

int PromisingOfFew(const uint32_t* values, const uint32_t* squares, const uint32_t* products,
                   int count, const FewBound& bound, int* positions) {
  constexpr int kLanes = kVectorBytes / 4;
  constexpr float kSlack = 1e-6f;  // wider than the rounding of single precision
  using V = U32<kLanes>;
  const V n = Splat<uint32_t, kLanes>(static_cast<uint32_t>(bound.count));
  const V cross = Splat<uint32_t, kLanes>(static_cast<uint32_t>(bound.cross));
  const auto squared = Splat<float, kLanes>(bound.squared * (1 - kSlack));
  const auto numbers = [](V v) { return Convert<float, kLanes>(BitCast<I32<kLanes>>(v)); };
  int found = 0;
  for (int x = 0; x < count; x += kLanes) {
    const V s = Load<uint32_t, kLanes>(values + x), q = Load<uint32_t, kLanes>(squares + x);
    const V c = Load<uint32_t, kLanes>(products + x);
    const auto covariance = numbers(n * c + cross * s), deviation = numbers(n * q - s * s);
    const auto good = (covariance > 0.0f) & (covariance * covariance > squared * deviation);
    uint32_t mask = MoveWordMask(good);
    if (count - x < kLanes) mask &= (1u << (count - x)) - 1;
    for (; mask != 0; mask &= mask - 1) positions[found++] = x + __builtin_ctz(mask);
  }
  return found;
}

int Promising(const double* values, const double* squares, const double* products, int count,
              const ScoreBound& bound, int* positions) {
  return FindPromising<0>(values, squares, products, count, bound, positions);
}

}  // namespace

const CorrelationKernels correlation = {.SumProducts = SumProducts,
                                        .elementBytes = sizeof(Element),
                                        .patternBias = kBias,
                                        .PackImage = PackImage,
                                        .AddRunningSums = AddRunningSums,
                                        .PackPattern = PackPattern,
                                        .CorrelateRow = CorrelateRow,
                                        .CorrelateWindow = CorrelateWindow,
                                        .SumRuns = SumRuns,
                                        .SumShortRuns = SumShortRuns,
                                        .PromisingOfBand = PromisingOfBand,
                                        .PromisingOfFew = PromisingOfFew,
                                        .Promising = Promising};

}  // namespace quillon::QUILLON_LEVEL
