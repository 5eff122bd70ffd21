// Runs of a row: a band compare gives one bit a pixel, and the bits that differ from their left
// neighbours are the run ends. Compiled once per level.
#include "blob/runs_kernels.h"

#include "simd/vec.h"

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

uint32_t SumRow(const uint8_t* row, int count) {
  U64<kVectorBytes / 8> sums = {};
  int x = 0;
  for (; x <= count - kVectorBytes; x += kVectorBytes) {
    sums += SumsOf8(Load<uint8_t, kVectorBytes>(row + x));
  }
  uint32_t sum = 0;
  for (int lane = 0; lane < kVectorBytes / 8; ++lane) sum += static_cast<uint32_t>(sums[lane]);
  for (; x < count; ++x) sum += row[x];
  return sum;
}

}  // namespace

const RunsKernels runs = {.FindRuns = FindRuns, .SumRow = SumRow};

}  // namespace quillon::QUILLON_LEVEL
