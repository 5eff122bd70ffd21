// Row kernels of quarter turns. Compiled once per level.
#include "arith/quarter_turn_kernels.h"

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

constexpr int kSquare = 16;  // pixels to a side
constexpr int kTile = 64;    // a cache line's

// Zipping row i with row i + 8 puts rows that far apart side by side; four times over, each row
// holds one column.
QUILLON_INLINE void TransposeSquare(const uint8_t* from, ptrdiff_t fromPitch, uint8_t* to,
                                    ptrdiff_t toPitch) {
  U8<kSquare> rows[kSquare], zipped[kSquare];
#pragma GCC unroll 16
  for (int i = 0; i < kSquare; ++i) rows[i] = Load<uint8_t, kSquare>(from + i * fromPitch);
#pragma GCC unroll 2
  for (int twice = 0; twice < 2; ++twice) {
#pragma GCC unroll 8
    for (int i = 0; i < kSquare / 2; ++i) {
      zipped[2 * i] = ZipLow(rows[i], rows[i + kSquare / 2]);
      zipped[2 * i + 1] = ZipHigh(rows[i], rows[i + kSquare / 2]);
    }
#pragma GCC unroll 8
    for (int i = 0; i < kSquare / 2; ++i) {
      rows[2 * i] = ZipLow(zipped[i], zipped[i + kSquare / 2]);
      rows[2 * i + 1] = ZipHigh(zipped[i], zipped[i + kSquare / 2]);
    }
  }
#pragma GCC unroll 16
  for (int i = 0; i < kSquare; ++i) Store(to + i * toPitch, rows[i]);
}

// Tiles of whole cache lines on both sides: where a row's length is a power of two, few lines of a
// column of pixels fit into the first cache together. Within a tile, lines of the result are
// completed one after the other. The last squares overlap the ones before.
void Transpose(const uint8_t* from, ptrdiff_t fromPitch, int columns, uint8_t* to,
               ptrdiff_t toPitch, int rows) {
  if (columns < kSquare || rows < kSquare) {
    for (int y = 0; y < rows; ++y) {
      for (int x = 0; x < columns; ++x) to[y * toPitch + x] = from[x * fromPitch + y];
    }
    return;
  }
  const auto least = [](int a, int b) { return a < b ? a : b; };
  for (int top = 0; top < rows; top += kTile) {
    const int bottom = least(top + kTile, rows);
    for (int left = 0; left < columns; left += kTile) {
      const int right = least(left + kTile, columns);
      for (int j = top; j < bottom; j += kSquare) {
        const int y = least(j, rows - kSquare);
        for (int i = left; i < right; i += kSquare) {
          const int x = least(i, columns - kSquare);
          TransposeSquare(from + x * fromPitch + y, fromPitch, to + y * toPitch + x, toPitch);
        }
      }
    }
  }
}

template <class V, int... i>
QUILLON_INLINE V Reversed(V v, std::integer_sequence<int, i...>) {
  return __builtin_shufflevector(v, v, (static_cast<int>(sizeof...(i)) - 1 - i)...);
}

void ReverseRow(const uint8_t* from, uint8_t* to, int count) {
  int x = ForEachBlock(count, [&](auto width, int first) {
    const auto pixels = Load<uint8_t, width>(from + count - first - width);
    Store(to + first, Reversed(pixels, std::make_integer_sequence<int, width>{}));
  });
  for (; x < count; ++x) to[x] = from[count - 1 - x];
}

}  // namespace

const QuarterTurnKernels quarterTurn = {.Transpose = Transpose, .ReverseRow = ReverseRow};

}  // namespace quillon::QUILLON_LEVEL
