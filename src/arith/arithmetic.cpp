#include "arith/arithmetic.h"

#include <algorithm>

#include "core/image_access.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

// Calls row(from, to, count) over all pixels in the order of memory: row by row, or once where rows
// have no padding between them.
template <class Row>
void MapPixels(const GreyImage& source, GreyImage& result, const Row& row) {
  const int width = source.width, height = source.height;
  if (&result != &source && !RecreateForOverwrite(result, width, height)) return;
  if (source.stride == width && result.stride == width) {
    row(source.bits, result.bits, width * height);
    return;
  }
  for (int y = height - 1; y >= 0; --y) row(source.rows[y], result.rows[y], width);
}

uint8_t GainOffset(int pixel, double gain, double offset) {
  const double value = pixel * gain + offset;
  if (value >= 255) return 255;
  return value > 0 ? static_cast<uint8_t>(value) : 0;
}

}  // namespace

void CombinePixels(const Kernels& kernels, PairRule rule, const GreyImage& a, const GreyImage& b,
                   GreyImage& result) {
  const int width = a.width, height = a.height;
  if (b.width != width || b.height != height) return;
  const bool inPlace = &result == &a || &result == &b;
  if (!inPlace && !RecreateForOverwrite(result, width, height)) return;
  const auto row = kernels.arithmetic.PairRow[static_cast<int>(rule)];
  if (a.stride == width && b.stride == width && result.stride == width) {
    row(a.bits, b.bits, result.bits, width * height);
    return;
  }
  for (int y = height - 1; y >= 0; --y) row(a.rows[y], b.rows[y], result.rows[y], width);
}

void ShiftPixelsLeft(const Kernels& kernels, const GreyImage& source, GreyImage& result, int bits) {
  if (bits < 0) return;
  MapPixels(source, result, [&](const uint8_t* from, uint8_t* to, int count) {
    kernels.arithmetic.ShiftLeftRow(from, to, count, std::min(bits, 8));
  });
}

void ShiftPixelsRight(const Kernels& kernels, const GreyImage& source, GreyImage& result,
                      int bits) {
  if (bits < 0) return;
  MapPixels(source, result, [&](const uint8_t* from, uint8_t* to, int count) {
    kernels.arithmetic.ShiftRightRow(from, to, count, std::min(bits, 8));
  });
}

void InvertPixels(const Kernels& kernels, const GreyImage& source, GreyImage& result) {
  MapPixels(source, result, kernels.arithmetic.InvertRow);
}

void ApplyGainOffset(const Kernels& kernels, const GreyImage& source, GreyImage& result,
                     double gain, double offset) {
  uint8_t table[256];
  for (int pixel = 0; pixel < 256; ++pixel) table[pixel] = GainOffset(pixel, gain, offset);
  MapPixels(source, result, [&](const uint8_t* from, uint8_t* to, int count) {
    kernels.lookup.LookupRow(from, to, count, table);
  });
}

}  // namespace quillon
