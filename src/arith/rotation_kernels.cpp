// Row kernels of rotation. Compiled once per level. The loops over arithmetic are plain: the
// compiler turns them into vectors.
#include "arith/rotation_kernels.h"

#include <stddef.h>

#include <utility>

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

// Positions of so many pixels are computed, then their pixels loaded: few enough to stay in the
// first cache beside the image.
constexpr int kRun = 128;

QUILLON_INLINE uint16_t LoadPair(const uint8_t* from) {
  uint16_t pair;
  __builtin_memcpy(&pair, from, sizeof pair);
  return pair;
}

QUILLON_INLINE double SourceX(const RotatedRow& row, int x) {
  return (row.columnX[x] + row.rowX) + row.originX;
}

QUILLON_INLINE double SourceY(const RotatedRow& row, int x) {
  return (row.rowY - row.columnY[x]) + row.originY;
}

// Pixels from all over the image are inserted into a register one by one: written to memory singly,
// they would cost twice as much.
template <int... kLane>
QUILLON_INLINE void CollectPixels(const uint8_t* top, const int32_t* offsets, uint8_t* out,
                                  std::integer_sequence<int, kLane...>) {
  __m128i pixels = _mm_setzero_si128();
#if QUILLON_AVX2
  ((pixels = _mm_insert_epi8(pixels, top[offsets[kLane]], kLane)), ...);
  ((pixels = _mm_insert_epi8(pixels, top[offsets[kLane + 8]], kLane + 8)), ...);
#else
  ((pixels = _mm_insert_epi16(pixels, top[offsets[2 * kLane]] | top[offsets[2 * kLane + 1]] << 8,
                              kLane)),
   ...);
#endif
  Store(out, pixels);
}

// Each pixel with its right neighbour, in 16 bits.
template <int... kLane>
QUILLON_INLINE void CollectPairs(const uint8_t* top, const int32_t* offsets, uint16_t* out,
                                 std::integer_sequence<int, kLane...>) {
  __m128i pairs = _mm_setzero_si128();
  ((pairs = _mm_insert_epi16(pairs, LoadPair(top + offsets[kLane]), kLane)), ...);
  Store(out, pairs);
}

constexpr auto kEight = std::make_integer_sequence<int, 8>{};

void NearestRow(const RotatedRow& given, uint8_t* out, int first, int end) {
  const RotatedRow row = given;
  alignas(64) int32_t offsets[kRun];
  for (int x = first; x < end; x += kRun) {
    const int count = end - x < kRun ? end - x : kRun;
    for (int i = 0; i < count; ++i) {
      offsets[i] = static_cast<int32_t>(SourceX(row, x + i)) -
                   static_cast<int32_t>(SourceY(row, x + i)) * row.stride;
    }
    int i = 0;
    for (; i <= count - 16; i += 16) CollectPixels(row.top, offsets + i, out + x + i, kEight);
    for (; i < count; ++i) out[x + i] = row.top[offsets[i]];
  }
}

// Linear interpolation of four pixels, in T.
template <class T>
QUILLON_INLINE T Interpolate(T nw, T ne, T sw, T se, T right, T down) {
  const T upper = nw + (ne - nw) * right;
  const T lower = sw + (se - sw) * right;
  return upper + (lower - upper) * down;
}

uint8_t ExactPixel(const RotatedRow& row, int x) {
  const double sx = SourceX(row, x), sy = SourceY(row, x);
  const int column = static_cast<int>(sx), line = static_cast<int>(sy);
  const uint8_t* upper = row.top + column - static_cast<ptrdiff_t>(line) * row.stride;
  const uint8_t* lower = upper - row.stride;
  return static_cast<uint8_t>(
      Interpolate<double>(upper[0], upper[1], lower[0], lower[1], sx - column, sy - line) + 0.5);
}

// In float, the sum of interpolation and 1/2 is off by less than 7 * 2^-16: 2^-17 for each rounding
// of a number below 256 and for each fraction's own rounding, carried along. Where it lies farther
// than 2^-13 from an integer, it truncates to the same value as in double; the others are few.
constexpr float kDoubt = 0x1p-13f;

void BilinearRow(const RotatedRow& given, uint8_t* out, int first, int end) {
  const RotatedRow row = given;
  alignas(64) int32_t offsets[kRun];
  alignas(64) float right[kRun], down[kRun];
  alignas(64) uint16_t upper[kRun], lower[kRun];
  alignas(64) uint8_t doubtful[kRun];
  for (int x = first; x < end; x += kRun) {
    const int count = end - x < kRun ? end - x : kRun;
    for (int i = 0; i < count; ++i) {
      const double sx = SourceX(row, x + i), sy = SourceY(row, x + i);
      const int32_t column = static_cast<int32_t>(sx), line = static_cast<int32_t>(sy);
      right[i] = static_cast<float>(sx - column);
      down[i] = static_cast<float>(sy - line);
      offsets[i] = column - line * row.stride;
    }
    const uint8_t* next = row.top - row.stride;
    int loaded = 0;
    for (; loaded <= count - 8; loaded += 8) {
      CollectPairs(row.top, offsets + loaded, upper + loaded, kEight);
      CollectPairs(next, offsets + loaded, lower + loaded, kEight);
    }
    for (; loaded < count; ++loaded) {
      upper[loaded] = LoadPair(row.top + offsets[loaded]);
      lower[loaded] = LoadPair(next + offsets[loaded]);
    }
    uint8_t anyDoubt = 0;
    for (int i = 0; i < count; ++i) {
      const float value = Interpolate<float>(upper[i] & 255, upper[i] >> 8, lower[i] & 255,
                                             lower[i] >> 8, right[i], down[i]) +
                          0.5f;
      const int32_t pixel = static_cast<int32_t>(value);
      const float fromMiddle = __builtin_fabsf(value - static_cast<float>(pixel) - 0.5f);
      out[x + i] = static_cast<uint8_t>(pixel);
      doubtful[i] = fromMiddle > 0.5f - kDoubt;
      anyDoubt |= doubtful[i];
    }
    if (!anyDoubt) continue;
    for (int i = 0; i < count; ++i) {
      if (doubtful[i]) out[x + i] = ExactPixel(row, x + i);
    }
  }
}

}  // namespace

const RotationKernels rotation = {.NearestRow = NearestRow, .BilinearRow = BilinearRow};

}  // namespace quillon::QUILLON_LEVEL
