// Row kernels of the convolution. Compiled once per level.
#include "filters/convolution_kernels.h"

#include "simd/vec.h"

namespace quillon::QUILLON_LEVEL {
namespace {

constexpr int kBlock = kVectorBytes;  // columns at a time
constexpr int kLanes = kBlock / 2;
constexpr int kQuarter = kBlock / 4;
using Words = I16<kLanes>;
using Longs = I32<kQuarter>;

// Calls body(blocks, x) for kMost blocks at a time, so that weights are loaded once for them, then
// for one; the last overlaps the one before.
template <int kMost, class Body>
QUILLON_INLINE void ForEachBlocks(int count, const Body& body) {
  static_assert(kBlock <= kLeastColumns);
  int x = 0;
  for (; x <= count - kMost * kBlock; x += kMost * kBlock) {
    body(std::integral_constant<int, kMost>{}, x);
  }
  for (; x <= count - kBlock; x += kBlock) body(std::integral_constant<int, 1>{}, x);
  if (x < count) body(std::integral_constant<int, 1>{}, count - kBlock);
}

// ---- small weights ------------------------------------------------------------------------------

QUILLON_INLINE U16<kLanes> Quotient(Words sum, const ByteQuotient& quotient) {
  const auto twice = BitCast<U16<kLanes>>(Max(sum, Words{})) << 1;
  const auto value = MulHigh(twice, Splat<uint16_t, kLanes>(quotient.factor)) >> quotient.shift;
  // As signed lanes: they are below 32768, and the floor has no other minimum.
  return BitCast<U16<kLanes>>(Min(BitCast<Words>(value), Words{} + 255));
}

void ByteSums(const ByteTerm* terms, int termCount, const ByteQuotient& quotient, int count,
              uint8_t* out) {
  ForEachBlocks<4>(count, [&](auto blocks, int x) {
    Words even[blocks] = {}, odd[blocks] = {};
    for (int t = 0; t < termCount; ++t) {
      const ByteTerm& term = terms[t];
      const auto evenWeights = BitCast<I8<kBlock>>(Splat<uint32_t, kQuarter>(term.even));
      const auto oddWeights = BitCast<I8<kBlock>>(Splat<uint32_t, kQuarter>(term.odd));
      for (int i = 0; i < blocks; ++i) {
        const auto pixels = Load<uint8_t, kBlock>(term.from + x + i * kBlock);
        even[i] += DotBytePairs(pixels, evenWeights);
        odd[i] += DotBytePairs(pixels, oddWeights);
      }
    }
    for (int i = 0; i < blocks; ++i) {
      Store(out + x + i * kBlock,
            MergeBytes(Quotient(even[i], quotient), Quotient(odd[i], quotient)));
    }
  });
}

// ---- larger weights -----------------------------------------------------------------------------

// Sums of the windows at even and at odd places of a vector of columns.
struct WordPairs {
  Longs even, odd;
};

// Adds the terms to the sums of `kVectors` vectors from column x on; weights are loaded once for
// all of them.
template <int kVectors>
QUILLON_INLINE void SumTerms(const WordTerms& list, int x, WordPairs* sums) {
  for (int t = 0; t < list.count; ++t) {
    const int16_t* from = list.terms[t].from + x;
    const auto weights = BitCast<Words>(Splat<uint32_t, kQuarter>(list.terms[t].weights));
    for (int i = 0; i < kVectors; ++i) {
      sums[i].even += DotPairs(Load<int16_t, kLanes>(from + i * kLanes), weights);
      sums[i].odd += DotPairs(Load<int16_t, kLanes>(from + i * kLanes + 1), weights);
    }
  }
}

// Values at even and at odd places, all of 0 ... 255, as 16-bit lanes.
QUILLON_INLINE U16<kLanes> MergeWords(Longs even, Longs odd) {
  return BitCast<U16<kLanes>>(even | odd << 16);
}

// Sums beyond 2^24 lose their last bits in a float, but their quotients lie far above 255.
QUILLON_INLINE Longs ShortQuotient(Longs sum, float reciprocal) {
  using Floats = F32<kQuarter>;
  const Floats value = Convert<float, kQuarter>(sum) * reciprocal;
  return Convert<int32_t, kQuarter>(Min(Max(value, Floats{}), Floats{} + 255.0f));
}

// In doubles the sums, below 2^45, are exact. Half a unit more keeps the quotient at least
// 1 / (2 * divisor), that is 2^-38, away from the next integers; its error is below 2^-43.
QUILLON_INLINE Longs LongQuotient(Longs low, Longs high, double reciprocal) {
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

void ShortWordSums(const WordTerms& terms, float reciprocal, int count, uint8_t* out) {
  ForEachBlocks<2>(count, [&](auto blocks, int x) {
    WordPairs sums[2 * blocks] = {};
    SumTerms<2 * blocks>(terms, x, sums);
    const auto words = [&](const WordPairs& sum) {
      return MergeWords(ShortQuotient(sum.even, reciprocal), ShortQuotient(sum.odd, reciprocal));
    };
    for (int i = 0; i < blocks; ++i) {
      Store(out + x + i * kBlock, PackLanes(words(sums[2 * i]), words(sums[2 * i + 1])));
    }
  });
}

void LongWordSums(const WordTerms& low, const WordTerms& high, double reciprocal, int count,
                  uint8_t* out) {
  ForEachBlocks<1>(count, [&](auto, int x) {
    WordPairs lower[2] = {}, upper[2] = {};
    SumTerms<2>(low, x, lower);
    SumTerms<2>(high, x, upper);
    const auto words = [&](int i) {
      return MergeWords(LongQuotient(lower[i].even, upper[i].even, reciprocal),
                        LongQuotient(lower[i].odd, upper[i].odd, reciprocal));
    };
    Store(out + x, PackLanes(words(0), words(1)));
  });
}

void WordSums(const WordTerms& low, const WordTerms& high, const WordQuotient& quotient, int count,
              uint8_t* out) {
  if (high.count == 0 && quotient.divisor <= kLargestFloatDivisor) {
    ShortWordSums(low, quotient.shortReciprocal, count, out);
  } else {
    LongWordSums(low, high, quotient.reciprocal, count, out);
  }
}

void ColumnSums(const ColumnTerm* terms, int termCount, int count, int16_t* sums) {
  ForEachBlocks<4>(count, [&](auto blocks, int x) {
    Words sum[2 * blocks] = {};
    for (int t = 0; t < termCount; ++t) {
      const uint8_t* from = terms[t].from + x;
      const int16_t weight = terms[t].weight;
      for (int i = 0; i < 2 * blocks; ++i)
        sum[i] += LoadWidened<kLanes>(from + i * kLanes) * weight;
    }
    for (int i = 0; i < 2 * blocks; ++i) Store(sums + x + i * kLanes, sum[i]);
  });
}

}  // namespace

const ConvolutionKernels convolution = {
    .ByteSums = ByteSums, .WordSums = WordSums, .ColumnSums = ColumnSums};

}  // namespace quillon::QUILLON_LEVEL
