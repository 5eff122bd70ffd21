// Gaussian and mean smoothing as they are defined, pixel by pixel.
#pragma once

#include "filters/windows.h"

namespace quillon::test::reference {

inline void Gaussian(const GreyImage& source, int size, GreyImage& result) {
  static constexpr int kWeights[][7] = {{1, 2, 1}, {1, 4, 6, 4, 1}, {1, 6, 15, 20, 15, 6, 1}};
  const int r = size / 2, shift = 2 * (size - 1);
  const int* weights = kWeights[r - 1];
  FilterByDefinition(source, size, result, [&](int x, int y) {
    int sum = 1 << shift >> 1;
    for (int dy = -r; dy <= r; ++dy) {
      for (int dx = -r; dx <= r; ++dx) {
        sum += weights[dy + r] * weights[dx + r] * source.rows[y + dy][x + dx];
      }
    }
    return static_cast<uint8_t>(sum >> shift);
  });
}

inline void Mean(const GreyImage& source, int size, GreyImage& result) {
  const int r = size / 2;
  const int64_t area = static_cast<int64_t>(size) * size;
  FilterByDefinition(source, size, result, [&](int x, int y) {
    int64_t sum = area / 2;
    for (int dy = -r; dy <= r; ++dy) {
      for (int dx = -r; dx <= r; ++dx) sum += source.rows[y + dy][x + dx];
    }
    return static_cast<uint8_t>(sum / area);
  });
}

}  // namespace quillon::test::reference
