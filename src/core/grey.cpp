#include "core/grey.h"

#include "core/grey_kernels.h"
#include "core/image_access.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

// The columns after the last eight: hosts have calibrated on their being brighter than the others.
uint8_t RealGrey(const uint8_t* bgr) {
  return static_cast<uint8_t>((bgr[1] * 0.587 + bgr[0] * 0.114) + bgr[2] * 0.2989);
}

}  // namespace

void ColorToGrey(const Kernels& kernels, const ColourImage& source, GreyImage& result) {
  if (!RecreateForOverwrite(result, source.width, source.height)) return;
  const int blocks = source.width / 8 * 8;
  for (int y = source.height - 1; y >= 0; --y) {
    const uint8_t* bgr = source.rows[y];
    uint8_t* grey = result.rows[y];
    kernels.grey.GreyRow(bgr, grey, blocks);
    for (int x = blocks; x < source.width; ++x) grey[x] = RealGrey(bgr + 3 * x);
  }
}

}  // namespace quillon
