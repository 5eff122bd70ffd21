// The flat field as it is defined, pixel by pixel.
#pragma once

#include <cmath>
#include <cstdint>

#include "calib/flat_field.h"
#include "quillon/image.h"

namespace quillon::test::reference {

// pixel * gain in double, for every pixel of the region that the image has.
inline void ApplyFlatField(GreyImage& image, const FlatFieldRegion& region) {
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      if (x < region.xStart || x >= region.xEnd || y < region.yStart || y >= region.yEnd) continue;
      uint8_t& pixel = image.rows[y][x];
      const double value = pixel * image.flatFieldTable[pixel];
      pixel = value >= 255.0                      ? 255
              : value <= 0.0 || std::isnan(value) ? 0
                                                  : static_cast<uint8_t>(value);
    }
  }
}

}  // namespace quillon::test::reference
