// Row kernels of the smoothing filters. Compiled once per level.
#include "filters/smoothing_kernels.h"

#include <stddef.h>

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

constexpr int kBlock = kVectorBytes;  // columns at a time
constexpr int kLanes = kBlock / 2;    // of them in each half of the column sums
using Lanes = U16<kLanes>;
using Quarter = I32<kLanes / 2>;
using Reals = F32<kLanes / 2>;

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

// ---- windows of few rows ------------------------------------------------------------------------

// Each pair of bytes weighed by a and b.
template <int a, int b>
QUILLON_INLINE Lanes WeighedPairs(U8<kBlock> bytes) {
  if constexpr (a == 1 && b == 0) {
    return EvenBytes(bytes);
  } else if constexpr (a == 0 && b == 1) {
    return OddBytes(bytes);
  } else {
    return BitCast<Lanes>(
        DotBytePairs(bytes, BitCast<I8<kBlock>>(Splat<int16_t, kLanes>(a | b << 8))));
  }
}

// A row weighed binomially with the rows before it: adding each row to the one before, kSteps times
// over, makes 1 1, then 1 2 1, 1 3 3 1 ... `before` holds what the row before put into each step.
template <int kSteps>
QUILLON_INLINE Lanes SumDown(Lanes row, Lanes* before) {
#pragma GCC unroll 8
  for (int i = 0; i < kSteps; ++i) {
    const Lanes sum = row + before[i];
    before[i] = row;
    row = sum;
  }
  return row;
}

// A window says what half a block of columns keeps of the rows above and what both halves keep
// together, as vectors (kStates, kShared), how a row is added, which gives the sums of the windows
// that it completes (Add), and what these are divided by (Quotient). The windows at even places
// come first; what they hand on to those at odd places of the same row is in `carried`.

template <class Window>
constexpr int kStateBytes = 2 * Window::kStates + Window::kShared;

template <int kSide>
struct Binomial {
  static constexpr int kSize = kSide, kStates = kSide == 7 ? 6 : kSide - 1;
  static constexpr int kShared = kSide == 7 ? 4 : 0;
  // What the sums of both directions are shifted by at the end.
  static constexpr int kShift = kSide == 7 ? 8 : 2 * (kSide - 1);
  static constexpr uint16_t kHalf = 1 << kShift >> 1;

  static constexpr int Weight(int k) {
    constexpr int kWeights[] = {1, 2, 1, 1, 4, 6, 4, 1, 1, 6, 15, 20, 15, 6, 1};
    constexpr int kFirst = kSide == 3 ? 0 : kSide == 5 ? 3 : 8;
    return k < 0 || k >= kSide ? 0 : kWeights[kFirst + k];
  }
  template <bool kOdd, int... k>
  QUILLON_INLINE static Lanes SumAcross(const uint8_t* from, std::integer_sequence<int, k...>) {
    return (WeighedPairs<Weight(2 * k - kOdd), Weight(2 * k + 1 - kOdd)>(
                Load<uint8_t, kBlock>(from + 2 * k)) +
            ...);
  }
  // The sums of 7 x 7 need 20 bits: after two steps, in 16, the upper twelve go on here, and the
  // lower four go into the bytes of `carried` that are of even, or of odd columns.
  template <bool kOdd>
  QUILLON_INLINE static Lanes Add(const uint8_t* from, Lanes* state, Lanes& carried) {
    const Lanes row = SumAcross<kOdd>(from, std::make_integer_sequence<int, kSide / 2 + 1>{});
    if constexpr (kSide < 7) {
      return SumDown<kSide - 1>(row, state) + kHalf;
    } else {
      const Lanes sum = SumDown<2>(row, state);
      carried = kOdd ? carried | (sum & 15) << 8 : sum & 15;
      return SumDown<4>(sum >> 4, state + 2) + kHalf;
    }
  }
  QUILLON_INLINE static Lanes Quotient(Lanes sum) { return sum >> kShift; }
};

// Division by a small area: the quotient is (sum * factor >> 16) >> shift.
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

// The factor and shift for this area, with the least shift that is exact.
constexpr Reciprocal ReciprocalOf(uint32_t area) {
  Reciprocal reciprocal = {65535 / area + 1, 0};
  while (!IsExact(reciprocal, area)) {
    ++reciprocal.shift;
    reciprocal.factor = ((65536u << reciprocal.shift) - 1) / area + 1;
  }
  return reciprocal;
}

// The windows at an even and at the next odd place share all but one column of each. Of 3 x 3, the
// last two rows are kept; else the last kSide - 1 rows, and before them their sum.
template <int kSide>
struct Box {
  static constexpr int kSize = kSide, kStates = kSide == 3 ? 2 : kSide, kShared = 0;
  static constexpr uint16_t kArea = kSide * kSide, kHalf = kArea / 2;

