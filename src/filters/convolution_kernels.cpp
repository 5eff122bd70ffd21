// Row kernels of the convolution. Compiled once per level.
#include "filters/convolution_kernels.h"

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

constexpr int kBlock = kVectorBytes;  // columns at a time
constexpr int kLanes = kBlock / 2;
constexpr int kQuarter = kBlock / 4;
using Bytes = U8<kBlock>;
using Words = I16<kLanes>;
using Longs = I32<kQuarter>;
using ULongs = U32<kQuarter>;
using Floats = F32<kQuarter>;

// Row kernels are marked gnu::flatten, which inlines all that they call: a body that is called
// keeps its vectors in memory.

// Calls body(blocks, x) for columns from x on, kMost blocks at a time, so that weights are loaded
// once for them. The last, as few as reach the end, overlap those before.
template <int kMost, class Body>
QUILLON_INLINE void ForEachBlocks(int x, int count, const Body& body) {
  static_assert(kBlock <= kLeastColumns);
  constexpr int kColumns = kMost * kBlock;
  for (; x <= count - kColumns; x += kColumns) body(std::integral_constant<int, kMost>{}, x);
  if (x == count) return;
  if constexpr (kMost > 1) {
    const bool fewer = count - x <= kColumns / 2 || count < kColumns;
    if (fewer) return ForEachBlocks<kMost / 2>(x, count, body);
  }
  body(std::integral_constant<int, kMost>{}, count - kColumns);
}

// Calls body(blocks, x, slot) likewise, but for single blocks at the end; the slot of the last
// follows those of the others.
template <int kMost, class Body>
QUILLON_INLINE void ForEachSlot(int count, const Body& body) {
  static_assert(kBlock <= kLeastColumns);
  int x = 0;
  for (; x <= count - kMost * kBlock; x += kMost * kBlock) {
    body(std::integral_constant<int, kMost>{}, x, x);
  }
  for (; x <= count - kBlock; x += kBlock) body(std::integral_constant<int, 1>{}, x, x);
  if (x < count) body(std::integral_constant<int, 1>{}, count - kBlock, x);
}

// ---- sums of bytes ------------------------------------------------------------------------------

template <int kBlocks>
QUILLON_INLINE void SumBytes(const ByteTerm* terms, int termCount, int x, Words* even, Words* odd) {
  for (int t = 0; t < termCount; ++t) {
    const ByteTerm& term = terms[t];
    const auto evenWeights = BitCast<I8<kBlock>>(Splat<uint32_t, kQuarter>(term.even));
    const auto oddWeights = BitCast<I8<kBlock>>(Splat<uint32_t, kQuarter>(term.odd));
    for (int i = 0; i < kBlocks; ++i) {
      const auto pixels = KeepOnce(Load<uint8_t, kBlock>(term.from + x + i * kBlock));
      even[i] += DotBytePairs(pixels, evenWeights);
      odd[i] += DotBytePairs(pixels, oddWeights);
    }
  }
}

#if QUILLON_BYTE_SHUFFLES
constexpr struct {
  alignas(64) uint8_t places[64] = {0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15,
                                    0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15,
                                    0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15,
                                    0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15};
} kInterleaved;
#endif

// The lanes in turn, as bytes clamped to 0 ... 255: packed within 16 bytes, even places first, and
// then ordered there.
QUILLON_INLINE Bytes MergeClamped(Words even, Words odd) {
  const Bytes packed = PackWithin16(even, odd);
#if QUILLON_BYTE_SHUFFLES
  return ShuffleBytes(packed, Load<uint8_t, kBlock>(kInterleaved.places));
#else
  return ZipLow(packed, BytesFrom<kBlock / 2>(packed, Bytes{}));
#endif
}

template <bool kScaled>
[[gnu::flatten]] void ScaledByteSums(const ByteTerm* terms, int termCount,
                                     const ByteQuotient& given, int count, uint8_t* out) {
  const ByteQuotient quotient = given;
  const Words bias = Splat<int16_t, kLanes>(quotient.bias);
  const Words factor = Splat<int16_t, kLanes>(quotient.factor);
  const auto quotientOf = [=](Words sum) {
    return ShiftRight(kScaled ? MulHigh(sum, factor) : sum, quotient.shift);
  };
  ForEachBlocks<4>(0, count, [=](auto blocks, int x) {
    Words even[blocks], odd[blocks];
    for (int i = 0; i < blocks; ++i) even[i] = odd[i] = bias;
    SumBytes<blocks>(terms, termCount, x, even, odd);
    // Not a loop: sums that are found by their number would have to lie in memory.
    Unroll<blocks>([&](auto i) {
      Store(out + x + i * kBlock, MergeClamped(quotientOf(even[i]), quotientOf(odd[i])));
    });
  });
}

