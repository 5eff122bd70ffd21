// Row kernels of the thresholds. Compiled once per level.
#include "point/threshold_kernels.h"

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

void AboveRow(uint8_t* row, int count, uint8_t threshold) {
  const int tail = ForEachBlock(count, [&](auto width, int x) {
    Store(row + x, BitCast<U8<width>>(Load<uint8_t, width>(row + x) > threshold));
  });
  for (int x = tail; x < count; ++x) row[x] = row[x] > threshold ? 255 : 0;
}

void BetweenRow(uint8_t* row, int count, uint8_t lower, uint8_t upper) {
  const int tail = ForEachBlock(count, [&](auto width, int x) {
    const auto pixels = Load<uint8_t, width>(row + x);
    Store(row + x, BitCast<U8<width>>((pixels > lower) & (pixels < upper)));
  });
  for (int x = tail; x < count; ++x) row[x] = row[x] > lower && row[x] < upper ? 255 : 0;
}

}  // namespace

const ThresholdKernels threshold = {.AboveRow = AboveRow, .BetweenRow = BetweenRow};

}  // namespace quillon::QUILLON_LEVEL