  template <bool kOdd>
  QUILLON_INLINE static Lanes Add(const uint8_t* from, Lanes* state, Lanes& carried) {
    Lanes row;
    if constexpr (kOdd) {
      row = carried + OddBytes(Load<uint8_t, kBlock>(from + kSide - 1));
    } else {
      carried = WeighedPairs<1, 1>(Load<uint8_t, kBlock>(from + 1));
#pragma GCC unroll 4
      for (int k = 3; k < kSide; k += 2) {
        carried += WeighedPairs<1, 1>(Load<uint8_t, kBlock>(from + k));
      }
      row = carried + EvenBytes(Load<uint8_t, kBlock>(from));
    }
    if constexpr (kSide == 3) {
      const Lanes sum = state[0] + state[1] + row;
      state[0] = state[1], state[1] = row;
      return sum + kHalf;
    } else {
      const Lanes sum = state[0] + row;
      state[0] = sum - state[1];
      // Not a loop: a compiler makes a call of it that moves memory, and keeps the state there.
      Unroll<kSide - 2>([&](auto i) { state[i + 1] = state[i + 2]; });
      state[kSide - 1] = row;
      return sum + kHalf;
    }
  }
  QUILLON_INLINE static Lanes Quotient(Lanes sum) {
    constexpr Reciprocal kReciprocal = ReciprocalOf(kArea);
    static_assert(kReciprocal.factor < 65536 && 255 * kArea + kHalf < 65536);
    const auto factor = Lanes{} + static_cast<uint16_t>(kReciprocal.factor);
    return MulHigh(sum, factor) >> kReciprocal.shift;
  }
};

// Whether the registers hold the state of both halves: then each row is loaded once for both.
template <class Window>
constexpr bool kTogether = Window::kStates <= (kVectorBytes < 64 ? 2 : 4);

// kRows rows at once, so that the state is loaded and stored once for all of them.
template <class Window, int kRows>
void AddRows(const uint8_t* const* rows, uint8_t* const* outs, int count, uint8_t* memory) {
  constexpr int kSize = Window::kSize, kShared = Window::kShared;
  constexpr int kHalf = Window::kStates * kBlock, kBytes = kStateBytes<Window> * kBlock;
  const auto walk = [](const uint8_t* const* from, uint8_t* const* to, int x, uint8_t* kept) {
    Lanes even[kRows], odd[kRows], carried[kRows];
    // Calls add(i, state) for each row, with vectors that are kept from call to call.
    const auto withState = [&](auto vectors, uint8_t* place, const auto& add) {
      Lanes state[vectors.value];
      const auto at = [&](int i) { return reinterpret_cast<uint16_t*>(place + i * kBlock); };
#pragma GCC unroll 8
      for (int i = 0; i < vectors.value; ++i) state[i] = Load<uint16_t, kLanes>(at(i));
#pragma GCC unroll 4
      for (int i = 0; i < kRows; ++i) add(i, state);
#pragma GCC unroll 8
      for (int i = 0; i < vectors.value; ++i) Store(at(i), state[i]);
    };
    if constexpr (kTogether<Window>) {
      constexpr std::integral_constant<int, 2 * Window::kStates> kOfBoth;
      withState(kOfBoth, kept, [&](int i, Lanes* state) {
        even[i] = Window::template Add<false>(from[i] + x, state, carried[i]);
        odd[i] = Window::template Add<true>(from[i] + x, state + Window::kStates, carried[i]);
      });
    } else {
      constexpr std::integral_constant<int, Window::kStates> kOfHalf;
      withState(kOfHalf, kept, [&](int i, Lanes* state) {
        even[i] = Window::template Add<false>(from[i] + x, state, carried[i]);
      });
      withState(kOfHalf, kept + kHalf, [&](int i, Lanes* state) {
        odd[i] = Window::template Add<true>(from[i] + x, state, carried[i]);
      });
    }
    if constexpr (kShared != 0) {
      withState(std::integral_constant<int, kShared>{}, kept + 2 * kHalf, [&](int i, Lanes* state) {
        const Lanes sum = SumDown<kShared>(carried[i], state);
        even[i] += sum >> 4 & 15;
        odd[i] += sum >> 12;
      });
    }
#pragma GCC unroll 4
    for (int i = 0; i < kRows; ++i) {
      Store(to[i] + x, MergeBytes(Window::Quotient(even[i]), Window::Quotient(odd[i])));
    }
  };
  const uint8_t* from[kRows];
  uint8_t* to[kRows];
  for (int i = 0; i < kRows; ++i) from[i] = rows[i], to[i] = outs[i];
  int x = 0;
  for (; x <= count - kBlock; x += kBlock, memory += kBytes) walk(from, to, x, memory);
  if (x == count) return;
  // The last columns as a block of their own, filled up with zeros.
  uint8_t rest[kRows][kBlock + kSize - 1] = {}, sums[kRows][kBlock];
  for (int i = 0; i < kRows; ++i) {
    __builtin_memcpy(rest[i], rows[i] + x, static_cast<size_t>(count + kSize - 1 - x));
    from[i] = rest[i], to[i] = sums[i];
  }
  walk(from, to, 0, memory);
  for (int i = 0; i < kRows; ++i) {
    __builtin_memcpy(outs[i] + x, sums[i], static_cast<size_t>(count - x));
  }
}

