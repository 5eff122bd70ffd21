// Row kernels of pixel arithmetic: each rule once, on vectors of bytes. Compiled once per level.
#include "arith/arithmetic_kernels.h"

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

}  // namespace

const ArithmeticKernels arithmetic = {
    .PairRow = {PairRow<Add>, PairRow<Subtract>, PairRow<Multiply>, PairRow<Divide>, PairRow<And>,
                PairRow<Or>, PairRow<Xor>, PairRow<Equal>, PairRow<NotEqual>},
    .ShiftLeftRow = ShiftLeftRow,
    .ShiftRightRow = ShiftRightRow,
    .InvertRow = InvertRow};

}  // namespace quillon::QUILLON_LEVEL
