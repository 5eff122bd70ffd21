// Walking a row in blocks. A body receives the block's width as a constant and its first column:
//
//   const int tail = ForEachBlock(count, [&](auto width, int x) {
//     Store(out + x, Load<uint8_t, width>(row + x) ^ 255);
//   });
//   for (int x = tail; x < count; ++x) out[x] = row[x] ^ 255;
#pragma once

#include "simd/vec.h"

namespace quillon::QUILLON_LEVEL {

// A block width that is a constant expression wherever it is used.
template <int N>
struct Width {
  constexpr operator int() const { return N; }
};

// Covers [0, count) with blocks of kLargest lanes, then at most one block of each half width down
// to kSmallest; returns the first lane that is left.
template <int kLargest = kVectorBytes, int kSmallest = 16, class Body>
QUILLON_INLINE int ForEachBlock(int count, Body&& body) {
  int x = 0;
  for (; x <= count - kLargest; x += kLargest) body(Width<kLargest>{}, x);
  if constexpr (kLargest > kSmallest) {
    const auto shifted = [&](auto width, int from) { body(width, x + from); };
    return x + ForEachBlock<kLargest / 2, kSmallest>(count - x, shifted);
  }
  return x;
}

}  // namespace quillon::QUILLON_LEVEL
