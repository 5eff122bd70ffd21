// Row kernels of the finder. Compiled once per level; simd/level.h names the level. All are integer
// arithmetic, or single operations that IEEE arithmetic rounds in one way.
#include "finder/finder_kernels.h"

#include "simd/blocks.h"

#define QUILLON_QUOTE(name) #name
#define QUILLON_TEXT(name) QUILLON_QUOTE(name)

namespace quillon::QUILLON_LEVEL {
namespace {

// Lanes of a and b in turn, in their order over the whole vector: of the lower halves, or of the
// upper ones.
template <int kFrom, class V, int... i>
QUILLON_INLINE V InTurnFrom(V a, V b, std::integer_sequence<int, i...>) {
  constexpr int n = sizeof...(i);
  return __builtin_shufflevector(a, b, (kFrom + i / 2 + i % 2 * n)...);
}
template <class V>
QUILLON_INLINE V LowInTurn(V a, V b) {
  return InTurnFrom<0>(a, b, std::make_integer_sequence<int, vec_detail::kLanes<V>>{});
}
template <class V>
QUILLON_INLINE V HighInTurn(V a, V b) {
  constexpr int n = vec_detail::kLanes<V>;
  return InTurnFrom<n / 2>(a, b, std::make_integer_sequence<int, n>{});
}

// Calls block(in, out) for each kLanes elements, the last ones in copies.
template <int kLanes, class In, class Out, class Block>
QUILLON_INLINE void ForEachPart(const In* in, Out* out, int count, Block&& block) {
  int x = 0;
  for (; x <= count - kLanes; x += kLanes) block(in + x, out + x);
  if (x == count) return;
  In rest[kLanes] = {};
  Out made[kLanes];
  const auto left = static_cast<unsigned>(count - x);
  __builtin_memcpy(rest, in + x, left * sizeof(In));
  block(rest, made);
  __builtin_memcpy(out + x, made, left * sizeof(Out));
}

// Means of eight to 32 blocks.
QUILLON_INLINE I16<kVectorBytes / 2> HalveBlock(const uint8_t* upper, const uint8_t* lower) {
  const auto a = Load<uint8_t, kVectorBytes>(upper), b = Load<uint8_t, kVectorBytes>(lower);
  const auto sum = (EvenBytes(a) + OddBytes(a) + EvenBytes(b) + OddBytes(b) + 2) >> 2;
  return BitCast<I16<kVectorBytes / 2>>(sum);
}

void HalveRow(const uint8_t* upper, const uint8_t* lower, uint8_t* out, int count) {
  int x = 0;
  for (; x <= count - kVectorBytes; x += kVectorBytes) {
    const int from = 2 * x;
    Store(out + x, PackLanes(HalveBlock(upper + from, lower + from),
                             HalveBlock(upper + from + kVectorBytes, lower + from + kVectorBytes)));
  }
  for (; x < count; ++x) {
    out[x] = static_cast<uint8_t>(
        (upper[2 * x] + upper[2 * x + 1] + lower[2 * x] + lower[2 * x + 1] + 2) >> 2);
  }
}

// The sums at one column, or at as many as V has lanes.
template <class V>
struct Sobel {
  V x, y;
  Sobel(V nw, V n, V ne, V w, V e, V sw, V s, V se)
      : x((ne + 2 * e + se) - (nw + 2 * w + sw)), y((sw + 2 * s + se) - (nw + 2 * n + ne)) {}
};

void GradientRow(const uint8_t* above, const uint8_t* row, const uint8_t* below, Gradient16* out,
                 int width) {
  constexpr int kLanes = kVectorBytes / 2;
  int x = 1;
  for (; x <= width - 1 - kLanes; x += kLanes) {
    const auto at = [&](const uint8_t* from, int dx) { return LoadWidened<kLanes>(from + x + dx); };
    const Sobel<I16<kLanes>> g(at(above, -1), at(above, 0), at(above, 1), at(row, -1), at(row, 1),
                               at(below, -1), at(below, 0), at(below, 1));
    auto* to = reinterpret_cast<int16_t*>(out + x);
    Store(to, LowInTurn(g.x, g.y));
    Store(to + kLanes, HighInTurn(g.x, g.y));
  }
  for (; x < width - 1; ++x) {
    const Sobel<int> g(above[x - 1], above[x], above[x + 1], row[x - 1], row[x + 1], below[x - 1],
                       below[x], below[x + 1]);
    out[x] = {static_cast<int16_t>(g.x), static_cast<int16_t>(g.y)};
  }
  out[0] = out[width - 1] = {0, 0};
}

// 127 of as many gradients as a register holds, x and y apart.
struct Directions32 {
  I32<kVectorBytes / 4> x, y;
};
QUILLON_INLINE Directions32 NormaliseBlock(const Gradient16* gradient, float contrast) {
  constexpr int kLanes = kVectorBytes / 4;
  const auto pairs = Load<int32_t, kLanes>(reinterpret_cast<const int32_t*>(gradient));
  const auto gx = Convert<float, kLanes>(pairs << 16 >> 16);
  const auto gy = Convert<float, kLanes>(pairs >> 16);
  const auto length = Max(Sqrt(gx * gx + gy * gy), Splat<float, kLanes>(contrast));
  const auto factor = 127.0F / length;
  // Shifted to positive numbers, truncation rounds.
  return {Convert<int32_t, kLanes>(gx * factor + 128.5F) - 128,
          Convert<int32_t, kLanes>(gy * factor + 128.5F) - 128};
}

void DirectionRow(const Gradient16* gradient, float contrast, Direction8* out, int count) {
  constexpr int kLanes = kVectorBytes / 4;
  const auto block = [contrast](const Gradient16* from, Direction8* to) {
    const Directions32 a = NormaliseBlock(from, contrast);
    const Directions32 b = NormaliseBlock(from + kLanes, contrast);
    const auto nx = PackLanes(a.x, b.x), ny = PackLanes(a.y, b.y);
    Store(reinterpret_cast<uint16_t*>(to), (nx & 255) | ny << 8);
  };
  ForEachPart<2 * kLanes>(gradient, out, count, block);
}

template <bool kAny>
QUILLON_INLINE I16<kVectorBytes / 2> AgreementBlock(const Direction8* directions, int16_t c,
                                                    int16_t s) {
  const auto pairs = Load<int16_t, kVectorBytes / 2>(reinterpret_cast<const int16_t*>(directions));
  const I16<kVectorBytes / 2> nx = pairs << 8 >> 8, ny = pairs >> 8;
  const I16<kVectorBytes / 2> dot = nx * c + ny * s;
  if constexpr (kAny) {
    const I16<kVectorBytes / 2> cosine = dot >> 8, x = nx >> 1, y = ny >> 1;
    return (2 * cosine * cosine - x * x - y * y + 4096 + 256) >> 9;
  } else {
    return ((dot + 1024) >> 11) + 8;
  }
}

template <bool kAny>
void AgreementRowOf(const Direction8* directions, int c, int s, uint8_t* out, int count) {
  const auto block = [=](const Direction8* from, uint8_t* to) {
    const auto cosine = static_cast<int16_t>(c), sine = static_cast<int16_t>(s);
    Store(to, PackLanes(AgreementBlock<kAny>(from, cosine, sine),
                        AgreementBlock<kAny>(from + kVectorBytes / 2, cosine, sine)));
  };
  ForEachPart<kVectorBytes>(directions, out, count, block);
}

void AgreementRow(const Direction8* directions, int c, int s, bool anyPolarity, uint8_t* out,
                  int count) {
  if (anyPolarity) return AgreementRowOf<true>(directions, c, s, out, count);
  AgreementRowOf<false>(directions, c, s, out, count);
}

void SumRow(const uint8_t* const* rows, int rowCount, int count, uint16_t* out) {
  constexpr int kLanes = kVectorBytes, kBlock = 2 * kLanes;
  constexpr int kBytesHold = 15;  // values of up to 16
  static_assert(kBlock <= kSumBlock);
  for (int x = 0; x < count; x += kBlock) {
    // Even and odd bytes apart.
    U16<kLanes / 2> even[2] = {}, odd[2] = {};
    for (int i = 0; i < rowCount;) {
      const int stop = i + kBytesHold < rowCount ? i + kBytesHold : rowCount;
      U8<kLanes> first = {}, second = {};
      for (; i < stop; ++i) {
        first += Load<uint8_t, kLanes>(rows[i] + x);
        second += Load<uint8_t, kLanes>(rows[i] + x + kLanes);
      }
      even[0] += EvenBytes(first);
      odd[0] += OddBytes(first);
      even[1] += EvenBytes(second);
      odd[1] += OddBytes(second);
    }
    for (int half = 0; half < 2; ++half) {
      Store(out + x + half * kLanes, LowInTurn(even[half], odd[half]));
      Store(out + x + half * kLanes + kLanes / 2, HighInTurn(even[half], odd[half]));
    }
  }
}

int NextPeak(const uint16_t* row, int from, int count, uint16_t least) {
  constexpr int kLanes = kVectorBytes / 2;
  int x = from;
  for (; x <= count - kLanes; x += kLanes) {
    const auto values = Load<uint16_t, kLanes>(row + x);
    const auto above = values >= Splat<uint16_t, kLanes>(least);
    const uint64_t mask = MoveMask(BitCast<U8<kVectorBytes>>(above));
    if (mask != 0) return x + __builtin_ctzll(mask) / 2;
  }
  while (x < count && row[x] < least) ++x;
  return x;
}

void PairRow(const uint8_t* row, uint32_t* out, int count) {
  for (int x = 0; x < count - 1; ++x) out[x] = row[x] | static_cast<uint32_t>(row[x + 1]) << 16;
  out[count - 1] = row[count - 1] * 0x10001U;
}

void CorrelateRow(const uint32_t* pairs, const WeightPair* weights, int weightCount, int count,
                  int32_t* sums) {
  constexpr int kLanes = kVectorBytes / 4, kRegisters = 4;
  static_assert(kLanes * kRegisters <= kSumBlock);
  for (int x = 0; x < count; x += kRegisters * kLanes) {
    I32<kLanes> sum[kRegisters];
    for (int r = 0; r < kRegisters; ++r) sum[r] = Load<int32_t, kLanes>(sums + x + r * kLanes);
    for (int i = 0; i < weightCount; ++i) {
      int32_t both;
      __builtin_memcpy(&both, weights[i].weight, sizeof both);
      const auto weight = BitCast<I16<2 * kLanes>>(Splat<int32_t, kLanes>(both));
      const uint32_t* from = pairs + weights[i].offset + x;
      for (int r = 0; r < kRegisters; ++r) {
        const auto pixels = BitCast<I16<2 * kLanes>>(Load<uint32_t, kLanes>(from + r * kLanes));
        sum[r] += DotPairs(pixels, weight);
      }
    }
    for (int r = 0; r < kRegisters; ++r) Store(sums + x + r * kLanes, sum[r]);
  }
}

void AddRun(const int32_t* prefix, const int32_t* squarePrefix, FootprintRun run, int count,
            int32_t* sums, int32_t* squares) {
  constexpr int kLanes = kVectorBytes / 4;
  for (int x = 0; x < count; x += kLanes) {
    const auto at = [&](const int32_t* from, int dx) {
      return Load<int32_t, kLanes>(from + x + dx);
    };
    Store(sums + x, at(sums, 0) + at(prefix, run.end) - at(prefix, run.begin));
    Store(squares + x, at(squares, 0) + at(squarePrefix, run.end) - at(squarePrefix, run.begin));
  }
}

void NormaliseRow(const int32_t* products, const int32_t* sums, const int32_t* squares,
                  float factor, int pixels, float leastVariance, int count, uint16_t* out) {
  constexpr int kLanes = kVectorBytes / 4;
  const auto floats = [](const int32_t* from) {
    return Convert<float, kLanes>(Load<int32_t, kLanes>(from));
  };
  const float share = 1.0F / static_cast<float>(pixels);
  const auto block = [&](int x) {
    const auto sum = floats(sums + x);
    const auto variance = floats(squares + x) - sum * sum * share;
    const auto deviation = Sqrt(Max(variance, Splat<float, kLanes>(leastVariance)));
    const auto score = Max(floats(products + x) * factor / deviation, F32<kLanes>{});
    return Convert<int32_t, kLanes>(Min(score, Splat<float, kLanes>(1000)));
  };
  for (int x = 0; x < count; x += 2 * kLanes) {
    Store(out + x, PackLanes(block(x), block(x + kLanes)));
  }
}

}  // namespace

const FinderKernels search = {.level = QUILLON_TEXT(QUILLON_LEVEL),
                              .HalveRow = HalveRow,
                              .GradientRow = GradientRow,
                              .DirectionRow = DirectionRow,
                              .AgreementRow = AgreementRow,
                              .SumRow = SumRow,
                              .NextPeak = NextPeak,
                              .PairRow = PairRow,
                              .CorrelateRow = CorrelateRow,
                              .NormaliseRow = NormaliseRow,
                              .AddRun = AddRun};

}  // namespace quillon::QUILLON_LEVEL
