// The medians as they are defined, pixel by pixel.
#pragma once

#include <algorithm>
#include <vector>

#include "quillon/image.h"

namespace quillon::test::reference {

inline uint8_t Median(const GreyImage& source, int x, int y, int radius) {
  std::vector<uint8_t> window;
  for (int j = -radius; j <= radius; ++j) {
    for (int i = -radius; i <= radius; ++i) window.push_back(source.rows[y + j][x + i]);
  }
  const auto middle = window.begin() + static_cast<std::ptrdiff_t>(window.size() / 2);
  std::nth_element(window.begin(), middle, window.end());
  return *middle;
}

inline bool CopySmall(const GreyImage& source, GreyImage& result, int size) {
  if (source.width >= size && source.height >= size) return false;
  for (int y = 0; y < source.height; ++y) {
    std::copy_n(source.rows[y], source.width, result.rows[y]);
  }
  return true;
}

// Blocks of 16 columns from column 1 on may take in the last column.
inline void Median3x3(const GreyImage& source, GreyImage& result) {
  if (CopySmall(source, result, 3)) return;
  const int width = source.width, height = source.height;
  for (int y = 1; y < height - 1; ++y) {
    uint8_t* out = result.rows[y];
    int x = 1;
    for (; x < width - 1 || x <= (width - 1) / 16 * 16; ++x) out[x] = Median(source, x, y, 1);
    out[0] = out[1];
    out[x] = out[x - 1];
  }
  std::copy_n(result.rows[1], width, result.rows[0]);
  std::copy_n(result.rows[height - 2], width, result.rows[height - 1]);
}

inline void Median5x5(const GreyImage& source, GreyImage& result) {
  if (CopySmall(source, result, 5)) return;
  const int width = source.width, height = source.height;
  for (int y = 2; y < height - 2; ++y) {
    uint8_t* out = result.rows[y];
    for (int x = 2; x < width - 2; ++x) out[x] = Median(source, x, y, 2);
    out[0] = out[1] = out[2];
    out[width - 1] = out[width - 2] = out[width - 3];
  }
  for (int y : {0, 1}) {
    std::copy_n(result.rows[2], width, result.rows[y]);
    std::copy_n(result.rows[height - 3], width, result.rows[height - 1 - y]);
  }
}

}  // namespace quillon::test::reference
