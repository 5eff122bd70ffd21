// Colour to grey as it is defined, pixel by pixel.
#pragma once

#include "quillon/image.h"

namespace quillon::test::reference {

inline void ColorToGrey(const ColourImage& source, GreyImage& result) {
  result.Create(source.width, source.height);
  for (int y = 0; y < source.height; ++y) {
    for (int x = 0; x < source.width; ++x) {
      const uint8_t* p = source.rows[y] + 3 * x;
      result.rows[y][x] = static_cast<uint8_t>(
          x < source.width / 8 * 8
              ? p[0] * 116 / 1024 + p[1] * 600 / 1024 + p[2] * 305 / 1024
              : static_cast<int>((p[1] * 0.587 + p[0] * 0.114) + p[2] * 0.2989));
    }
  }
}

}  // namespace quillon::test::reference