void ByteSums(const ByteTerm* terms, int termCount, const ByteQuotient& quotient, int count,
              uint8_t* out) {
  (quotient.factor ? ScaledByteSums<true> : ScaledByteSums<false>)(terms, termCount, quotient,
                                                                   count, out);
}

// ---- pairs of rows ------------------------------------------------------------------------------

void PairPixels(const uint8_t* upper, const uint8_t* lower, int count, int16_t* pairs) {
  ForEachBlocks<1>(0, count, [&](auto, int first) {
    for (int x = first; x < first + kBlock; x += 16) {
      const auto a = Load<uint8_t, 16>(upper + x), b = Load<uint8_t, 16>(lower + x);
      StoreWidened(pairs + 2 * x, ZipLow(a, b));
      StoreWidened(pairs + 2 * x + 16, ZipHigh(a, b));
    }
  });
}

// Even columns first, and zipped within 16 bytes: SplitPairSums gets them back into their order by
// packing.
[[gnu::flatten]] void PairByteSums(const ByteTerm* upper, const ByteTerm* lower, int termCount,
                                   int count, int16_t* pairs) {
  ForEachSlot<2>(count, [&](auto blocks, int x, int slot) {
    Words upperEven[blocks] = {}, upperOdd[blocks] = {}, lowerEven[blocks] = {},
          lowerOdd[blocks] = {};
    SumBytes<blocks>(upper, termCount, x, upperEven, upperOdd);
    SumBytes<blocks>(lower, termCount, x, lowerEven, lowerOdd);
    int16_t* to = pairs + 2 * slot;
    for (int i = 0; i < blocks; ++i, to += 4 * kLanes) {
      Store(to, ZipLow(upperEven[i], lowerEven[i]));
      Store(to + kLanes, ZipHigh(upperEven[i], lowerEven[i]));
      Store(to + 2 * kLanes, ZipLow(upperOdd[i], lowerOdd[i]));
      Store(to + 3 * kLanes, ZipHigh(upperOdd[i], lowerOdd[i]));
    }
  });
}

// The sums of a block of columns in both result rows. There is at least one term.
QUILLON_INLINE void SumPairs(const PairTerms& list, int x, Longs (&first)[4], Longs (&second)[4]) {
  const auto forTerm = [&](const PairTerm& term, const auto& take) {
    const int16_t* from = term.from + 2 * x;
    const auto firstWeights = BitCast<Words>(Splat<uint32_t, kQuarter>(term.first));
    const auto secondWeights = BitCast<Words>(Splat<uint32_t, kQuarter>(term.second));
    for (int i = 0; i < 4; ++i) {
      const auto pairs = KeepOnce(Load<int16_t, kLanes>(from + i * kLanes));
      take(first[i], pairs, firstWeights);
      take(second[i], pairs, secondWeights);
    }
  };
  forTerm(list.terms[0], [](Longs& sum, Words pairs, Words w) { sum = DotPairs(pairs, w); });
  for (int t = 1; t < list.count; ++t) {
    forTerm(list.terms[t],
            [](Longs& sum, Words pairs, Words w) { sum = AddDotPairs(sum, pairs, w); });
  }
}

// Clamps to 0 ... 255 on the way. Words are in the order that PackWithin16 packs them in.
QUILLON_INLINE Bytes PackBytes(Words first, Words second) {
  return BitCast<Bytes>(ByPlaceWithin16(BitCast<Longs>(PackWithin16(first, second))));
}
QUILLON_INLINE Bytes PackBytes(const Longs (&values)[4]) {
  return PackBytes(PackWithin16(values[0], values[1]), PackWithin16(values[2], values[3]));
}

// The same of values in the order of PairByteSums.
QUILLON_INLINE Bytes PackSplitBytes(const Longs (&values)[4]) {
  return MergeClamped(PackWithin16(values[0], values[1]), PackWithin16(values[2], values[3]));
}

