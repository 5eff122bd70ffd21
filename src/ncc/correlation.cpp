#include "ncc/correlation.h"

#include <cmath>

#include "core/grey_kernels.h"
#include "ncc/correlation_kernels.h"
#include "simd/kernels.h"

namespace quillon {

void AddProducts(const Kernels& kernels, const uint8_t* image, const uint8_t* pattern, int count,
                 PixelSums& sums) {
  uint64_t added[3];
  kernels.correlation.SumProducts(image, pattern, count, added);
  sums.image += added[0];
  sums.imageSquared += added[1];
  sums.products += added[2];
}

double Correlation(const PixelSums& sums, uint32_t count, double templateMean,
                   double templateDeviation, double flat) {
  const double n = count;
  const double mean = static_cast<double>(sums.image) / n;
  const double deviation = DeviationOf(sums.imageSquared, n, mean);
  if (deviation <= flat) return 0.0;
  return (static_cast<double>(sums.products) - TimesMeans(n, mean, templateMean)) /
         std::sqrt(deviation * templateDeviation);
}

double ScoreOnePosition(const Kernels& kernels, const ColourImage& image, const NccTool& tool) {
  const NccLevel& pattern = tool.levels[0];
  if (tool.kind != ModelKind::kColour || image.width != pattern.width ||
      image.height != pattern.height) {
    return 0.0;
  }
  const int width = image.width;
  Buffer<uint8_t> planes(3 * static_cast<size_t>(width));
  if (!planes) return 0.0;
  uint8_t* const plane[] = {planes.data(), planes.data() + width, planes.data() + 2 * width};
  PixelSums sums;
  for (int y = 0; y < image.height; ++y) {
    kernels.grey.SplitRow(image.rows[y], plane[0], plane[1], plane[2], width);
    for (int i = 0; i < 3; ++i) AddProducts(kernels, plane[i], pattern.Plane(i)[y], width, sums);
  }
  const auto values = 3 * static_cast<uint32_t>(width) * static_cast<uint32_t>(image.height);
  return Correlation(sums, values, pattern.mean, pattern.deviation, /*flat=*/0.0);
}

}  // namespace quillon
