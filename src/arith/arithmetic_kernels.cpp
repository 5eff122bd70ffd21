// Row kernels of pixel arithmetic: each rule once, on vectors of bytes. Compiled once per level.
#include "arith/arithmetic_kernels.h"

#include "simd/blocks.h"
#include "simd/byte_table.h"

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
    return MulSaturate(a, b);
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

// On images larger than the caches this loop waits for memory, and the order of reads and writes
// decides how long: two cache lines (128 bytes) of each source are read before any is written.
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

#if QUILLON_BYTE_TABLES

// The greatest r below 65536 / b for every b, its two bytes in a table each. (a + 1) * r >> 16 is a
// / b: with a = q b + c and r = 65536 / b - e, 0 < e <= 1, the product stays below (q + 1) * 65536
// as c < b, and reaches q * 65536 as 65536 / b >= e (q b + 1), which holds as b (q b + 1) <= 255 *
// 256. For b = 0, r is that of 1.
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

// Whole vectors look reciprocals up, 2.5 times as fast as estimating them in float; the rest of the
// row is estimated.
void DivideRow(const uint8_t* a, const uint8_t* b, uint8_t* out, int count) {
  constexpr int kBlock = kVectorBytes;
  using Lanes = U16<kBlock / 2>;
  const ByteTable lows(kReciprocals.low), highs(kReciprocals.high);
  const U8<kBlock> none = {};
  int x = 0;
  for (; x <= count - kBlock; x += kBlock) {
    const auto dividends = Load<uint8_t, kBlock>(a + x), divisors = Load<uint8_t, kBlock>(b + x);
    const auto low = lows.At(divisors), high = highs.At(divisors);
    const auto quotients = [&](auto dividend, auto reciprocal) {
      return BitCast<I16<kBlock / 2>>(
          MulHigh(BitCast<Lanes>(dividend) + 1, BitCast<Lanes>(reciprocal)));
    };
    const auto whole = PackWithin16(quotients(ZipLow(dividends, none), ZipLow(low, high)),
                                    quotients(ZipHigh(dividends, none), ZipHigh(low, high)));
    const auto endless = (divisors == 0) & (dividends != 0);
    Store(out + x, endless ? none + 255 : whole);
  }
  PairRow<Divide>(a + x, b + x, out + x, count - x);
}

#elif QUILLON_BYTE_SHUFFLES

// Division without a divider: a / b from a * r >> 8, where r is 256 / b rounded up. This level
// looks up only 16 entries at a time, so r is the sum of up to four lookups, modulo 256: one by b
// itself for the smallest divisors, one by b again for those below 32, one by b / 4 and one by b /
// 16. For larger b the coarse tables alone are close enough. beyond16 holds the second byte of r.
struct ReciprocalParts {
  uint8_t below16[16], beyond16[16];  // entry b, for b < 16
  uint8_t below32[16];                // entry b & 15, for b < 32
  uint8_t byFours[16];                // entry b / 4 rounded up, where that is below 16
  uint8_t bySixteens[16];             // entry b / 16 rounded up; 16 itself is entry 0
};

constexpr int RoundedUp(int a, int b) { return (a + b - 1) / b; }