// The estimate is the quotient or one less. Modulo 2^32, and so without sign: the rest fits again.
QUILLON_INLINE Longs Corrected(Longs estimate, Longs sum, int32_t divisor) {
  const ULongs product = BitCast<ULongs>(estimate) * static_cast<uint32_t>(divisor);
  const auto rest = BitCast<Longs>(BitCast<ULongs>(sum) - product);
  return estimate - (rest > divisor - 1);
}

// Below 2^53 sums are exact in doubles. Half a unit more keeps the quotient at least
// 1 / (2 * divisor), that is 2^-38, away from the next integers; its error is below 2^-43.
QUILLON_INLINE Longs DoubleQuotient(Longs low, Longs high, double reciprocal) {
  constexpr int kHalf = kQuarter / 2;
  using Doubles = F64<kHalf>;
  const auto quotient = [&](auto lowHalf, auto highHalf) {
    const Doubles sum =
        Convert<double, kHalf>(lowHalf) + Convert<double, kHalf>(highHalf) * 65536.0;
    const Doubles value = (sum + 0.5) * reciprocal;
    return Min(Max(value, Doubles{}), Doubles{} + 255.0);
  };
  const Doubles first = quotient(Low(low), Low(high));
  const Doubles second = quotient(High(low), High(high));
  return Join(Convert<int32_t, kHalf>(first), Convert<int32_t, kHalf>(second));
}

template <PairQuotient::Way kWay>
QUILLON_INLINE Longs QuotientOf(Longs low, Longs high, const PairQuotient& quotient) {
  if constexpr (kWay == PairQuotient::kDouble) {
    return DoubleQuotient(low, high, quotient.doubleReciprocal);
  } else {
    const auto sum = BitCast<Longs>(BitCast<ULongs>(low) + (BitCast<ULongs>(high) << 16));
    if constexpr (kWay == PairQuotient::kShift) return ShiftRight(sum, quotient.shift);
    if constexpr (kWay == PairQuotient::kLong) {
      const Floats approximate =
          Convert<float, kQuarter>(low) + Convert<float, kQuarter>(high) * 65536.0f;
      const Floats estimate = approximate * quotient.reciprocal - 0.25f;
      return Corrected(Convert<int32_t, kQuarter>(estimate), sum, quotient.divisor);
    }
    const auto estimate =
        Convert<int32_t, kQuarter>(Convert<float, kQuarter>(sum) * quotient.reciprocal);
    if constexpr (kWay == PairQuotient::kFloat) return estimate;
    return Corrected(estimate, sum, quotient.divisor);
  }
}

enum class Order { kNatural, kSplit };

template <PairQuotient::Way kWay, bool kHigh, Order kOrder>
[[gnu::flatten]] void PairSumsBy(const PairTerms& givenLow, const PairTerms& givenHigh,
                                 const PairQuotient& given, int count, uint8_t* const* givenOut) {
  const PairTerms lowTerms = givenLow, highTerms = givenHigh;
  const PairQuotient quotient = given;
  uint8_t* const out[2] = {givenOut[0], givenOut[1]};
  ForEachSlot<1>(count, [&](auto, int x, int slot) {
    constexpr bool kSplit = kOrder == Order::kSplit;
    Longs low[2][4], high[2][4] = {};
    SumPairs(lowTerms, kSplit ? slot : x, low[0], low[1]);
    if constexpr (kHigh) SumPairs(highTerms, x, high[0], high[1]);
    for (int row = 0; row < 2; ++row) {
      for (int i = 0; i < 4; ++i) {
        low[row][i] = QuotientOf<kWay>(low[row][i], high[row][i], quotient);
      }
      Store(out[row] + x, kSplit ? PackSplitBytes(low[row]) : PackBytes(low[row]));
    }
  });
}

void PairSums(const PairTerms& low, const PairTerms& high, const PairQuotient& quotient, int count,
              uint8_t* const* out) {
  using Q = PairQuotient;
  constexpr auto kOrder = Order::kNatural;
  const bool hasHigh = high.count > 0;
  const auto by = [&](auto sums) { sums(low, high, quotient, count, out); };
  switch (quotient.way) {
    case Q::kShift:
      return by(hasHigh ? PairSumsBy<Q::kShift, true, kOrder>
                        : PairSumsBy<Q::kShift, false, kOrder>);
    case Q::kFloat:
      return by(hasHigh ? PairSumsBy<Q::kFloat, true, kOrder>
                        : PairSumsBy<Q::kFloat, false, kOrder>);
    case Q::kCorrected:
      return by(hasHigh ? PairSumsBy<Q::kCorrected, true, kOrder>
                        : PairSumsBy<Q::kCorrected, false, kOrder>);
    case Q::kLong:
      return by(PairSumsBy<Q::kLong, true, kOrder>);
    case Q::kDouble:
      return by(PairSumsBy<Q::kDouble, true, kOrder>);
  }
}

