// Row kernels of the smoothing filters. Compiled once per level.
#include "filters/smoothing_kernels.h"

#include "simd/vec.h"

namespace quillon::QUILLON_LEVEL {
namespace {

constexpr int kBlock = kVectorBytes;  // columns at a time
constexpr int kLanes = kBlock / 2;    // of them in each half of the column sums
using Lanes = U16<kLanes>;
using Quarter = I32<kLanes / 2>;

// ---- walking a row ------------------------------------------------------------------------------

// Calls sum(rows, x, lane) for blocks of columns from x on, whose sums start at `lane`. The last
// columns come as a block of their own, filled up with zeros.
template <int kRows, class Sum>
QUILLON_INLINE void ForColumnBlocks(const uint8_t* const* rows, int width, const Sum& sum) {
  int x = 0;
  for (; x <= width - kBlock; x += kBlock) sum(rows, x, x / 2);
  if (x == width) return;
  uint8_t rest[kRows][kBlock] = {};
  const uint8_t* restRows[kRows];
  for (int k = 0; k < kRows; ++k) {
    __builtin_memcpy(rest[k], rows[k] + x, static_cast<size_t>(width - x));
    restRows[k] = rest[k];
  }
  sum(restRows, 0, x / 2);
}

// out[x] = value(x / 2), a block at a time; of the last block only what belongs to the row.
template <class Value>
QUILLON_INLINE void StoreBlocks(uint8_t* out, int count, const Value& value) {
  int x = 0;
  for (; x <= count - kBlock; x += kBlock) Store(out + x, value(x / 2));
  if (x == count) return;
  uint8_t rest[kBlock];
  Store(rest, value(x / 2));
  __builtin_memcpy(out + x, rest, static_cast<size_t>(count - x));
}

// The sums of columns 2 * lane + k, 2 * lane + k + 2 ...
QUILLON_INLINE Lanes Column(const ColumnSums& sums, int lane, int k) {
  return Load<uint16_t, kLanes>((k % 2 ? sums.odd : sums.even) + lane + k / 2);
}

// ---- binomial weights ---------------------------------------------------------------------------

template <int kSize, class At>
QUILLON_INLINE Lanes Binomial(const At& at) {
  if constexpr (kSize == 3) {
    return at(0) + at(2) + (at(1) << 1);
  } else if constexpr (kSize == 5) {
    return at(0) + at(4) + ((at(1) + at(3)) << 2) + at(2) * 6;
  } else {
    return at(0) + at(6) + (at(1) + at(5)) * 6 + (at(2) + at(4)) * 15 + at(3) * 20;
  }
}

// The two-dimensional weights add up to 16, 256, 4096; half of that rounds, spread over the
// columns, whose own weights add up to 4, 16, 64.
template <int kSize>
constexpr int kShift = 2 * (kSize - 1);
template <int kSize>
constexpr uint16_t kRounding = (1 << kShift<kSize>) / 2 >> (kSize - 1);

template <int kSize>
QUILLON_INLINE void SumBinomially(const uint8_t* const* rows, int width, const ColumnSums& sums) {
  ForColumnBlocks<kSize>(rows, width, [&](const uint8_t* const* from, int x, int lane) {
    const auto bytes = [&](int k) { return Load<uint8_t, kBlock>(from[k] + x); };
    const auto even = [&](int k) { return EvenBytes(bytes(k)); };
    const auto odd = [&](int k) { return OddBytes(bytes(k)); };
    Store(sums.even + lane, Binomial<kSize>(even) + kRounding<kSize>);
    Store(sums.odd + lane, Binomial<kSize>(odd) + kRounding<kSize>);
  });
}

// Column sums of up to 16,352 weighed by 1 6 15 20 15 6 1 need 20 bits.
template <class At>
QUILLON_INLINE Lanes Mean7Binomially(const At& at) {
  const auto outer = BitCast<I16<kLanes>>(at(0) + at(6));
  const auto second = BitCast<I16<kLanes>>(at(1) + at(5));
  const auto third = BitCast<I16<kLanes>>(at(2) + at(4));
  const auto centre = BitCast<I16<kLanes>>(at(3));
  const auto outerWeights = BitCast<I16<kLanes>>(Quarter{} + (1 | 6 << 16));
  const auto innerWeights = BitCast<I16<kLanes>>(Quarter{} + (15 | 20 << 16));
  const auto low =
      DotPairs(ZipLow(outer, second), outerWeights) + DotPairs(ZipLow(third, centre), innerWeights);
  const auto high = DotPairs(ZipHigh(outer, second), outerWeights) +
                    DotPairs(ZipHigh(third, centre), innerWeights);
  return BitCast<Lanes>(PackZipped(low >> kShift<7>, high >> kShift<7>));
}

template <int kSize>
void Gaussian(const uint8_t* const* rows, int width, const ColumnSums& sums, uint8_t* out) {
  SumBinomially<kSize>(rows, width, sums);
  StoreBlocks(out, width - kSize + 1, [&](int lane) {
    const auto even = [&](int k) { return Column(sums, lane, k); };
    const auto odd = [&](int k) { return Column(sums, lane, k + 1); };
    if constexpr (kSize == 7) {
      return MergeBytes(Mean7Binomially(even), Mean7Binomially(odd));
    } else {
      return MergeBytes(Binomial<kSize>(even) >> kShift<kSize>,
                        Binomial<kSize>(odd) >> kShift<kSize>);
    }
  });
}

// ---- box means ----------------------------------------------------------------------------------

void MoveColumns(const ColumnSums& sums, const uint8_t* entering, const uint8_t* leaving,
                 int width) {
  const uint8_t* const rows[] = {entering, leaving};
  ForColumnBlocks<2>(rows, width, [&](const uint8_t* const* from, int x, int lane) {
    const auto in = Load<uint8_t, kBlock>(from[0] + x), gone = Load<uint8_t, kBlock>(from[1] + x);
    const auto even = Load<uint16_t, kLanes>(sums.even + lane);
    const auto odd = Load<uint16_t, kLanes>(sums.odd + lane);
    Store(sums.even + lane, even + EvenBytes(in) - EvenBytes(gone));
    Store(sums.odd + lane, odd + OddBytes(in) - OddBytes(gone));
  });
}

// The quotient by a small area as the high half of a product, shifted.
struct Reciprocal {
  uint32_t factor;
  int shift;
};

constexpr bool IsExact(Reciprocal reciprocal, uint32_t area) {
  for (uint32_t sum = 0; sum <= 255 * area + area / 2; ++sum) {
    if ((sum * reciprocal.factor >> 16) >> reciprocal.shift != sum / area) return false;
  }
  return true;
}

// The one with the least shift.
constexpr Reciprocal ReciprocalOf(uint32_t area) {
  Reciprocal reciprocal = {65535 / area + 1, 0};
  while (!IsExact(reciprocal, area)) {
    ++reciprocal.shift;
    reciprocal.factor = ((65536u << reciprocal.shift) - 1) / area + 1;
  }
  return reciprocal;
}

template <int kSize>
void SmallMean(const ColumnSums& sums, int count, uint8_t* out) {
  constexpr uint16_t kArea = kSize * kSize;
  constexpr Reciprocal kReciprocal = ReciprocalOf(kArea);
  static_assert(kReciprocal.factor < 65536 && 255 * kArea + kArea / 2 < 65536);
  const auto mean = [&](Lanes sum) {
    return MulHigh(sum, Lanes{} + static_cast<uint16_t>(kReciprocal.factor)) >> kReciprocal.shift;
  };
  StoreBlocks(out, count, [&](int lane) {
    // The columns that the windows of an even and of the next odd place share.
    Lanes shared = Column(sums, lane, 1) + static_cast<uint16_t>(kArea / 2);
    for (int k = 2; k < kSize; ++k) shared += Column(sums, lane, k);
    return MergeBytes(mean(shared + Column(sums, lane, 0)),
                      mean(shared + Column(sums, lane, kSize)));
  });
}

// 16-bit lanes of even and of odd places as 32-bit ones.
QUILLON_INLINE Quarter EvenLanes(I16<kLanes> v) { return BitCast<Quarter>(v) << 16 >> 16; }
QUILLON_INLINE Quarter OddLanes(I16<kLanes> v) { return BitCast<Quarter>(v) >> 16; }

// The sum slides along the row: by what enters less what leaves. Four neighbouring windows take
// their place in the four bytes of a 32-bit lane; the sums of the first of them are found by adding
// up the steps of four across the lanes.
void Mean(const ColumnSums& sums, int count, int size, float reciprocal, uint8_t* out) {
  const int radius = size / 2;
  int32_t first = size * size / 2;
  for (int i = 0; i <= radius; ++i) first += sums.even[i];
  for (int i = 0; i < radius; ++i) first += sums.odd[i];
  Quarter start = Quarter{} + first;  // of the block's first window

  const auto mean = [&](Quarter sum) {
    return Convert<int32_t, kLanes / 2>(Convert<float, kLanes / 2>(sum) * reciprocal);
  };
  StoreBlocks(out, count, [&](int lane) {
    const auto at = [&](const uint16_t* half, int shift) {
      return BitCast<I16<kLanes>>(Load<uint16_t, kLanes>(half + lane + shift));
    };
    // From even places to the next odd ones, and from odd to even.
    const auto toOdd = at(sums.odd, radius) - at(sums.even, 0);
    const auto toEven = at(sums.even, radius + 1) - at(sums.odd, 0);
    const auto step1 = EvenLanes(toOdd);
    const auto step2 = step1 + EvenLanes(toEven);
    const auto step3 = step2 + OddLanes(toOdd);
    const auto step4 = step3 + OddLanes(toEven);
    const auto upTo = PrefixSums(step4);
    const auto sum = start + (upTo - step4);
    start += SplatLast(upTo);
    return BitCast<U8<kBlock>>(mean(sum) | mean(sum + step1) << 8 | mean(sum + step2) << 16 |
                               mean(sum + step3) << 24);
  });
}

void MoveWideColumns(uint32_t* sums, const uint8_t* entering, const uint8_t* leaving, int width) {
  for (int x = 0; x < width; ++x) sums[x] += entering[x] - leaving[x];
}

// Sums stay below 2^53, and the quotient's error of less than 2^-43 cannot reach the next integer,
// which is at least half of 2^-31 away: a window has fewer than 2^31 pixels.
void MeanWide(const uint32_t* sums, int count, int size, uint8_t* out) {
  const int64_t area = static_cast<int64_t>(size) * size;
  const double reciprocal = 1.0 / static_cast<double>(area);
  int64_t sum = area / 2;
  for (int i = 0; i < size; ++i) sum += sums[i];
  for (int x = 0; x < count; ++x) {
    if (x > 0) sum += static_cast<int64_t>(sums[x + size - 1]) - sums[x - 1];
    out[x] = static_cast<uint8_t>((static_cast<double>(sum) + 0.5) * reciprocal);
  }
}

}  // namespace

const SmoothingKernels smoothing = {.Gaussian3 = Gaussian<3>,
                                    .Gaussian5 = Gaussian<5>,
                                    .Gaussian7 = Gaussian<7>,
                                    .MoveColumns = MoveColumns,
                                    .Mean3 = SmallMean<3>,
                                    .Mean5 = SmallMean<5>,
                                    .Mean7 = SmallMean<7>,
                                    .Mean = Mean,
                                    .MoveWideColumns = MoveWideColumns,
                                    .MeanWide = MeanWide};

}  // namespace quillon::QUILLON_LEVEL
