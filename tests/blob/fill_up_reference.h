// Hole filling by a flood from the outside.
#pragma once

#include <vector>

#include "quillon/image.h"

namespace quillon::test::reference {

// Sets every pixel that cannot be reached from the top row or the last column through pixels that
// differ from the value, diagonals included.
inline void FillHoles(GreyImage& image, uint8_t value) {
  const int width = image.width, height = image.height;
  std::vector<bool> outside(static_cast<size_t>(width * height));
  std::vector<int> stack;
  const auto visit = [&](int x, int y) {
    if (x < 0 || x >= width || y < 0 || y >= height) return;
    const auto at = static_cast<size_t>(y * width + x);
    if (outside[at] || image.rows[y][x] == value) return;
    outside[at] = true;
    stack.push_back(y * width + x);
  };
  for (int x = 0; x < width; ++x) visit(x, 0);
  for (int y = 0; y < height; ++y) visit(width - 1, y);
  while (!stack.empty()) {
    const int at = stack.back();
    stack.pop_back();
    for (int i = 0; i < 9; ++i) visit(at % width + i % 3 - 1, at / width + i / 3 - 1);
  }
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      if (!outside[static_cast<size_t>(y * width + x)]) image.rows[y][x] = value;
    }
  }
}

}  // namespace quillon::test::reference
