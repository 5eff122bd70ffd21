// Row kernels of pixel arithmetic: each rule once, on vectors of bytes. Compiled once per level.
#include "arith/arithmetic_kernels.h"

#include "point/byte_table.h"
#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

struct Add {
  template <class V>
  static V Of(V a, V b) {
    return AddSaturate(a, b);
  }
};

struct Subtract {
  template <class V>
  static V Of(V a, V b) {
    return SubSaturate(a, b);
  }
};

struct Multiply {
  template <class V>
  static V Of(V a, V b) {
    const auto cut = [](auto product) { return Min(product, decltype(product){} + 255); };
    return MergeBytes(cut(EvenBytes(a) * EvenBytes(b)), cut(OddBytes(a) * OddBytes(b)));
  }
};

// The quotient (a + 1/2) / b lies at least 1 / (2 b) from any integer, which is 1/511 of it or
// more: an estimate of 1 / b that is off by a 2730th part still truncates to a / b.
struct Divide {
  template <class V>
  static V Of(V a, V b) {
    using Lanes = I32<sizeof(V) / 4>;
    using Floats = F32<sizeof(V) / 4>;
    const auto none = BitCast<V>(b == 0);
    const auto dividends = BitCast<U32<sizeof(V) / 4>>(a);
    const auto divisors = BitCast<U32<sizeof(V) / 4>>(b - none);  // 1 instead of 0
    Lanes quotients = {};
    for (int shift = 0; shift < 32; shift += 8) {
      const auto dividend = Convert<float, sizeof(V) / 4>(BitCast<Lanes>(dividends >> shift & 255));
      const auto divisor = Convert<float, sizeof(V) / 4>(BitCast<Lanes>(divisors >> shift & 255));
      const Floats quotient = (dividend + 0.5f) * ReciprocalEstimate(divisor);
      quotients |= Convert<int32_t, sizeof(V) / 4>(quotient) << shift;
    }
    return BitCast<V>(quotients) | (none & BitCast<V>(a != 0));
  }
};

struct And {
  template <class V>
  static V Of(V a, V b) {
    return a & b;
  }
};

struct Or {
  template <class V>
  static V Of(V a, V b) {
    return a | b;
  }
};

struct Xor {
  template <class V>
  static V Of(V a, V b) {
    return a ^ b;
  }
};

struct Equal {
  template <class V>
  static V Of(V a, V b) {
    return BitCast<V>(a == b);
  }
};

struct NotEqual {
  template <class V>
  static V Of(V a, V b) {
    return BitCast<V>(a != b);
  }
};

template <class Rule>
void PairRow(const uint8_t* a, const uint8_t* b, uint8_t* out, int count) {
  const int tail = ForEachBlock(count, [&](auto width, int x) {
    Store(out + x, Rule::Of(Load<uint8_t, width>(a + x), Load<uint8_t, width>(b + x)));
  });
  if (const int rest = count - tail; rest > 0) {
    StorePart(out + tail, rest, Rule::Of(LoadPart(a + tail, rest), LoadPart(b + tail, rest)));
  }
}

#if QUILLON_AVX512

// The greatest r below 65536 / b, in bytes. (a + 1) * r >> 16 is a / b: with a = q b + c and
// r = 65536 / b - e, 0 < e <= 1, the product stays below (q + 1) * 65536 as c < b, and reaches
// q * 65536 as 65536 / b >= e (q b + 1), which holds as b (q b + 1) <= 255 * 256. For b = 0, r is
// that of 1.
struct Reciprocals {
  uint8_t low[256], high[256];
};

constexpr Reciprocals MakeReciprocals() {
  Reciprocals made = {};
  for (int b = 0; b < 256; ++b) {
    const int r = 65535 / (b > 0 ? b : 1);
    made.low[b] = static_cast<uint8_t>(r & 255);
    made.high[b] = static_cast<uint8_t>(r >> 8);
  }
  return made;
}

constexpr Reciprocals kReciprocals = MakeReciprocals();

