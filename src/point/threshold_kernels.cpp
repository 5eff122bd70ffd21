// Row kernels of the thresholds. Compiled once per level.
#include "point/threshold_kernels.h"

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

// A pixel less than `levels` above the first level between the bounds lies between them; those
// below it wrap round. Seen with their top bit flipped, bytes compare as signed ones, as every
// processor can.
void BetweenRow(uint8_t* row, int count, int lower, int upper) {
  const int levels = upper > lower ? upper - lower - 1 : 0;
  const auto first = static_cast<uint8_t>(lower + 1 + 128);
  const auto end = static_cast<int8_t>(levels - 128);
  int x = ForEachShortBlock(count, [&](auto width, int from) {
    const auto place = BitCast<I8<width>>(Load<uint8_t, width>(row + from) - first);
    Store(row + from, BitCast<U8<width>>(place < end));
  });
  for (; x < count; ++x) row[x] = lower < row[x] && row[x] < upper ? 255 : 0;
}

// ---- pixels of each level -----------------------------------------------------------------------

#if QUILLON_BYTE_SIEVES

// A counter in memory takes a store for each pixel, and waits where the next one has its level.
// Here the bits of 512 pixels lie in eight vectors, one for each place. The pixels of one level are
// then the bits of an intersection, which three instructions make and count. So that there are only
// 64 levels to intersect, pixels are first sieved into four streams, by their upper two bits.

using Sieve = LevelSieve;
using Plane = U64<8>;

QUILLON_INLINE Plane LoadPlane(const uint64_t (&from)[8]) { return Load<uint64_t, 8>(from); }

// The bits of a outside the mask change places with those of b that lie `shift` lower.
QUILLON_INLINE void SwapBits(Plane& a, Plane& b, int shift, uint8_t mask) {
  const auto kept = BitCast<Plane>(Splat<uint8_t, 64>(mask));
  const Plane newA = ChooseBits(kept, a, b << shift);
  b = ChooseBits(kept, a >> shift, b);
  a = newA;
}

// The eight intersections of three planes, or of what they leave out: number v where their bits
// make v.
QUILLON_INLINE void Intersect(Plane one, Plane two, Plane four, uint64_t (*intersections)[8]) {
  const Plane pairs[4] = {~one & ~two, one & ~two, ~one & two, one & two};
  for (int v = 0; v < 8; ++v) Store(intersections[v], pairs[v % 4] & (v < 4 ? ~four : four));
}

// Counts blocks of one stream by the lower six bits.
QUILLON_INLINE void CountBlocks(const uint8_t* pixels, int blocks, Sieve& sieve,
                                uint64_t (&counts)[Sieve::kLevelsOfStream][8]) {
  for (int block = 0; block < blocks; ++block) {
    Plane v[8];
    for (int i = 0; i < 8; ++i) {
      v[i] = BitCast<Plane>(Load<uint8_t, 64>(pixels + block * Sieve::kBlock + 64 * i));
    }
    for (const int i : {0, 1, 2, 3}) SwapBits(v[i], v[i + 4], 4, 0x0F);
    for (const int i : {0, 1, 4, 5}) SwapBits(v[i], v[i + 2], 2, 0x33);
    for (const int i : {0, 2, 4}) SwapBits(v[i], v[i + 1], 1, 0x55);
    Intersect(v[0], v[1], v[2], sieve.low[block]);
    Intersect(v[3], v[4], v[5], sieve.high[block]);
  }
  constexpr int kSide = 4;  // of the square of levels whose sums stay in registers
  for (int h = 0; h < 8; h += kSide) {
    for (int l = 0; l < 8; l += kSide) {
      Plane sums[kSide][kSide] = {};
      for (int block = 0; block < blocks; ++block) {
        for (int i = 0; i < kSide; ++i) {
          const Plane low = LoadPlane(sieve.low[block][l + i]);
          for (int j = 0; j < kSide; ++j) {
            sums[j][i] += BitCounts(low & LoadPlane(sieve.high[block][h + j]));
          }
        }
      }
      for (int j = 0; j < kSide; ++j) {
        for (int i = 0; i < kSide; ++i) {
          uint64_t(&count)[8] = counts[8 * (h + j) + l + i];
          Store(count, LoadPlane(count) + sums[j][i]);
        }
      }
    }
  }
}

// Adds 64 ... kChunk pixels to the streams, which end at `filled`. The last 64 overlap those before
// them.
QUILLON_INLINE void SievePixels(const uint8_t* pixels, int count, Sieve& sieve,
                                int (&filled)[Sieve::kStreams]) {
  for (int x = 0; x < count; x += 64) {
    const int from = x <= count - 64 ? x : count - 64;
    const uint64_t isNew = ~uint64_t{0} << (x - from);
    const auto bytes = Load<uint8_t, 64>(pixels + from);
    const uint64_t upper = MoveMask(bytes), lower = MoveMask(bytes + bytes);
    const uint64_t members[] = {~upper & ~lower, ~upper & lower, upper & ~lower, upper & lower};
    for (int s = 0; s < Sieve::kStreams; ++s) {
      Store(sieve.streams[s] + filled[s], SievedBytes(bytes, members[s] & isNew));
      filled[s] += __builtin_popcountll(members[s] & isNew);
    }
  }
}

void CountLevels(const uint8_t* const* rows, int width, int height, Sieve& sieve,
                 Histogram& histogram) {
  int filled[Sieve::kStreams] = {};
  for (int y = height - 1; y >= 0; --y) {  // by rising addresses
    const uint8_t* row = rows[y];
    int x = 0;
    for (; x <= width - 64; x += Sieve::kChunk) {
      SievePixels(row + x, width - x < Sieve::kChunk ? width - x : Sieve::kChunk, sieve, filled);
      for (int s = 0; s < Sieve::kStreams; ++s) {
        if (filled[s] < Sieve::kChunk) continue;
        uint8_t* stream = sieve.streams[s];
        CountBlocks(stream, Sieve::kBlocks, sieve, sieve.counts[s]);
        filled[s] -= Sieve::kChunk;
        for (int i = 0; i < filled[s]; i += 64) {
          Store(stream + i, Load<uint8_t, 64>(stream + Sieve::kChunk + i));
        }
      }
    }
    for (; x < width; ++x) ++histogram[row[x]];
  }
  for (int s = 0; s < Sieve::kStreams; ++s) {
    const int blocks = filled[s] / Sieve::kBlock;
    CountBlocks(sieve.streams[s], blocks, sieve, sieve.counts[s]);
    for (int i = blocks * Sieve::kBlock; i < filled[s]; ++i) ++histogram[sieve.streams[s][i]];
    for (int v = 0; v < Sieve::kLevelsOfStream; ++v) {
      for (const uint64_t count : sieve.counts[s][v]) {
        histogram[s * Sieve::kLevelsOfStream + v] += static_cast<uint32_t>(count);
      }
    }
  }
}

#else
constexpr decltype(ThresholdKernels::CountLevels) CountLevels = nullptr;
#endif

}  // namespace

const ThresholdKernels threshold = {.BetweenRow = BetweenRow, .CountLevels = CountLevels};

}  // namespace quillon::QUILLON_LEVEL