// The same for up to kTerms terms, so few that their weights stay in registers. Columns are
// finished one vector after the other, so that the division of one overlaps with the products of
// the next.
template <PairQuotient::Way kWay, int kTerms>
[[gnu::flatten]] void FewSplitPairSums(const PairTerms& given, const PairQuotient& givenQuotient,
                                       int count, uint8_t* const* givenOut) {
  const PairQuotient quotient = givenQuotient;
  uint8_t* const out[2] = {givenOut[0], givenOut[1]};
  const int16_t* from[kTerms];
  Words weights[2][kTerms];
  for (int t = 0; t < kTerms; ++t) {
    const PairTerm term = t < given.count ? given.terms[t] : PairTerm{given.terms[0].from, 0, 0};
    from[t] = term.from;
    weights[0][t] = BitCast<Words>(Splat<uint32_t, kQuarter>(term.first));
    weights[1][t] = BitCast<Words>(Splat<uint32_t, kQuarter>(term.second));
  }
  ForEachSlot<1>(count, [&](auto, int x, int slot) {
    Longs values[2][4];
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) {
      Longs sums[2];
#pragma GCC unroll 3
      for (int t = 0; t < kTerms; ++t) {
        const auto pairs = KeepOnce(Load<int16_t, kLanes>(from[t] + 2 * slot + i * kLanes));
        for (int row = 0; row < 2; ++row) {
          sums[row] = t == 0 ? DotPairs(pairs, weights[row][t])
                             : AddDotPairs(sums[row], pairs, weights[row][t]);
        }
      }
      for (int row = 0; row < 2; ++row) {
        values[row][i] = KeepOnce(QuotientOf<kWay>(sums[row], Longs{}, quotient));
      }
    }
    for (int row = 0; row < 2; ++row) Store(out[row] + x, PackSplitBytes(values[row]));
  });
}

template <PairQuotient::Way kWay>
void SplitPairSumsBy(const PairTerms& terms, const PairQuotient& quotient, int count,
                     uint8_t* const* out) {
  if (terms.count <= 2) return FewSplitPairSums<kWay, 2>(terms, quotient, count, out);
  if (terms.count == 3) return FewSplitPairSums<kWay, 3>(terms, quotient, count, out);
  PairSumsBy<kWay, false, Order::kSplit>(terms, {}, quotient, count, out);
}

void SplitPairSums(const PairTerms& terms, const PairQuotient& quotient, int count,
                   uint8_t* const* out) {
  using Q = PairQuotient;
  if (quotient.way == Q::kShift) return SplitPairSumsBy<Q::kShift>(terms, quotient, count, out);
  if (quotient.way == Q::kFloat) return SplitPairSumsBy<Q::kFloat>(terms, quotient, count, out);
  SplitPairSumsBy<Q::kCorrected>(terms, quotient, count, out);
}

// ---- wide pixels --------------------------------------------------------------------------------

#if QUILLON_WORD_PRODUCTS

[[gnu::flatten]] void WidenPixels(const uint8_t* pixels, int count, int16_t* wide) {
  ForEachBlocks<1>(0, count, [&](auto, int first) {
    int16_t* to = wide + 2 * first;
    if constexpr (kBlock == 16) {
      const Bytes bytes = Load<uint8_t, kBlock>(pixels + first) ^ 128;
      const Bytes zipped[] = {ZipLow(Bytes{}, bytes), ZipHigh(Bytes{}, bytes)};
      for (const Bytes each : zipped) {
        const auto high = BitCast<Words>(each), low = high >> 8;
        Store(to, ZipLow(low, high));
        Store(to + kLanes, ZipHigh(low, high));
        to += kBlock;
      }
    } else {
      for (int x = first; x < first + kBlock; x += kQuarter, to += kLanes) {
        const Longs values = LoadBytesAsLongs(pixels + x) - 128;
        Store(to, (values & 0xFFFF) | values << 24);
      }
    }
  });
}

