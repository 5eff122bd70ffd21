// Binarisation. The columns before the last width % 8 compare with the low 8 bits of a bound, the
// others with all of it: the two differ for bounds outside 0 ... 255, and hosts rely on both.
#include "point/threshold.h"

#include <algorithm>
#include <cstring>

#include "core/buffer.h"
#include "point/threshold_kernels.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

// Small images: eight counters a level, since a counter that was just written is slow to read.
void CountPixels(const GreyImage& image, Histogram& histogram) {
  constexpr int kTables = 8;
  uint32_t counts[kTables][kGreyLevels] = {};
  for (int y = image.height - 1; y >= 0; --y) {
    const uint8_t* row = image.rows[y];
    int x = 0;
    for (; x <= image.width - kTables; x += kTables) {
#pragma GCC unroll 8
      for (int i = 0; i < kTables; ++i) ++counts[i][row[x + i]];
    }
    for (; x < image.width; ++x) ++counts[0][row[x]];
  }
  for (const auto& table : counts) {
    for (int v = 0; v < kGreyLevels; ++v) histogram[v] += table[v];
  }
}

// Large images: neighbouring pixels are counted as pairs, in a table of 65,536 counters. Processors
// make one store a cycle, and a histogram needs one a count, so pairs halve the time. Where eight
// pixels equal the eight before them they are counted together with those: in a flat part of the
// image every count would otherwise wait for the one before, to the same counter. Counters that are
// not in the first cache keep its few places for lines on their way occupied, so that the processor
// would not read ahead in the image.
void CountPairs(const GreyImage& image, Buffer<uint32_t>& pairs, Histogram& histogram) {
  constexpr int kCacheLine = 64, kAhead = 2048;
  for (int y = image.height - 1; y >= 0; --y) {
    const uint8_t* row = image.rows[y];
    int x = 0;
    uint64_t held = 0;
    uint32_t times = 0;
    const auto count = [&] {
#pragma GCC unroll 4
      for (int i = 0; i < 4; ++i) pairs[held >> (16 * i) & 0xFFFF] += times;
    };
    for (; x <= image.width - 8; x += 8) {
      if (x % kCacheLine == 0) __builtin_prefetch(row + x + kAhead);
      uint64_t pixels;
      std::memcpy(&pixels, row + x, sizeof pixels);
      if (pixels != held) {
        count();
        held = pixels;
        times = 0;
      }
      ++times;
    }
    count();
    for (; x < image.width; ++x) ++histogram[row[x]];
  }
  for (int second = 0; second < kGreyLevels; ++second) {
    const uint32_t* firsts = pairs.data() + second * kGreyLevels;
    uint32_t sum = 0;
    for (int first = 0; first < kGreyLevels; ++first) {
      histogram[first] += firsts[first];
      sum += firsts[first];
    }
    histogram[second] += sum;
  }
}

// Adds the pixels of each level, by the first way that repays its memory.
void CountLevels(const Kernels& kernels, const GreyImage& image, Histogram& histogram) {
  constexpr int64_t kPixelsForSieve = 1 << 15, kPixelsForPairs = 1 << 18;
  const int64_t pixels = static_cast<int64_t>(image.width) * image.height;
  const auto count = kernels.threshold.CountLevels;
  if (count && pixels >= kPixelsForSieve) {
    auto sieve = Buffer<LevelSieve>::Zeroed(1);
    if (sieve) return count(image.rows, image.width, image.height, sieve[0], histogram);
  } else if (pixels >= kPixelsForPairs) {
    auto pairs = Buffer<uint32_t>::Zeroed(size_t{kGreyLevels} * kGreyLevels);
    if (pairs) return CountPairs(image, pairs, histogram);
  }
  CountPixels(image, histogram);
}

// Levels weigh their number plus one, in 32-bit arithmetic that wraps for counts beyond 8 million.
double Weighted(const Histogram& histogram, int level) {
  return static_cast<int32_t>(static_cast<uint32_t>(level + 1) * histogram[level]);
}

}  // namespace

void ApplyThreshold(const Kernels& kernels, GreyImage& image, int threshold) {
  const int blocks = image.width / 8 * 8;
  for (int y = image.height - 1; y >= 0; --y) {
    uint8_t* row = image.rows[y];
    kernels.threshold.BetweenRow(row, blocks, static_cast<uint8_t>(threshold), kGreyLevels);
    for (int x = blocks; x < image.width; ++x) row[x] = row[x] > threshold ? 255 : 0;
  }
}

void ApplyDoubleThreshold(const Kernels& kernels, GreyImage& image, int low, int high) {
  const int lower = std::min(low, high);
  const int blocks = image.width / 8 * 8;
  for (int y = image.height - 1; y >= 0; --y) {
    uint8_t* row = image.rows[y];
    kernels.threshold.BetweenRow(row, blocks, static_cast<uint8_t>(lower),
                                 static_cast<uint8_t>(high));
    for (int x = blocks; x < image.width; ++x) row[x] = lower < row[x] && row[x] < high ? 255 : 0;
  }
}

// All sums are integers below 2^53, so carrying them from level to level is exact.
int ComputeOtsuThreshold(const Kernels& kernels, const GreyImage& image) {
  Histogram histogram = {};
  CountLevels(kernels, image, histogram);
  double pixels = 0, moment = 0;
  for (int v = 0; v < kGreyLevels; ++v) {
    pixels += histogram[v];
    moment += Weighted(histogram, v);
  }
  double darkPixels = 0, darkMoment = 0, best = 0;
  int result = 0;
  for (int t = 0; t < kGreyLevels; ++t) {
    darkPixels += histogram[t];
    darkMoment += Weighted(histogram, t);
    const double brightPixels = pixels - darkPixels;
    const double darkMean = darkPixels == 0 ? 0 : darkMoment / darkPixels;
    const double brightMean = brightPixels == 0 ? 0 : (moment - darkMoment) / brightPixels;
    const double distance = darkMean - brightMean;
    const double variance = distance * distance * brightPixels * darkPixels;
    if (t == 0 || variance > best) {
      best = variance;
      result = t;
    }
  }
  return result;
}

}  // namespace quillon