template <class Window>
void AddRows(const uint8_t* const* rows, uint8_t* const* outs, int rowCount, int count,
             uint8_t* state) {
  int i = 0;
  for (; i <= rowCount - kBand; i += kBand) {
    AddRows<Window, kBand>(rows + i, outs + i, count, state);
  }
  for (; i < rowCount; ++i) AddRows<Window, 1>(rows + i, outs + i, count, state);
}

template <class Window>
constexpr SmallWindow kSmall = {.stateBytes = kStateBytes<Window>, .AddRows = AddRows<Window>};

// ---- means of larger windows --------------------------------------------------------------------

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

// Numbers whose low bytes are the means; with the conversion, sums are whole numbers as yet.
template <bool kConverted>
QUILLON_INLINE Quarter MeanIn(Quarter sum, float reciprocal, float offset) {
  Reals value;
  if constexpr (kConverted) {
    value = Convert<float, kLanes / 2>(sum);
  } else {
    value = BitCast<Reals>(sum);
  }
  return BitCast<Quarter>(MulAdd(value, Reals{} + reciprocal, Reals{} + offset));
}

// The low bytes of four numbers, lane by lane; without the merge, numbers of no more than that.
QUILLON_INLINE U8<kBlock> BytesOf(Quarter first, Quarter second, Quarter third, Quarter fourth) {
#if QUILLON_LANE_MERGES
  return MergeLowBytes(first, second, third, fourth);
#else
  return BitCast<U8<kBlock>>((first | second << 8) | (third << 16 | fourth << 24));
#endif
}

// Four neighbouring means each, from sums of the first, second ... of them.
template <bool kConverted>
QUILLON_INLINE U8<kBlock> MeansOf(const Quarter (&sums)[4], const MeanScale& scale) {
#if QUILLON_LANE_MERGES
  const auto mean = [&](int i) {
    return MeanIn<kConverted>(sums[i], scale.reciprocal, scale.offset);
  };
  return MergeLowBytes(mean(0), mean(1), mean(2), mean(3));
#else
  // What lies above the means' bytes, the bits 0x4B4000 of their floats, adds up to 0x8B400000 in
  // four bytes: the means of those two places are taken that much lower. Sums wrap.
  const auto mean = [&](int i, float above) {
    return BitCast<U32<kLanes / 2>>(
        MeanIn<kConverted>(sums[i], scale.reciprocal, scale.offset - above));
  };
  return BitCast<U8<kBlock>>((mean(0, 0) + (mean(1, 0) << 8)) +
                             ((mean(2, 0x40) << 16) + (mean(3, 0x8B) << 24)));
#endif
}

// From one window to the next, the sum changes by the column that enters less the one that leaves.
// Four neighbouring windows are one 32-bit lane of the result, a byte each. So for each lane the
// change over four windows is computed, a prefix sum over the lanes gives the sum of each lane's
// last window, and the other three follow from it by going back one column at a time.
template <bool kConverted>
void SlidingMean(const ColumnSums& sums, int count, int size, const MeanScale& given,
                 uint8_t* out) {
  const MeanScale scale = given;
  const int radius = size / 2;
  int32_t first = 0;  // the window before the row's first: odd[-1] is 0
  for (int i = 0; i < radius; ++i) first += sums.even[i] + sums.odd[i];
  Quarter last = Quarter{} + (first * scale.weight + scale.bias);  // before the block
  const auto weights = [&](int even, int odd) {
    const auto pair = static_cast<uint32_t>(even) << 16 >> 16 | static_cast<uint32_t>(odd) << 16;
    return BitCast<I16<kLanes>>(U32<kLanes / 2>{} + pair);
  };
  const auto both = weights(scale.weight, scale.weight);
  const auto lessFirst = weights(-scale.weight, 0), lessSecond = weights(0, -scale.weight);
  StoreBlocks(out, count, [&](int lane) {
    const auto at = [&](const uint16_t* half, int shift) {
      return BitCast<I16<kLanes>>(Load<uint16_t, kLanes>(half + lane + shift));
    };
    // From odd places to the next even ones, and from even to odd.
    const auto toEven = at(sums.even, radius) - at(sums.odd, -1);
    const auto toOdd = at(sums.odd, radius) - at(sums.even, 0);
    Quarter windows[4];
    windows[3] = last + PrefixSums(AddDotPairs(DotPairs(toOdd, both), toEven, both));
    windows[2] = AddDotPairs(windows[3], toOdd, lessSecond);
    windows[1] = AddDotPairs(windows[2], toEven, lessSecond);
    windows[0] = AddDotPairs(windows[1], toOdd, lessFirst);
    last = SplatLast(windows[3]);
    return MeansOf<kConverted>(windows, scale);
  });
}

