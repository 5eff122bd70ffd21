// Row kernels of the thresholds, and the count of an image's levels.
#pragma once

#include <stdint.h>

#include "simd/families.h"

namespace quillon {

constexpr int kGreyLevels = 256;
using Histogram = uint32_t[kGreyLevels];

// Memory of CountLevels, zero at the start.
struct LevelSieve {
  static constexpr int kStreams = 4, kLevelsOfStream = kGreyLevels / kStreams;
  static constexpr int kBlock = 512, kBlocks = 8, kChunk = kBlocks * kBlock;  // pixels
  alignas(64) uint64_t counts[kStreams][kLevelsOfStream][8];
  alignas(64) uint64_t low[kBlocks][8][8], high[kBlocks][8][8];
  alignas(64) uint8_t streams[kStreams][2 * kChunk + 64];
};

struct ThresholdKernels {
  // row[x] = lower < row[x] && row[x] < upper ? 255 : 0, for bounds of 0 ... 256.
  void (*BetweenRow)(uint8_t* row, int count, int lower, int upper);
  // Adds the number of pixels of each level. Null where no way is faster than counters in memory.
  void (*CountLevels)(const uint8_t* const* rows, int width, int height, LevelSieve& sieve,
                      Histogram& histogram);
};

}  // namespace quillon
