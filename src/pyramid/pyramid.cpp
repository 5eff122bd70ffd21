#include "pyramid/pyramid.h"

#include "core/image_access.h"
#include "simd/kernels.h"

namespace quillon {

int CoarsestLevel(uint32_t pixels) {
  const int64_t blocks = (static_cast<int64_t>(pixels) + 32) / 64;  // of 64 pixels, rounded
  int level = 0;
  while (level < kMaxPyramidLevel && blocks >= int64_t{4} << 2 * level) ++level;
  return level;
}

void ReduceByBlockMean(const Kernels& kernels, int level, const uint8_t* const* source, int width,
                       int height, uint8_t* const* result) {
  const auto reduceRow = kernels.pyramid.ReduceRow[level - 1];
  const int columns = ReducedSize(width, level), rows = ReducedSize(height, level);
  for (int y = 0; y < rows; ++y) {
    reduceRow(source + (static_cast<ptrdiff_t>(y) << level), result[y], columns);
  }
}

void ReduceImageBy16(const Kernels& kernels, const GreyImage& source, GreyImage& result) {
  constexpr int kLevel = 4;
  const int width = source.width, height = source.height;
  if (&source != &result &&
      !RecreateForOverwrite(result, ReducedSize(width, kLevel), ReducedSize(height, kLevel))) {
    return;
  }
  ReduceByBlockMean(kernels, kLevel, source.rows, width, height, result.rows);
}

}  // namespace quillon
