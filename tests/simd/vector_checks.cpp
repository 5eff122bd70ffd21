// Every named operation of the vector layer against its lanes, one by one, for vectors of 16, 32
// and 64 bytes, and the walkers over blocks against the pixels that they have to cover. Compiled
// once per level, so nothing of the standard library is called here.
#include "simd/vector_checks.h"

#include "simd/blocks.h"

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
  QUILLON_HOLDS(Holds(Min(a, b), [&](int i) { return a[i] < b[i] ? a[i] : b[i]; }));
  QUILLON_HOLDS(Holds(Max(a, b), [&](int i) { return a[i] < b[i] ? b[i] : a[i]; }));
  QUILLON_HOLDS(Holds(EvenBytes(a), [&](int i) { return a[2 * i]; }));
  QUILLON_HOLDS(Holds(OddBytes(a), [&](int i) { return a[2 * i + 1]; }));
  QUILLON_HOLDS(Holds(MergeBytes(EvenBytes(a), OddBytes(b)),
                      [&](int i) { return i % 2 == 0 ? a[i] : b[i]; }));
  QUILLON_HOLDS(Holds(SumsOf8(a), [&](int i) {
    int sum = 0;
    for (int k = 0; k < 8; ++k) sum += a[8 * i + k];
    return sum;
  }));
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
  QUILLON_HOLDS(Holds(Abs(b), [&](int i) { return b[i] < 0 ? -b[i] : b[i]; }));
  QUILLON_HOLDS(Holds(PackLanes(a, b),
                      [&](int i) { return Clamped(i < kWords ? a[i] : b[i - kWords], 0, 255); }));
  QUILLON_HOLDS(Holds(DotPairs(a, b),
                      [&](int i) { return a[2 * i] * b[2 * i] + a[2 * i + 1] * b[2 * i + 1]; }));
  const auto c = RandomLanes<int32_t, kLongs>(0, 32767), d = RandomLanes<int32_t, kLongs>(0, 32767);
  QUILLON_HOLDS(Holds(PackLanes(c, d), [&](int i) { return i < kLongs ? c[i] : d[i - kLongs]; }));
  if constexpr (N <= kVectorBytes) {
    QUILLON_HOLDS(Holds(PrefixSums(c), [&](int i) {
      int sum = 0;
      for (int k = 0; k <= i; ++k) sum += c[k];
      return sum;
    }));
    QUILLON_HOLDS(Holds(SplatLast(c), [&](int) { return c[kLongs - 1]; }));
    const auto signs = RandomLanes<int32_t, kLongs>(-1, 0);
    const uint32_t mask = MoveWordMask(signs);
    for (int i = 0; i < kLongs; ++i) QUILLON_HOLDS((mask >> i & 1) == (signs[i] < 0));
    QUILLON_HOLDS(mask >> kLongs == 0);
  }
  const auto f = Convert<float, kLongs>(c + 1);
  QUILLON_HOLDS(Holds(f, [&](int i) { return c[i] + 1; }));
  QUILLON_HOLDS(Holds(Sqrt(f * f), [&](int i) { return c[i] + 1; }));
  const auto ones = ReciprocalEstimate(f) * f;
  for (int i = 0; i < kLongs; ++i) {
    QUILLON_HOLDS(ones[i] > 1 - 1.5f / 4096 && ones[i] < 1 + 1.5f / 4096);
  }
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
  }
  return CheckWalkers();
}

}  // namespace quillon::QUILLON_LEVEL
