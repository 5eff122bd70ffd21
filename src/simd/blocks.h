// Walking a row in blocks. A body receives the block's width as a constant and its first column:
//
//   const int tail = ForEachBlock(count, [&](auto width, int x) {
//     Store(out + x, Load<uint8_t, width>(row + x) ^ 255);
//   });
//   for (int x = tail; x < count; ++x) out[x] = row[x] ^ 255;
#pragma once

#include "simd/vec.h"

namespace quillon::QUILLON_LEVEL {

// A block width, or another number, as a type: a parameter `auto width` of this type can be used
// wherever a constant is needed.
template <int N>
struct Width {
  constexpr operator int() const { return N; }
};

template <class Body, int... i>
QUILLON_INLINE void UnrollOver(std::integer_sequence<int, i...>, Body&& body) {
  (body(Width<i>{}), ...);
}
// body(0), ... body(n - 1), each with a constant.
template <int n, class Body>
QUILLON_INLINE void Unroll(Body&& body) {
  UnrollOver(std::make_integer_sequence<int, n>{}, body);
}

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

// The same, with as many of the largest blocks at a time as lie in 128 bytes: for bodies of so few
// instructions that counting blocks would take a good part of the time.
template <class Body>
QUILLON_INLINE int ForEachShortBlock(int count, Body&& body) {
  constexpr int kStep = 128;
  int x = 0;
  for (; x <= count - kStep; x += kStep) {
    Unroll<kStep / kVectorBytes>(
        [&](auto i) { body(Width<kVectorBytes>{}, x + i * kVectorBytes); });
  }
  const auto shifted = [&](auto width, int from) { body(width, x + from); };
  return x + ForEachBlock(count - x, shifted);
}

// Covers [from, to) with blocks of kVectorBytes lanes, or with narrower ones where the range is
// short. Between the first and the last, blocks start at multiples of their width, where rows
// mostly are aligned; so those two overlap their neighbours. False when the range has fewer than 16
// lanes: nothing is done. For bodies whose output is not among their input.
template <int kLanes = kVectorBytes, class Body>
QUILLON_INLINE bool ForEachOverlappingBlock(int from, int to, Body&& body) {
  if (to - from < kLanes) {
    if constexpr (kLanes > 16) return ForEachOverlappingBlock<kLanes / 2>(from, to, body);
    return false;
  }
  if (from % kLanes != 0) body(Width<kLanes>{}, from);
  int x = (from + kLanes - 1) / kLanes * kLanes;
  for (; x <= to - kLanes; x += kLanes) body(Width<kLanes>{}, x);
  if (x < to) body(Width<kLanes>{}, to - kLanes);
  return true;
}

// The fewer than 16 pixels that blocks leave at the end of a row, as one vector: so a rule on
// vectors needs no second, scalar version. Bytes beyond `count` are neither read nor written.
QUILLON_INLINE U8<16> LoadPart(const uint8_t* from, int count) {
  U8<16> part = {};
  __builtin_memcpy(&part, from, static_cast<unsigned>(count));
  return part;
}

QUILLON_INLINE void StorePart(uint8_t* to, int count, U8<16> part) {
  __builtin_memcpy(to, &part, static_cast<unsigned>(count));
}

}  // namespace quillon::QUILLON_LEVEL
