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

}  // namespace

const ThresholdKernels threshold = {.BetweenRow = BetweenRow};

}  // namespace quillon::QUILLON_LEVEL
