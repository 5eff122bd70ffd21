// Convolution as it is defined, pixel by pixel.
#pragma once

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <vector>

#include "filters/windows.h"

namespace quillon::test::reference {

// The definition; 49 products of a byte and an int stay far below 64 bits.
inline void Convolve(const GreyImage& source, int size, const std::vector<int>& weights,
                     GreyImage& result) {
  const int r = size / 2;
  const int64_t total = std::accumulate(weights.begin(), weights.end(), int64_t{0});
  const int64_t divisor = total > 0 ? total : 1;
  FilterByDefinition(source, size, result, [&](int x, int y) {
    int64_t sum = 0;
    for (int dy = -r; dy <= r; ++dy) {
      for (int dx = -r; dx <= r; ++dx) {
        const int64_t weight = weights[static_cast<size_t>((dy + r) * size + dx + r)];
        sum += weight * source.rows[y + dy][x + dx];
      }
    }
    return static_cast<uint8_t>(std::clamp<int64_t>(sum / divisor, 0, 255));
  });
}

}  // namespace quillon::test::reference
