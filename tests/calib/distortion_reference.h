// The lens correction as it is defined, pixel by pixel.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "calib/polynomial.h"
#include "quillon/image.h"

namespace quillon::test::reference {

inline std::array<double, 2> Evaluate(const GreyImage& image, double u, double v) {
  const auto terms = CubicTerms(u, v);
  std::array<double, 2> at = {};
  for (size_t i = 0; i < kCubicTerms; ++i) {
    for (size_t k = 0; k < 2; ++k) at[k] += image.distortionCoefficientRows[i][k] * terms[i];
  }
  return at;
}

inline int TruncatedHalfUp(double v) { return static_cast<int>(v + 0.5); }

// Map and resampling, pixel by pixel, into what the store holds afterwards.
inline std::vector<uint8_t> CorrectDistortion(const GreyImage& image) {
  std::vector<uint8_t> packed(static_cast<size_t>(image.imageSize), 0);
  for (int y = std::max(0, image.yMin); y <= std::min(image.yMax, image.height - 1); ++y) {
    for (int x = std::max(0, image.xMin); x <= std::min(image.xMax, image.width - 1); ++x) {
      const auto at = Evaluate(image, x - image.centreX, image.centreY - y);
      const int sx = TruncatedHalfUp(at[0]) + image.centreX;
      const int sy = TruncatedHalfUp(at[1]) + image.centreY;
      const bool inside = sx >= 0 && sx < image.width && sy >= 0 && sy < image.height;
      if (sy < 0 || sy >= image.height) continue;
      packed[static_cast<size_t>(y) * image.width + x] = image.rows[sy][inside ? sx : 0];
    }
  }
  return packed;
}

}  // namespace quillon::test::reference
