#include "ncc/correlation.h"

#include <cmath>

#include "ncc/correlation_kernels.h"
#include "simd/kernels.h"

namespace quillon {

void AddProducts(const Kernels& kernels, const uint8_t* image, const uint8_t* pattern, int count,
                 PixelSums& sums) {
  uint64_t added[3];
  kernels.correlation.SumProducts(image, 0, pattern, 0, count, 1, added);
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
  // The sums run over all three channels, so rows are multiplied as they are.
  const int rowBytes = 3 * image.width;
  uint64_t sums[3];
  kernels.correlation.SumProducts(image.rows[0], -ptrdiff_t{image.stride}, tool.packed.data(),
                                  rowBytes, rowBytes, image.height, sums);
  const auto values = static_cast<uint32_t>(rowBytes) * static_cast<uint32_t>(image.height);
  return Correlation({sums[0], sums[1], sums[2]}, values, pattern.mean, pattern.deviation,
                     /*flat=*/0.0);
}

}  // namespace quillon
