// Row kernels of rotation. Compiled once per level. Positions are computed in whole numbers, next
// to the definition's; the few pixels for which that may matter are computed again in double.
#include "arith/rotation_kernels.h"

#include <stddef.h>

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

constexpr int kLanes = kVectorBytes / 4;
constexpr int kGroup = 16;  // pixels that are computed together
constexpr int kVectors = kGroup / kLanes;
using Longs = I32<kLanes>;
using Floats = F32<kLanes>;

constexpr int kUnit = 1 << kPositionBits;

QUILLON_INLINE double SourceX(const RotatedRow& row, int x) {
  return (row.columnX[x] + row.rowX) + row.originX;
}

QUILLON_INLINE double SourceY(const RotatedRow& row, int x) {
  return (row.rowY - row.columnY[x]) + row.originY;
}

QUILLON_INLINE const uint8_t* PixelAt(const RotatedRow& row, int column, int line) {
  return row.top + column - static_cast<ptrdiff_t>(line) * row.stride;
}

// Offsets within a strip of wider rows may not fit 32 bits: all of their pixels are computed in
// double.
constexpr int kWidestStride = 1 << 22;

// Where the source's pixels for a run of columns lie. First all of them are located, then loaded:
// one by one, each load would wait for its address.
constexpr int kRun = 128;

struct Run {
  alignas(64) int32_t offsets[kRun];  // from `start`
};

QUILLON_INLINE Longs FixedX(const RotatedRow& row, int x) {
  return Load<int32_t, kLanes>(row.fixedX + x) + row.startX;
}
QUILLON_INLINE Longs FixedY(const RotatedRow& row, int x) {
  return Load<int32_t, kLanes>(row.fixedY + x) + row.startY;
}

// Locates the pixels from column x on, whole vectors of them, and calls see(x, y, i) for each
// vector.
template <class See>
QUILLON_INLINE void Locate(const RotatedRow& row, int x, int count, Run& run, const See& see) {
  for (int i = 0; i < count; i += kLanes) {
    const Longs sx = FixedX(row, x + i), sy = FixedY(row, x + i);
    Store(run.offsets + i, (sx >> kPositionBits) - (sy >> kPositionBits) * row.stride);
    see(sx, sy, i);
  }
  for (int i = row.fetched; i < count; i += 8) {
    __builtin_prefetch(row.start + run.offsets[i] + row.ahead);
  }
}

// ---- nearest ------------------------------------------------------------------------------------

// Whether eight pixels follow one another in memory, as they mostly do where an image is turned a
// little. Positions never step by more than 1 and never turn back; another line would be farther
// off than a group, which no row is shorter than.
QUILLON_INLINE bool FollowEachOther(const int32_t* offsets) { return offsets[7] - offsets[0] == 7; }

// Eight pixels in the lower half.
QUILLON_INLINE U8<16> LoadEight(const uint8_t* start, const int32_t* offsets) {
  return FollowEachOther(offsets) ? LoadHalf(start + offsets[0]) : CollectBytes(start, offsets);
}

void NearestRow(const RotatedRow& given, uint8_t* out, int first, int end) {
  const RotatedRow row = given;
  const auto exactPixel = [&](int x) {
    out[x] = *PixelAt(row, static_cast<int>(SourceX(row, x)), static_cast<int>(SourceY(row, x)));
  };
  if (row.stride > kWidestStride) {
    for (int x = first; x < end; ++x) exactPixel(x);
    return;
  }
  Run run;
  for (int x = first; x < end; x += kRun) {
    const int count = end - x < kRun ? end - x : kRun;
    // A position so near to a whole number may truncate to another pixel than the definition's.
    Longs nearest = Longs{} + kUnit;
    Locate(row, x, count, run, [&](Longs sx, Longs sy, int) {
      nearest = Min(nearest, Min((sx + 2) & (kUnit - 1), (sy + 2) & (kUnit - 1)));
    });
    if (MoveWordMask(nearest - 4) != 0) {
      for (int i = 0; i < count; ++i) exactPixel(x + i);
      continue;
    }
    if (count < kGroup) {
      for (int i = 0; i < count; ++i) out[x + i] = row.start[run.offsets[i]];
      continue;
    }
    // The last group overlaps the one before: how many pixels are left, processors cannot foresee.
    for (int i = 0; i < count; i += kGroup) {
      const int at = i <= count - kGroup ? i : count - kGroup;
      Store(out + x + at, JoinLowHalves(LoadEight(row.start, run.offsets + at),
                                        LoadEight(row.start, run.offsets + at + 8)));
    }
  }
}

// ---- bilinear -----------------------------------------------------------------------------------

// a + (b - a) * share, rounded after each operation.
QUILLON_INLINE double Between(double a, double b, double share) { return a + (b - a) * share; }