constexpr ReciprocalParts MakeReciprocalParts() {
  ReciprocalParts made = {};
  const auto byte = [](int value) { return static_cast<uint8_t>(value); };
  // Divisors that share an entry share its r, so r must suit the least of them, which needs the
  // largest. A divisor adds up entries of several tables. So the coarsest table is filled first,
  // and an entry of a finer one is what is missing from r after the coarser ones.
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

// Whether a * r >> 8 is a / b or one more for all bytes; Divider corrects the latter. For b = 0, r
// is 65535, which gives 255, or 0 for a = 0, in the last byte.
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

// Looks the parts up and adds them. The byte shuffle that looks up gives 0 where the top bit of an
// index is set, and else goes by its lower four bits; indices are arranged so that a table is
// silent for divisors that are none of its business.
class Divider {
 public:
  static constexpr int kBlock = kVectorBytes;
  using Bytes = U8<kBlock>;
  using Lanes = U16<kBlock / 2>;

  QUILLON_INLINE Bytes Quotients(Bytes a, Bytes b) const {
    const Bytes none = {};
    const Bytes small = AddSaturate(b, none + (0x80 - 16));
    const Bytes fours = QuarterOf(b), sixteens = QuarterOf(fours);
    const Bytes low =
        (ShuffleBytes(below16_, small) +
         ShuffleBytes(below32_, AddSaturate(b, none + (0x80 - 32)))) +
        (ShuffleBytes(byFours_, Min(fours, none + 16)) + ShuffleBytes(bySixteens_, sixteens));
    const Bytes high = ShuffleBytes(beyond16_, small);
    return PackWithin16(
        Half(ZipLow(none, a), ZipLow(a, none), ZipLow(b, none), ZipLow(low, high)),
        Half(ZipHigh(none, a), ZipHigh(a, none), ZipHigh(b, none), ZipHigh(low, high)));
  }

 private:
  // v / 4, rounded up.
  QUILLON_INLINE static Bytes QuarterOf(Bytes v) { return Average(Average(v, Bytes{}), Bytes{}); }
  // Half of the quotients, in 16-bit lanes: the estimate, less one where estimate * b is above a.
  // The bytes of two vectors make up each argument's lanes: of 0 and a, a * 256.
  QUILLON_INLINE static I16<kBlock / 2> Half(Bytes a256, Bytes a, Bytes b, Bytes reciprocal) {
    const Lanes estimate = MulHigh(BitCast<Lanes>(a256), BitCast<Lanes>(reciprocal));
    const auto above =
        BitCast<I16<kBlock / 2>>(estimate * BitCast<Lanes>(b)) > BitCast<I16<kBlock / 2>>(a);
    return BitCast<I16<kBlock / 2>>((estimate + BitCast<Lanes>(above)) & 255);
  }

  const Bytes below16_ = Repeat16<kBlock>(kParts.below16),
              beyond16_ = Repeat16<kBlock>(kParts.beyond16),
              below32_ = Repeat16<kBlock>(kParts.below32),
              byFours_ = Repeat16<kBlock>(kParts.byFours),
              bySixteens_ = Repeat16<kBlock>(kParts.bySixteens);
};

// Whole vectors look reciprocals up, 1.5 times as fast as estimating them in float; the rest of the
// row is estimated.
void DivideRow(const uint8_t* a, const uint8_t* b, uint8_t* out, int count) {
  constexpr int kBlock = Divider::kBlock;
  const Divider divider;
  int x = 0;
  for (; x <= count - kBlock; x += kBlock) {
    Store(out + x, divider.Quotients(Load<uint8_t, kBlock>(a + x), Load<uint8_t, kBlock>(b + x)));
  }
  PairRow<Divide>(a + x, b + x, out + x, count - x);
}

#else

constexpr auto DivideRow = PairRow<Divide>;

#endif

template <class Rule>
QUILLON_INLINE void MapRow(const uint8_t* from, uint8_t* out, int count, const Rule& rule) {
  const int tail = ForEachShortBlock(
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
    return BitCast<decltype(pixels)>(ShiftLeft(BitCast<Lanes>(pixels), bits)) & kept;
  });
}

void ShiftRightRow(const uint8_t* from, uint8_t* out, int count, int bits) {
  const auto kept = static_cast<uint8_t>(255 >> bits);
  MapRow(from, out, count, [&](auto pixels) {
    using Lanes = U16<sizeof(pixels) / 2>;
    return BitCast<decltype(pixels)>(ShiftRight(BitCast<Lanes>(pixels), bits)) & kept;
  });
}

void InvertRow(const uint8_t* from, uint8_t* out, int count) {
  MapRow(from, out, count, [](auto pixels) { return ~pixels; });
}

#if QUILLON_BYTE_TABLES

// At this level a table lookup is faster: 46 us for an image on which the line took 88.
constexpr decltype(ArithmeticKernels::LineRow) LineRow = nullptr;

#else

template <int width>
QUILLON_INLINE void PlaceOnLine(const uint8_t* from, uint8_t* out, const IntegerLine& line) {
  constexpr int kHalf = width / 2;
  using Lanes = U16<kHalf>;
  const auto place = [&](const uint8_t* pixels) {
    const Lanes scaled = BitCast<Lanes>(LoadWidened<kHalf>(pixels)) * line.step + line.start;
    const auto high = MulHigh(BitCast<I16<kHalf>>(scaled), Splat<int16_t, kHalf>(line.gain));
    return BitCast<I16<kHalf>>(BitCast<Lanes>(high) - line.base);
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
