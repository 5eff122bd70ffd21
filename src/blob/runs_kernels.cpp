// Runs of a row: a band compare gives one bit a pixel, and the bits that differ from their left
// neighbours are the run ends. Compiled once per level.
#include "blob/runs_kernels.h"

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

constexpr int kWordBits = 64;

// One bit per pixel of [0, N): whether its value is first ... first + span modulo 256.
template <int N>
QUILLON_INLINE uint64_t BandMask(const uint8_t* pixels, uint8_t first, uint8_t span) {
  return MoveMask(BitCast<U8<N>>(Load<uint8_t, N>(pixels) - first <= span));
}

QUILLON_INLINE uint64_t BandWord(const uint8_t* pixels, uint8_t first, uint8_t span) {
  uint64_t word = 0;
  for (int x = 0; x < kWordBits; x += kVectorBytes) {
    word |= BandMask<kVectorBytes>(pixels + x, first, span) << x;
  }
  return word;
}

// The same for the last count < 64 pixels of a row that has `before` pixels to their left: vectors
// of 16, the last one overlapping what lies before it.
QUILLON_INLINE uint64_t LastBandWord(const uint8_t* pixels, int count, int before, uint8_t first,
                                     uint8_t span) {
  constexpr int kBlock = 16;
  uint64_t word = 0;
  int x = 0;
  for (; x <= count - kBlock; x += kBlock) word |= BandMask<kBlock>(pixels + x, first, span) << x;
  const int rest = count - x;
  if (rest == 0) return word;
  if (before + count >= kBlock) {
    const uint64_t last = BandMask<kBlock>(pixels + count - kBlock, first, span);
    return word | last >> (kBlock - rest) << x;
  }
  for (; x < count; ++x) {
    word |= static_cast<uint64_t>(static_cast<uint8_t>(pixels[x] - first) <= span) << x;
  }
  return word;
}

int FindRuns(const uint8_t* row, int count, uint8_t first, uint8_t span, int32_t* edges) {
  int32_t* edge = edges;
  uint64_t inside = 0;  // bit 0: whether the pixel before the word is in the band
  const auto addEdges = [&](uint64_t word, int x) {
    uint64_t changes = word ^ (word << 1 | inside);
    inside = word >> (kWordBits - 1);
    for (; changes; changes &= changes - 1) *edge++ = x + __builtin_ctzll(changes);
  };
  int x = 0;
  for (; x <= count - kWordBits; x += kWordBits) addEdges(BandWord(row + x, first, span), x);
  if (x < count) {
    // The word's bits from count on are zero, which closes a run that reaches the end.
    addEdges(LastBandWord(row + x, count - x, x, first, span), x);
  } else if (inside) {
    *edge++ = count;
  }
  return static_cast<int>(edge - edges) / 2;
}

template <int N>
using Sums = U64<N / 8>;

// Adds whole blocks of N pixels from column x on; returns the first column that is left.
template <int N>
QUILLON_INLINE int AddBlocks(const uint8_t* row, int x, int count, ChannelSum& sum) {
  constexpr int kSteps = 4;     // one after the other, additions would wait for each other
  if (x > count - N) return x;  // the next row would wait for sums stored in parts
  Sums<N> sums[kSteps] = {Load<uint64_t, N / 8>(sum.lanes)};
  for (; x <= count - kSteps * N; x += kSteps * N) {
    Unroll<kSteps>([&](auto i) { sums[i] += SumsOf8(Load<uint8_t, N>(row + x + i * N)); });
  }
  for (; x <= count - N; x += N) sums[0] += SumsOf8(Load<uint8_t, N>(row + x));
  Store(sum.lanes, (sums[0] + sums[1]) + (sums[2] + sums[3]));
  return x;
}

void AddRow(const uint8_t* row, int count, ChannelSum& sum) {
  int x = AddBlocks<kVectorBytes>(row, 0, count, sum);
  if constexpr (kVectorBytes > 16) x = AddBlocks<16>(row, x, count, sum);
  for (; x < count; ++x) sum.lanes[0] += row[x];
}

// 255 in every third place. From place 3 - r on, it marks the places that leave the rest r.
struct Thirds {
  constexpr Thirds() {
    for (int i = 0; i < kVectorBytes + 2; i += 3) marks[i] = 255;
  }
  uint8_t marks[kVectorBytes + 3] = {};
};
constexpr Thirds kThirds;

// One channel of N pixels, in any order: in each of the three vectors that hold them it has other
// places.
template <int N, int kChannel>
QUILLON_INLINE U8<N> ChannelOf(const U8<N> (&vectors)[3]) {
  const auto places = [](int vector) {
    const int rest = (kChannel + 2 * vector * N) % 3;  // 2 for -1
    return Load<uint8_t, N>(kThirds.marks + (3 - rest) % 3);
  };
  return (vectors[0] & places(0)) | (vectors[1] & places(1)) | (vectors[2] & places(2));
}

template <int N>
QUILLON_INLINE int AddColourBlocks(const uint8_t* row, int x, int count, ChannelSum (&sums)[3]) {
  if (x > count - N) return x;
  Sums<N> channels[3];
  Unroll<3>([&](auto c) { channels[c] = Load<uint64_t, N / 8>(sums[c].lanes); });
  for (; x <= count - N; x += N) {
    U8<N> pixels[3];
    Unroll<3>([&](auto i) { pixels[i] = Load<uint8_t, N>(row + 3 * x + i * N); });
    Unroll<3>([&](auto c) { channels[c] += SumsOf8(ChannelOf<N, c>(pixels)); });
  }
  Unroll<3>([&](auto c) { Store(sums[c].lanes, channels[c]); });
  return x;
}

void AddColourRow(const uint8_t* row, int count, ChannelSum (&sums)[3]) {
  int x = AddColourBlocks<kVectorBytes>(row, 0, count, sums);
  if constexpr (kVectorBytes > 16) x = AddColourBlocks<16>(row, x, count, sums);
  for (; x < count; ++x) {
    for (int c = 0; c < 3; ++c) sums[c].lanes[0] += row[3 * x + c];
  }
}

}  // namespace

const RunsKernels runs = {.FindRuns = FindRuns, .AddRow = AddRow, .AddColourRow = AddColourRow};

}  // namespace quillon::QUILLON_LEVEL