// The sums of a vector of columns over the weights kFirst ... kLast - 1.
template <int kFirst, int kLast>
QUILLON_INLINE Longs SumWide(const int16_t* const (&rows)[3], const Words (&weights)[9], int x) {
  const auto pixels = [&](int i) { return Load<int16_t, kLanes>(rows[i / 3] + 2 * (x + i % 3)); };
  Longs sum = DotPairs(pixels(kFirst), weights[kFirst]);
#pragma GCC unroll 9
  for (int i = kFirst + 1; i < kLast; ++i) sum = AddDotPairs(sum, pixels(i), weights[i]);
  return KeepOnce(sum);
}

// The quotients of first + second + 128 * divisor, two vectors at a time; they are within 2^14.
// As floats, the sums are off by at most 256; so 3/4 more than the quotient, truncated, is the
// quotient or one more, and the rest that is left then tells by its sign. Where truncation goes up
// instead, below 0, both are 0 or less.
QUILLON_INLINE Words WideQuotients(const Longs (&first)[2], const Longs (&second)[2],
                                   int32_t divisor, float reciprocal) {
  using UWords = U16<kLanes>;
  Longs estimates[2];
  for (int i = 0; i < 2; ++i) {
    const Floats sum = Convert<float, kQuarter>(first[i]) + Convert<float, kQuarter>(second[i]);
    estimates[i] = Convert<int32_t, kQuarter>(sum * reciprocal + 128.75f);
  }
  const Words estimate = PackWithin16(estimates[0], estimates[1]);
  // The halves of (estimate - 128) * divisor, modulo 2^32.
  const Words factor = estimate - 128;
  const auto low = static_cast<int16_t>(divisor);
  const auto high = static_cast<int16_t>((divisor - low) >> 16);
  const auto times = [&](int16_t half) {
    return BitCast<UWords>(factor) * static_cast<uint16_t>(half);
  };
  const UWords productLow = times(low);
  const UWords productHigh =
      BitCast<UWords>(MulHigh(factor, Splat<int16_t, kLanes>(low))) + times(high);
  const auto rest = [&](int i, UWords product) {
    const ULongs sum = BitCast<ULongs>(first[i]) + BitCast<ULongs>(second[i]);
    return BitCast<Longs>(sum - BitCast<ULongs>(product));
  };
  const Words rests = PackWithin16(rest(0, ZipLow(productLow, productHigh)),
                                   rest(1, ZipHigh(productLow, productHigh)));
  return estimate + (rests >> 15);
}

// Column by column, so that all weights stay in registers.
[[gnu::flatten]] void WideSums(const WideWeights& given, const int16_t* const* givenRows, int count,
                               uint8_t* out) {
  const int32_t divisor = given.divisor;
  const float reciprocal = given.reciprocal;
  const int16_t* const rows[3] = {givenRows[0], givenRows[1], givenRows[2]};
  Words weights[9];
  for (int i = 0; i < 9; ++i) {
    weights[i] = BitCast<Words>(Splat<uint32_t, kQuarter>(given.pairs[i]));
  }
  ForEachBlocks<1>(0, count, [&](auto, int from) {
    Words quotients[2];
#pragma GCC unroll 2
    for (int i = 0; i < 2; ++i) {
      Longs first[2], second[2];
#pragma GCC unroll 2
      for (int j = 0; j < 2; ++j) {
        const int x = from + (2 * i + j) * kQuarter;
        first[j] = SumWide<0, 5>(rows, weights, x);
        second[j] = SumWide<5, 9>(rows, weights, x);
      }
      quotients[i] = KeepOnce(WideQuotients(first, second, divisor, reciprocal));
    }
    Store(out + from, PackBytes(quotients[0], quotients[1]));
  });
}

#else
constexpr auto WidenPixels = nullptr, WideSums = nullptr;
#endif

}  // namespace

const ConvolutionKernels convolution = {.ByteSums = ByteSums,
                                        .PairPixels = PairPixels,
                                        .PairByteSums = PairByteSums,
                                        .PairSums = PairSums,
                                        .SplitPairSums = SplitPairSums,
                                        .WidenPixels = WidenPixels,
                                        .WideSums = WideSums};

}  // namespace quillon::QUILLON_LEVEL