// The same, rounded less often where that is faster.
QUILLON_INLINE Floats Between(Floats a, Floats b, Floats share) { return MulAdd(b - a, share, a); }

// Linear interpolation of four pixels, in T.
template <class T>
QUILLON_INLINE T Interpolate(T nw, T ne, T sw, T se, T right, T down) {
  return Between(Between(nw, ne, right), Between(sw, se, right), down);
}

uint8_t ExactPixel(const RotatedRow& row, int x) {
  const double sx = SourceX(row, x), sy = SourceY(row, x);
  const int column = static_cast<int>(sx), line = static_cast<int>(sy);
  const uint8_t* upper = PixelAt(row, column, line);
  const uint8_t* lower = upper - row.stride;
  const double rounded =
      Interpolate<double>(upper[0], upper[1], lower[0], lower[1], sx - column, sy - line) + 0.5;
  return static_cast<uint8_t>(rounded);
}

// A position that is off by 1.01 units in each direction moves the value by less than
// 2 * 255 * 1.01 * 2^-22 < 2^-12.98, also where it lies in the next pixel. In float, the sum of
// interpolation and 1/2 is off by less than 10 * 2^-17: 2^-17 for each rounding of a number below
// 256, carried along. So where both ends of a range of 2^-12 around it truncate to the same value,
// this is the definition's; the other pixels are few.
constexpr float kDoubt = 0x1p-12f;

// Each of eight pixels with its right neighbour, in 16 bits.
QUILLON_INLINE U16<8> LoadEightPairs(const uint8_t* from, const int32_t* offsets) {
  return BitCast<U16<8>>(FollowEachOther(offsets)
                             ? ZipLow(LoadHalf(from + offsets[0]), LoadHalf(from + offsets[0] + 1))
                             : CollectBytePairs(from, offsets));
}

// The pairs of a group in 32-bit lanes.
QUILLON_INLINE void LoadPairs(const uint8_t* from, const int32_t* offsets,
                              Longs (&pairs)[kVectors]) {
  WidenWords(LoadEightPairs(from, offsets), LoadEightPairs(from, offsets + 8), pairs);
}

void BilinearRow(const RotatedRow& given, uint8_t* out, int first, int end) {
  const RotatedRow row = given;
  if (row.stride > kWidestStride) {
    for (int x = first; x < end; ++x) out[x] = ExactPixel(row, x);
    return;
  }
  const auto fraction = [](Longs position) {
    return Convert<float, kLanes>(position & (kUnit - 1)) * (1.0f / kUnit);
  };
  Run run;
  for (int x = first, count; x < end; x += count) {
    count = end - x < kRun ? end - x : kRun;
    // Whole groups; the last overlaps the one before. One by one, its pixels took longer.
    if (count >= kGroup) {
      count -= count % kGroup;
    } else if (end - first >= kGroup) {
      x = end - kGroup;
      count = kGroup;
    }
    Locate(row, x, count, run, [](Longs, Longs, int) {});
    int i = 0;
    for (; i <= count - kGroup; i += kGroup) {
      Longs upper[kVectors], lower[kVectors], least[kVectors], most[kVectors];
      LoadPairs(row.start, run.offsets + i, upper);
      LoadPairs(row.start - row.stride, run.offsets + i, lower);
      for (int v = 0; v < kVectors; ++v) {
        const auto real = [](Longs lanes) { return Convert<float, kLanes>(lanes); };
        const int at = x + i + v * kLanes;
        const Floats value =
            Interpolate(real(upper[v] & 255), real(upper[v] >> 8), real(lower[v] & 255),
                        real(lower[v] >> 8), fraction(FixedX(row, at)), fraction(FixedY(row, at)));
        least[v] = Convert<int32_t, kLanes>(value + (0.5f - kDoubt));
        most[v] = Convert<int32_t, kLanes>(value + (0.5f + kDoubt));
      }
      const U8<16> pixels = PackToBytes(least);
      Store(out + x + i, pixels);
      auto doubtful = static_cast<uint32_t>(MoveMask(pixels != PackToBytes(most)));
      for (; doubtful != 0; doubtful &= doubtful - 1) {
        const int at = x + i + __builtin_ctz(doubtful);
        out[at] = ExactPixel(row, at);
      }
    }
    for (; i < count; ++i) out[x + i] = ExactPixel(row, x + i);
  }
}

// ---- whole quarters -----------------------------------------------------------------------------

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

const RotationKernels rotation = {.NearestRow = NearestRow,
                                  .BilinearRow = BilinearRow,
                                  .Transpose = Transpose,
                                  .ReverseRow = ReverseRow};

}  // namespace quillon::QUILLON_LEVEL
