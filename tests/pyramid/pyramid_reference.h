// Reduction by block means, block by block.
#pragma once

#include "quillon/image.h"

namespace quillon::test::reference {

// The mean of block (x, y) of the plane at(x, y), as level `level` keeps it.
template <class Value>
uint8_t BlockMean(int level, int x, int y, Value at) {
  const int side = 1 << level;
  int left = 0, right = 0;
  for (int j = 0; j < side; ++j) {
    for (int i = 0; i < side; ++i) (2 * i < side ? left : right) += at(side * x + i, side * y + j);
  }
  return static_cast<uint8_t>(level == 4 ? left / 512 + right / 512
                                         : (left + right) / (side * side));
}

// Level `level`, in the top left corner of `result`.
inline void Reduce(const GreyImage& source, int level, GreyImage& result) {
  for (int y = 0; y < source.height >> level; ++y) {
    for (int x = 0; x < source.width >> level; ++x) {
      result.rows[y][x] = BlockMean(level, x, y, [&](int i, int j) { return source.rows[j][i]; });
    }
  }
}

}  // namespace quillon::test::reference
