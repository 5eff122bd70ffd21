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

// Large images wait for memory: it answers soonest where two lines of 64 bytes are read, and then
// written, in halves.
template <class Rule>
void PairRow(const uint8_t* a, const uint8_t* b, uint8_t* out, int count) {
  constexpr int kBlock = kVectorBytes < 32 ? kVectorBytes : 32, kBlocks = 128 / kBlock;
  int x = 0;
  for (; x <= count - kBlocks * kBlock; x += kBlocks * kBlock) {
    U8<kBlock> pixels[kBlocks];
    Unroll<kBlocks>([&](auto i) { pixels[i] = Load<uint8_t, kBlock>(a + x + i * kBlock); });
    Unroll<kBlocks>([&](auto i) {
      pixels[i] = Rule::Of(pixels[i], Load<uint8_t, kBlock>(b + x + i * kBlock));
    });
    Unroll<kBlocks>([&](auto i) { Store(out + x + i * kBlock, pixels[i]); });
  }
  x += ForEachBlock<kBlock>(count - x, [&, x](auto width, int i) {
    Store(out + x + i, Rule::Of(Load<uint8_t, width>(a + x + i), Load<uint8_t, width>(b + x + i)));
  });
  if (const int rest = count - x; rest > 0) {
    StorePart(out + x, rest, Rule::Of(LoadPart(a + x, rest), LoadPart(b + x, rest)));
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

#elif QUILLON_AVX2

// Estimates r of 256 / b, at least that much, as sums modulo 256 of what four tables of 16 bytes
// give; `beyond` counts 256 more.
struct ReciprocalParts {
  uint8_t below16[16], beyond16[16];  // at b < 16
  uint8_t below32[16];                // at b & 15, for b < 32
  uint8_t byFours[16];                // at b / 4 rounded up, where that is below 16
  uint8_t bySixteens[16];             // at b / 16 rounded up, of 16 at 0
};

constexpr int RoundedUp(int a, int b) { return (a + b - 1) / b; }

constexpr ReciprocalParts MakeReciprocalParts() {
  ReciprocalParts made = {};
  const auto byte = [](int value) { return static_cast<uint8_t>(value); };
  // The least b of each group settles r. The groups overlap: what a table adds is what the later
  // ones, made first, leave.
  for (int i = 4; i <= 16; ++i) {
    made.bySixteens[i % 16] = byte(RoundedUp(256, i == 4 ? 61 : 16 * i - 15));
  }
  for (int i = 8; i < 16; ++i) {
    const int least = i == 8 ? 32 : 4 * i - 3;
    made.byFours[i] = byte(RoundedUp(256, least) - made.bySixteens[RoundedUp(i, 4)]);
  }
  for (int b = 16; b < 32; ++b) {
    made.below32[b - 16] = byte(RoundedUp(256, b) - made.byFours[RoundedUp(b, 4)]);
  }
  for (int b = 0; b < 16; ++b) {
    const int r = b > 0 ? RoundedUp(256, b) : 65535;
    const int others = made.below32[b] + made.bySixteens[RoundedUp(b, 16)];
    made.below16[b] = byte(r - others);
    made.beyond16[b] = byte(r >> 8);
  }
  return made;
}

constexpr ReciprocalParts kParts = MakeReciprocalParts();

constexpr int ReciprocalFromParts(int b) {
  const int fours = RoundedUp(b, 4), sixteens = RoundedUp(b, 16);
  const int sum = (b < 16 ? kParts.below16[b] : 0) + (b < 32 ? kParts.below32[b % 16] : 0) +
                  (fours < 16 ? kParts.byFours[fours] : 0) + kParts.bySixteens[sixteens % 16];
  return sum % 256 + 256 * (b < 16 ? kParts.beyond16[b] : 0);
}

// a * r >> 8 is a / b or one more. For b = 0 its last byte is 255, or 0 for a = 0.
constexpr bool EstimatesAreClose() {
  for (int b = 1; b < 256; ++b) {
    const int r = ReciprocalFromParts(b);
    for (int a = 0; a < 256; ++a) {
      const int above = (a * r >> 8) - a / b;
      if (above != 0 && above != 1) return false;
    }
  }
  return ReciprocalFromParts(0) == 65535;
}
static_assert(EstimatesAreClose());

// Shuffles give 0 where the top bit of a place is set, and look at its lower four bits otherwise.
class Divider {
 public:
  QUILLON_INLINE U8<32> Quotients(U8<32> a, U8<32> b) const {
    const auto at = [](__m256i table, U8<32> place) {
      return BitCast<U8<32>>(_mm256_shuffle_epi8(table, BitCast<__m256i>(place)));
    };
    const U8<32> small = AddSaturate(b, Splat<uint8_t, 32>(0x80 - 16));
    const U8<32> fours = QuarterOf(b), sixteens = QuarterOf(fours);
    const U8<32> low =
        (at(below16_, small) + at(below32_, AddSaturate(b, Splat<uint8_t, 32>(0x80 - 32)))) +
        (at(byFours_, Min(fours, Splat<uint8_t, 32>(16))) + at(bySixteens_, sixteens));
    const U8<32> high = at(beyond16_, small), none = {};
    return BitCast<U8<32>>(_mm256_packus_epi16(
        Half(ZipLow(none, a), ZipLow(a, none), ZipLow(b, none), ZipLow(low, high)),
        Half(ZipHigh(none, a), ZipHigh(a, none), ZipHigh(b, none), ZipHigh(low, high))));
  }

 private:
  QUILLON_INLINE static __m256i Twice(const uint8_t* table) {
    return _mm256_broadcastsi128_si256(BitCast<__m128i>(Load<uint8_t, 16>(table)));
  }
  // A fourth, rounded up.
  QUILLON_INLINE static U8<32> QuarterOf(U8<32> v) {
    const __m256i none = _mm256_setzero_si256();
    return BitCast<U8<32>>(_mm256_avg_epu8(_mm256_avg_epu8(BitCast<__m256i>(v), none), none));
  }
  // Bytes of a and b in turn, within each 16 bytes.
  QUILLON_INLINE static U16<16> ZipLow(U8<32> a, U8<32> b) {
    return BitCast<U16<16>>(_mm256_unpacklo_epi8(BitCast<__m256i>(a), BitCast<__m256i>(b)));
  }
  QUILLON_INLINE static U16<16> ZipHigh(U8<32> a, U8<32> b) {
    return BitCast<U16<16>>(_mm256_unpackhi_epi8(BitCast<__m256i>(a), BitCast<__m256i>(b)));
  }
  // The estimate was one too large where its product with b is above a.
  QUILLON_INLINE static __m256i Half(U16<16> a256, U16<16> a, U16<16> b, U16<16> reciprocal) {
    const U16<16> estimate = MulHigh(a256, reciprocal);
    const auto above = BitCast<I16<16>>(estimate * b) > BitCast<I16<16>>(a);
    return BitCast<__m256i>((estimate + BitCast<U16<16>>(above)) & 255);
  }

  const __m256i below16_ = Twice(kParts.below16), beyond16_ = Twice(kParts.beyond16),
                below32_ = Twice(kParts.below32), byFours_ = Twice(kParts.byFours),
                bySixteens_ = Twice(kParts.bySixteens);
};

// Whole vectors look reciprocals up: 1.5 times as fast as estimating them in float.
void DivideRow(const uint8_t* a, const uint8_t* b, uint8_t* out, int count) {
  const Divider divider;
  int x = 0;
  for (; x <= count - 32; x += 32) {
    Store(out + x, divider.Quotients(Load<uint8_t, 32>(a + x), Load<uint8_t, 32>(b + x)));
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
