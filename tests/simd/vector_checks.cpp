// Every named operation of the vector layer against its lanes, one by one, for vectors of 16, 32
// and 64 bytes, and the walkers over blocks against the pixels that they have to cover. Compiled
// once per level, so nothing of the standard library is called here.
#include "simd/vector_checks.h"

#include "simd/blocks.h"
#include "simd/byte_table.h"
#include "simd/byte_window.h"
#include "simd/deinterleave.h"

namespace quillon::QUILLON_LEVEL {
namespace {

uint32_t state = 1;
uint32_t Random() { return (state = state * 1664525 + 1013904223) >> 8; }

template <class T, int N>
Vec<T, N> RandomLanes(int low, int high) {
  T lanes[N];
  for (T& lane : lanes) {
    lane = static_cast<T>(low + static_cast<int>(Random() % static_cast<uint32_t>(high - low + 1)));
  }
  return Load<T, N>(lanes);
}

// Whether lane i is expected(i), for all.
template <class V, class Expected>
bool Holds(V v, const Expected& expected) {
  for (int i = 0; i < vec_detail::kLanes<V>; ++i) {
    if (v[i] != static_cast<decltype(v[0] + 0)>(expected(i))) return false;
  }
  return true;
}

int Clamped(int value, int low, int high) {
  return value < low ? low : value > high ? high : value;
}

#define QUILLON_HOLDS(condition) \
  if (!(condition)) return #condition

template <int N>
const char* CheckBytes() {
  const auto a = RandomLanes<uint8_t, N>(0, 255), b = RandomLanes<uint8_t, N>(0, 255);
  QUILLON_HOLDS(Holds(AddSaturate(a, b), [&](int i) { return Clamped(a[i] + b[i], 0, 255); }));
  QUILLON_HOLDS(Holds(SubSaturate(a, b), [&](int i) { return Clamped(a[i] - b[i], 0, 255); }));
  const auto few = a >> 4;  // half of their products are above 255
  QUILLON_HOLDS(Holds(MulSaturate(a, b), [&](int i) { return Clamped(a[i] * b[i], 0, 255); }));
  QUILLON_HOLDS(Holds(MulSaturate(few, b), [&](int i) { return Clamped(few[i] * b[i], 0, 255); }));
  QUILLON_HOLDS(Holds(Min(a, b), [&](int i) { return a[i] < b[i] ? a[i] : b[i]; }));
  QUILLON_HOLDS(Holds(Max(a, b), [&](int i) { return a[i] < b[i] ? b[i] : a[i]; }));
  QUILLON_HOLDS(Holds(Average(a, b), [&](int i) { return (a[i] + b[i] + 1) / 2; }));
  // The lanes of both in turn, from lane `from` of each 16 bytes.
  const auto zipped = [&](int i, int from) {
    const int lane = i / 16 * 16 + from + i % 16 / 2;
    return i % 2 ? b[lane] : a[lane];
  };
  QUILLON_HOLDS(Holds(ZipLow(a, b), [&](int i) { return zipped(i, 0); }));
  QUILLON_HOLDS(Holds(ZipHigh(a, b), [&](int i) { return zipped(i, 8); }));
  QUILLON_HOLDS(Holds(EvenBytes(a), [&](int i) { return a[2 * i]; }));
  QUILLON_HOLDS(Holds(OddBytes(a), [&](int i) { return a[2 * i + 1]; }));
  QUILLON_HOLDS(Holds(MergeBytes(EvenBytes(a), OddBytes(b)),
                      [&](int i) { return i % 2 == 0 ? a[i] : b[i]; }));
  QUILLON_HOLDS(Holds(SumsOf8(a), [&](int i) {
    int sum = 0;
    for (int k = 0; k < 8; ++k) sum += a[8 * i + k];
    return sum;
  }));
  if constexpr (N <= kVectorBytes) {
    EightSums<N> sums;
    for (int i = 0; i < 126; ++i) sums.Add(~U8<N>{});
    sums.Add(a);
    sums.Add(b);
    const auto eights = SumsOf8(a) + SumsOf8(b);
    QUILLON_HOLDS(Holds(sums.Sums(), [&](int i) { return eights[i] + 126 * 8 * 255; }));
    QUILLON_HOLDS(Holds(BytesFrom<1>(a, b), [&](int i) { return i + 1 < N ? a[i + 1] : b[0]; }));
    QUILLON_HOLDS(
        Holds(BytesFrom<N - 3>(a, b), [&](int i) { return i < 3 ? a[N - 3 + i] : b[i - 3]; }));
    QUILLON_HOLDS(Holds(BytesFrom<0>(a, b), [&](int i) { return a[i]; }));
    QUILLON_HOLDS(Holds(BytesFrom<N>(a, b), [&](int i) { return b[i]; }));
    QUILLON_HOLDS(Holds(KeepOnce(a), [&](int i) { return a[i]; }));
  }
  const uint64_t mask = MoveMask(a);
  for (int i = 0; i < N; ++i) QUILLON_HOLDS((mask >> i & 1) == (a[i] > 127));
  QUILLON_HOLDS(N == 64 || mask >> (N % 64) == 0);
  const auto weights = RandomLanes<int8_t, N>(-64, 63);
  QUILLON_HOLDS(Holds(DotBytePairs(a, weights), [&](int i) {
    return a[2 * i] * weights[2 * i] + a[2 * i + 1] * weights[2 * i + 1];
  }));
  uint8_t bytes[N];
  Store(bytes, a);
  QUILLON_HOLDS(Holds(LoadWidened<N>(bytes), [&](int i) { return bytes[i]; }));
  QUILLON_HOLDS(Holds(Repeat16<N>(bytes), [&](int i) { return bytes[i % 16]; }));
  if constexpr (N > 16) {
    QUILLON_HOLDS(Holds(Low(a), [&](int i) { return a[i]; }));
    QUILLON_HOLDS(Holds(High(a), [&](int i) { return a[i + N / 2]; }));
    QUILLON_HOLDS(Holds(Join(Low(a), High(b)), [&](int i) { return i < N / 2 ? a[i] : b[i]; }));
  }
  return nullptr;
}

// Of 16 and 32 bits, in N bytes.
template <int N>
const char* CheckWords() {
  constexpr int kWords = N / 2, kLongs = N / 4;
  const auto a = RandomLanes<int16_t, kWords>(-32768, 32767);
  const auto b = RandomLanes<int16_t, kWords>(-32767, 32767);
  const auto u = RandomLanes<uint16_t, kWords>(0, 65535),
             v = RandomLanes<uint16_t, kWords>(0, 65535);
  QUILLON_HOLDS(Holds(MulHigh(u, v), [&](int i) { return (uint32_t{u[i]} * v[i]) >> 16; }));
  QUILLON_HOLDS(Holds(MulHigh(a, b), [&](int i) { return a[i] * b[i] >> 16; }));
  QUILLON_HOLDS(Holds(Abs(b), [&](int i) { return b[i] < 0 ? -b[i] : b[i]; }));
  QUILLON_HOLDS(Holds(PackLanes(a, b),
                      [&](int i) { return Clamped(i < kWords ? a[i] : b[i - kWords], 0, 255); }));
  QUILLON_HOLDS(Holds(DotPairs(a, b),
                      [&](int i) { return a[2 * i] * b[2 * i] + a[2 * i + 1] * b[2 * i + 1]; }));
  // Numbers of bits that the compiler does not know.
  const int bits = static_cast<int>(Random() % 16);
  QUILLON_HOLDS(Holds(ShiftLeft(u, bits), [&](int i) { return (u[i] << bits) & 0xFFFF; }));
  QUILLON_HOLDS(Holds(ShiftRight(u, bits), [&](int i) { return u[i] >> bits; }));
  QUILLON_HOLDS(Holds(ShiftRight(a, bits), [&](int i) { return a[i] >> bits; }));
  const auto c = RandomLanes<int32_t, kLongs>(0, 32767), d = RandomLanes<int32_t, kLongs>(0, 32767);
  QUILLON_HOLDS(Holds(PackLanes(c, d), [&](int i) { return i < kLongs ? c[i] : d[i - kLongs]; }));
  if constexpr (N <= kVectorBytes) {
    QUILLON_HOLDS(Holds(PrefixSums(c), [&](int i) {
      int sum = 0;
      for (int k = 0; k <= i; ++k) sum += c[k];
      return sum;
    }));
    QUILLON_HOLDS(Holds(SplatLast(c), [&](int) { return c[kLongs - 1]; }));
    QUILLON_HOLDS(Holds(ByPlaceWithin16(c), [&](int i) {
      constexpr int kGroups = N / 16;
      return c[i % kGroups * 4 + i / kGroups];
    }));
    const auto signs = RandomLanes<int32_t, kLongs>(-1, 0);
    const uint32_t mask = MoveWordMask(signs);
    for (int i = 0; i < kLongs; ++i) QUILLON_HOLDS((mask >> i & 1) == (signs[i] < 0));
    QUILLON_HOLDS(mask >> kLongs == 0);
  }
  const auto f = Convert<float, kLongs>(c + 1);
  QUILLON_HOLDS(Holds(f, [&](int i) { return c[i] + 1; }));
  QUILLON_HOLDS(Holds(Sqrt(f * f), [&](int i) { return c[i] + 1; }));
  // Halves go to the even number.
  QUILLON_HOLDS(Holds(RoundToWhole(f * 0.5f - 9), [&](int i) {
    const int twice = c[i] + 1 - 18, below = twice >> 1;
    return twice % 2 == 0 ? below : below + (below & 1);
  }));
  const auto ones = ReciprocalEstimate(f) * f;
  for (int i = 0; i < kLongs; ++i) {
    QUILLON_HOLDS(ones[i] > 1 - 1.5f / 4096 && ones[i] < 1 + 1.5f / 4096);
  }
  return nullptr;
}

// What is there for the level's own registers, and what gathers 16 bytes.
const char* CheckRegister() {
  constexpr int N = kVectorBytes, kWords = N / 2, kLongs = N / 4;
  const auto a = RandomLanes<int16_t, kWords>(-32768, 32767);
  const auto b = RandomLanes<int16_t, kWords>(-32767, 32767);
  const auto sum = RandomLanes<int32_t, kLongs>(-1000000000, 1000000000);
  const auto modulo = [](int64_t value) { return static_cast<int32_t>(value); };
  QUILLON_HOLDS(Holds(AddDotPairs(sum, a, b), [&](int i) {
    return modulo(int64_t{sum[i]} + a[2 * i] * b[2 * i] + a[2 * i + 1] * b[2 * i + 1]);
  }));
  const auto to16 = [](const auto& first, const auto& second, int lanes, int i, int low, int high) {
    const int lane = i / (2 * lanes) * lanes + i % lanes;
    return Clamped(i / lanes % 2 ? second[lane] : first[lane], low, high);
  };
  QUILLON_HOLDS(Holds(PackWithin16(a, b), [&](int i) { return to16(a, b, 8, i, 0, 255); }));
  const auto c = RandomLanes<int32_t, kLongs>(-40000, 40000);
  const auto d = RandomLanes<int32_t, kLongs>(-40000, 40000);
  QUILLON_HOLDS(Holds(PackWithin16(c, d), [&](int i) { return to16(c, d, 4, i, -32768, 32767); }));
  // Small whole numbers: exact, whether rounded once or twice.
  const auto f = Convert<float, kLongs>(c >> 6), g = Convert<float, kLongs>(d >> 6);
  QUILLON_HOLDS(
      Holds(MulAdd(f, g, f), [&](int i) { return (c[i] >> 6) * (d[i] >> 6) + (c[i] >> 6); }));

  uint8_t bytes[256];
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(Random());
  QUILLON_HOLDS(Holds(LoadBytesAsLongs(bytes), [&](int i) { return bytes[i]; }));
  uint32_t longs[64];
  int32_t places[64];
  for (int i = 0; i < 64; ++i) longs[i] = Random(), places[i] = static_cast<int32_t>(Random() % 64);
  const auto index = Load<int32_t, kLongs>(places);
  for (int i = 0; i < kLongs; ++i) QUILLON_HOLDS(Gather(longs, index)[i] == longs[places[i]]);
  const auto low = RandomLanes<uint16_t, 8>(0, 65535), high = RandomLanes<uint16_t, 8>(0, 65535);
  I32<kLongs> widened[64 / N];
  WidenWords(low, high, widened);
  for (int i = 0; i < 16; ++i) {
    QUILLON_HOLDS(widened[i / kLongs][i % kLongs] == (i < 8 ? low[i] : high[i - 8]));
  }
  for (auto& each : widened) each &= 255;
  QUILLON_HOLDS(
      Holds(PackToBytes(widened), [&](int i) { return (i < 8 ? low[i] : high[i - 8]) & 255; }));

  const auto p = Load<uint8_t, 16>(bytes), q = Load<uint8_t, 16>(bytes + 16);
  QUILLON_HOLDS(Holds(LoadHalf(bytes), [&](int i) { return i < 8 ? bytes[i] : 0; }));
  QUILLON_HOLDS(Holds(JoinLowHalves(p, q), [&](int i) { return i < 8 ? p[i] : q[i - 8]; }));
  int16_t words[16];
  StoreWidened(words, p);
  for (int i = 0; i < 16; ++i) QUILLON_HOLDS(words[i] == p[i]);
  const U8<16> each = CollectBytes(bytes, places), pairs = CollectBytePairs(bytes, places);
  for (int i = 0; i < 8; ++i) {
    QUILLON_HOLDS(each[i] == bytes[places[i]] && pairs[2 * i] == bytes[places[i]] &&
                  pairs[2 * i + 1] == bytes[places[i] + 1]);
  }
  const auto planes = LoadPlanes<N>(bytes);
  for (int i = 0; i < N; ++i) {
    QUILLON_HOLDS(planes.blue[i] == bytes[3 * i] && planes.green[i] == bytes[3 * i + 1] &&
                  planes.red[i] == bytes[3 * i + 2]);
  }
#if QUILLON_BYTE_SHUFFLES
  const auto table = Load<uint8_t, N>(bytes), by = RandomLanes<uint8_t, N>(0, 255);
  QUILLON_HOLDS(Holds(ShuffleBytes(table, by),
                      [&](int i) { return by[i] & 128 ? 0 : table[i / 16 * 16 + by[i] % 16]; }));
#if !QUILLON_BYTE_TABLES
  const auto other = Load<uint8_t, N>(bytes + N);
  QUILLON_HOLDS(Holds(BlendByTopBit(table, other, by),
                      [&](int i) { return by[i] & 128 ? other[i] : table[i]; }));
#endif
#endif
#if QUILLON_PAIR_SHUFFLES
  const auto among = RandomLanes<uint8_t, 16>(0, 31);
  QUILLON_HOLDS(Holds(ShuffleBytePairs(p, q, among), [&](int i) { return bytes[among[i]]; }));
#endif
#if QUILLON_BYTE_TABLES
  const auto entries = RandomLanes<uint8_t, N>(0, 255);
  QUILLON_HOLDS(Holds(ByteTable(bytes).At(entries), [&](int i) { return bytes[entries[i]]; }));
#endif
#if QUILLON_BYTE_WINDOWS
  const auto half = entries & 127, quarter = entries & 63;
  QUILLON_HOLDS(Holds(ByteTableOf<2>(bytes).At(half), [&](int i) { return bytes[half[i]]; }));
  QUILLON_HOLDS(Holds(ByteTableOf<1>(bytes).At(quarter), [&](int i) { return bytes[quarter[i]]; }));
  // Of an image whose first line comes last.
  constexpr int kPitch = 21;
  const uint8_t* line = bytes + (ByteWindow::kLines - 1) * kPitch;
  const auto picked = RandomLanes<uint8_t, N>(0, ByteWindow::kLines * ByteWindow::kColumns - 1);
  QUILLON_HOLDS(Holds(ByteWindow(line, -kPitch).At(picked),
                      [&](int i) { return line[picked[i] % 16 - picked[i] / 16 * kPitch]; }));
#endif
#if QUILLON_BYTE_DOTS
  const auto factors = BitCast<U8<N>>(RandomLanes<int8_t, N>(-128, 127));
  QUILLON_HOLDS(Holds(AddDotBytes(sum, table, factors), [&](int i) {
    int64_t dot = sum[i];
    for (int k = 4 * i; k < 4 * i + 4; ++k) dot += table[k] * static_cast<DotFactor>(factors[k]);
    return modulo(dot);
  }));
#endif
#if QUILLON_LANE_MERGES
  QUILLON_HOLDS(Holds(MergeLowBytes(c, d, sum, ~c), [&](int i) {
    const int32_t from[] = {c[i / 4], d[i / 4], sum[i / 4], ~c[i / 4]};
    return from[i % 4] & 255;
  }));
#endif
  return nullptr;
}

const char* CheckSieves() {
#if QUILLON_BYTE_SIEVES
  const auto bytes = RandomLanes<uint8_t, 64>(0, 255);
  const auto words = BitCast<U64<8>>(RandomLanes<uint8_t, 64>(0, 255));
  const auto others = BitCast<U64<8>>(bytes);
  for (const uint64_t bits : {uint64_t{0}, ~uint64_t{0}, words[0], words[1] & words[2]}) {
    QUILLON_HOLDS(Holds(SievedBytes(bytes, bits), [&](int i) {
      for (int from = 0; from < 64; ++from) {
        if (bits >> from & 1 && i-- == 0) return bytes[from];
      }
      return uint8_t{0};
    }));
  }
  QUILLON_HOLDS(Holds(BitCounts(words), [&](int i) { return __builtin_popcountll(words[i]); }));
  QUILLON_HOLDS(Holds(ChooseBits(words, others, ~others),
                      [&](int i) { return (words[i] & others[i]) | (~words[i] & ~others[i]); }));
#endif
  return nullptr;
}

// Each walker covers a row as it says: marks[x] counts how often column x was in a block.
const char* CheckWalkers() {
  constexpr int kMost = 4 * 64 + 3;
  for (int count = 0; count <= kMost; ++count) {
    int marks[kMost + 64] = {}, next = 0;
    bool inOrder = true;
    const int tail = ForEachBlock(count, [&](auto width, int x) {
      inOrder = inOrder && x == next && width >= 16 && width <= kVectorBytes;
      next = x + width;
    });
    QUILLON_HOLDS(inOrder && tail == next && tail <= count && count - tail < 16);
    for (int from : {0, 1, 5, 16}) {
      if (from > count) continue;
      bool isInside = true;
      const bool done = ForEachOverlappingBlock(from, count, [&](auto width, int x) {
        isInside = isInside && x >= from && x + width <= count;
        for (int i = 0; i < width; ++i) marks[x + i] = from + 1;
      });
      QUILLON_HOLDS(isInside && done == (count - from >= 16));
      for (int x = from; done && x < count; ++x) QUILLON_HOLDS(marks[x] == from + 1);
    }
  }
  uint8_t bytes[16], part[17];
  for (int i = 0; i < 16; ++i) bytes[i] = static_cast<uint8_t>(i + 1);
  for (int count = 0; count < 16; ++count) {
    const U8<16> loaded = LoadPart(bytes, count);
    QUILLON_HOLDS(Holds(loaded, [&](int i) { return i < count ? i + 1 : 0; }));
    for (uint8_t& each : part) each = 99;
    StorePart(part, count, Load<uint8_t, 16>(bytes));
    for (int i = 0; i < 17; ++i) QUILLON_HOLDS(part[i] == (i < count ? i + 1 : 99));
  }
  int sum = 0;
  Unroll<5>([&](auto i) { sum += 1 << i; });
  QUILLON_HOLDS(sum == 31);
  return nullptr;
}

template <int N>
const char* CheckWidth() {
  const char* wrong = CheckBytes<N>();
  return wrong ? wrong : CheckWords<N>();
}

}  // namespace

const char* CheckVectors() {
  for (int round = 0; round < 200; ++round) {
    for (const char* wrong : {CheckWidth<16>(), CheckWidth<32>(), CheckWidth<64>()}) {
      if (wrong) return wrong;
    }
    if (const char* wrong = CheckRegister()) return wrong;
    if (const char* wrong = CheckSieves()) return wrong;
  }
  return CheckWalkers();
}

}  // namespace quillon::QUILLON_LEVEL