// Whole vectors look reciprocals up: 2.5 times as fast as estimating them in float.
void DivideRow(const uint8_t* a, const uint8_t* b, uint8_t* out, int count) {
  const ByteTable lows(kReciprocals.low), highs(kReciprocals.high);
  const __m512i zero = _mm512_setzero_si512(), one = _mm512_set1_epi16(1);
  int x = 0;
  for (; x <= count - 64; x += 64) {
    const __m512i dividends = BitCast<__m512i>(Load<uint8_t, 64>(a + x));
    const __m512i divisors = BitCast<__m512i>(Load<uint8_t, 64>(b + x));
    const __m512i low = lows.At(divisors), high = highs.At(divisors);
    const __m512i first =
        _mm512_mulhi_epu16(_mm512_add_epi16(_mm512_unpacklo_epi8(dividends, zero), one),
                           _mm512_unpacklo_epi8(low, high));
    const __m512i second =
        _mm512_mulhi_epu16(_mm512_add_epi16(_mm512_unpackhi_epi8(dividends, zero), one),
                           _mm512_unpackhi_epi8(low, high));
    const __mmask64 endless = _mm512_mask_test_epi8_mask(_mm512_testn_epi8_mask(divisors, divisors),
                                                         dividends, dividends);
    const __m512i quotients = _mm512_packus_epi16(first, second);
    Store(out + x, _mm512_mask_blend_epi8(endless, quotients, _mm512_set1_epi8(-1)));
  }
  PairRow<Divide>(a + x, b + x, out + x, count - x);
}

#else

constexpr auto DivideRow = PairRow<Divide>;

#endif

template <class Rule>
QUILLON_INLINE void MapRow(const uint8_t* from, uint8_t* out, int count, const Rule& rule) {
  const int tail = ForEachBlock(
      count, [&](auto width, int x) { Store(out + x, rule(Load<uint8_t, width>(from + x))); });
  if (const int rest = count - tail; rest > 0) {
    StorePart(out + tail, rest, rule(LoadPart(from + tail, rest)));
  }
}

// There are no shifts of bytes: 16-bit lanes shift, and what crossed into the neighbour is cut off.
void ShiftLeftRow(const uint8_t* from, uint8_t* out, int count, int bits) {
  const auto kept = static_cast<uint8_t>(255 << bits);
  MapRow(from, out, count, [&](auto pixels) {
    using Lanes = U16<sizeof(pixels) / 2>;
    return BitCast<decltype(pixels)>(BitCast<Lanes>(pixels) << bits) & kept;
  });
}

void ShiftRightRow(const uint8_t* from, uint8_t* out, int count, int bits) {
  const auto kept = static_cast<uint8_t>(255 >> bits);
  MapRow(from, out, count, [&](auto pixels) {
    using Lanes = U16<sizeof(pixels) / 2>;
    return BitCast<decltype(pixels)>(BitCast<Lanes>(pixels) >> bits) & kept;
  });
}

void InvertRow(const uint8_t* from, uint8_t* out, int count) {
  MapRow(from, out, count, [](auto pixels) { return ~pixels; });
}

#if QUILLON_AVX512

constexpr decltype(ArithmeticKernels::LineRow) LineRow = nullptr;  // 88 us, and a table 46

#else

template <int width>
QUILLON_INLINE void PlaceOnLine(const uint8_t* from, uint8_t* out, const IntegerLine& line) {
  constexpr int kHalf = width / 2;
  using Lanes = U16<kHalf>;
  const auto place = [&](const uint8_t* pixels) {
    const Lanes scaled = BitCast<Lanes>(LoadWidened<kHalf>(pixels) * line.step) + line.start;
    return BitCast<I16<kHalf>>(MulHigh(scaled, Splat<uint16_t, kHalf>(line.gain)) - line.base);
  };
  Store(out, PackLanes(place(from), place(from + kHalf)));
}

void LineRow(const uint8_t* from, uint8_t* out, int count, const IntegerLine& given) {
  const IntegerLine line = given;
  const int tail =
      ForEachBlock(count, [&](auto width, int x) { PlaceOnLine<width>(from + x, out + x, line); });
  if (const int rest = count - tail; rest > 0) {
    uint8_t part[16];
    Store(part, LoadPart(from + tail, rest));
    PlaceOnLine<16>(part, part, line);
    StorePart(out + tail, rest, Load<uint8_t, 16>(part));
  }
}

#endif

}  // namespace

const ArithmeticKernels arithmetic = {
    .PairRow = {PairRow<Add>, PairRow<Subtract>, PairRow<Multiply>, DivideRow, PairRow<And>,
                PairRow<Or>, PairRow<Xor>, PairRow<Equal>, PairRow<NotEqual>},
    .ShiftLeftRow = ShiftLeftRow,
    .ShiftRightRow = ShiftRightRow,
    .InvertRow = InvertRow,
    .LineRow = LineRow};

}  // namespace quillon::QUILLON_LEVEL
