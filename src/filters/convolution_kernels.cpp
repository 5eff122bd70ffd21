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

// Calls body(blocks, x) for four blocks at a time, so that weights are loaded once for four, then
// for one; the last overlaps the one before.
template <class Body>
QUILLON_INLINE void ForEachBlocks(int count, const Body& body) {
  static_assert(kBlock <= kLeastColumns);
  int x = 0;
  for (; x <= count - 4 * kBlock; x += 4 * kBlock) body(std::integral_constant<int, 4>{}, x);
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
  ForEachBlocks(count, [&](auto blocks, int x) {
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

// Sums of the windows at even and at odd places of two vectors of columns.
struct BlockSums {
  Longs even[2], odd[2];
};

QUILLON_INLINE BlockSums SumTerms(const WordTerms& list, int x) {
  BlockSums sums = {};
  for (int t = 0; t < list.count; ++t) {
    const int16_t* from = list.terms[t].from + x;
    const auto weights = BitCast<Words>(Splat<uint32_t, kQuarter>(list.terms[t].weights));
    for (int i = 0; i < 2; ++i) {
      sums.even[i] += DotPairs(Load<int16_t, kLanes>(from + i * kLanes), weights);
      sums.odd[i] += DotPairs(Load<int16_t, kLanes>(from + i * kLanes + 1), weights);
    }
  }
  return sums;
}

// Values at even and at odd places, all of 0 ... 255, as bytes.
QUILLON_INLINE U8<kBlock> Bytes(const BlockSums& values) {
  const auto merged = [&](int i) {
    return BitCast<U16<kLanes>>(values.even[i] | values.odd[i] << 16);
  };
  return PackLanes(merged(0), merged(1));
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

void WordSums(const WordTerms& low, const WordTerms& high, const WordQuotient& quotient, int count,
              uint8_t* out) {
  const bool isShort = high.count == 0 && quotient.divisor <= kLargestFloatDivisor;
  int x = 0;
  const auto writeBlock = [&](int at) {
    BlockSums values = SumTerms(low, at);
    const BlockSums upper = SumTerms(high, at);
    const auto divide = [&](Longs& sum, const Longs& above) {
      sum = isShort ? ShortQuotient(sum, quotient.shortReciprocal)
                    : LongQuotient(sum, above, quotient.reciprocal);
    };
    for (int i = 0; i < 2; ++i) {
      divide(values.even[i], upper.even[i]);
      divide(values.odd[i], upper.odd[i]);
    }
    Store(out + at, Bytes(values));
  };
  for (; x <= count - kBlock; x += kBlock) writeBlock(x);
  if (x < count) writeBlock(count - kBlock);
}

void ColumnSums(const ColumnTerm* terms, int termCount, int count, int16_t* sums) {
  ForEachBlocks(count, [&](auto blocks, int x) {
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