void Mean(const ColumnSums& sums, int count, int size, const MeanScale& scale, uint8_t* out) {
  (scale.converted ? SlidingMean<true> : SlidingMean<false>)(sums, count, size, scale, out);
}

void MoveWideColumns(const WideColumnSums& sums, const uint8_t* entering, const uint8_t* leaving,
                     int width) {
  using Longs = U32<kLanes / 2>;
  const WideColumnSums own = sums;
  const uint8_t* const rows[] = {entering, leaving};
  ForColumnBlocks<2>(rows, width, [&](const uint8_t* const* from, int x, int lane) {
    const auto in = BitCast<Longs>(Load<uint8_t, kBlock>(from[0] + x));
    const auto gone = BitCast<Longs>(Load<uint8_t, kBlock>(from[1] + x));
    Unroll<4>([&](auto i) {
      uint32_t* const at = own.quarter[i] + lane / 2;
      const auto change = (in >> (8 * i) & 255) - (gone >> (8 * i) & 255);
      Store(at, Load<uint32_t, kLanes / 2>(at) + change);
    });
  });
}

// Four neighbouring windows at a time, as SlidingMean has them: here a lane of each quarter.
//
// Sums stay below 2^53, and the quotient's error of less than 2^-43 cannot reach the next integer,
// which is at least half of 2^-31 away: a window has fewer than 2^31 pixels. What is added up of a
// block stays within 32 bits: a window has fewer than 2^16 rows, a block 64 columns.
void MeanWide(const WideColumnSums& sums, int count, int size, uint8_t* out) {
  constexpr int kHalf = kLanes / 4;
  using Doubles = F64<kHalf>;
  const double area = static_cast<double>(size) * size, reciprocal = 1 / area;
  // Half the area rounds to nearest: with it, sums are halves, which quotients never round up from.
  uint64_t first = 0;
  for (int k = 0; k < 4; ++k) {
    const uint32_t* const from = sums.quarter[k];
    for (int i = 0; i < (size + 2 - k) / 4; ++i) first += from[i];
  }
  Doubles last =
      Doubles{} + (static_cast<double>(first) + area / 2);  // the window before the block
  const uint32_t *entering[4], *leaving[4];
  for (int i = 0; i < 4; ++i) {
    entering[i] = sums.quarter[(size - 1 + i) % 4] + (size - 1 + i) / 4;
    leaving[i] = i == 0 ? sums.quarter[3] - 1 : sums.quarter[i - 1];
  }
  const auto means = [&](Quarter within) {
    const auto mean = [&](auto half) {
      return Convert<int32_t, kHalf>((last + Convert<double, kHalf>(half)) * reciprocal);
    };
    return Join(mean(Low(within)), mean(High(within)));
  };
  StoreBlocks(out, count, [&](int lane) {
    const auto change = [&](int i) {
      return BitCast<Quarter>(Load<uint32_t, kLanes / 2>(entering[i] + lane / 2) -
                              Load<uint32_t, kLanes / 2>(leaving[i] + lane / 2));
    };
    const Quarter second = change(1), third = change(2), fourth = change(3);
    Quarter windows[4];
    windows[3] = PrefixSums(change(0) + second + third + fourth);
    windows[2] = windows[3] - fourth;
    windows[1] = windows[2] - third;
    windows[0] = windows[1] - second;
    const auto bytes =
        BytesOf(means(windows[0]), means(windows[1]), means(windows[2]), means(windows[3]));
    last += Convert<double, kHalf>(Low(SplatLast(windows[3])));
    return bytes;
  });
}

}  // namespace

const SmoothingKernels smoothing = {
    .gaussians = {kSmall<Binomial<3>>, kSmall<Binomial<5>>, kSmall<Binomial<7>>},
    .means = {kSmall<Box<3>>, kSmall<Box<5>>, kSmall<Box<7>>},
    .MoveColumns = MoveColumns,
    .Mean = Mean,
    .MoveWideColumns = MoveWideColumns,
    .MeanWide = MeanWide};

}  // namespace quillon::QUILLON_LEVEL
