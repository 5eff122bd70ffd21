#include "ncc/variant.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/length.h"
#include "ncc/correlation.h"
#include "ncc/correlation_kernels.h"
#include "ncc/pose.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

// A position in the scaled template: 16 bits of whole pixels, 16 of fraction.
constexpr int kFraction = 16;
constexpr int kOne = 1 << kFraction;

int ToFixed(double value) { return static_cast<int>(std::lround(value * kOne)); }

// Bilinear, between pixel centres; at the edge the outermost pixel.
uint8_t Sample(const uint8_t* plane, int width, int height, int u, int v) {
  const int x = std::clamp(u - kOne / 2, 0, (width - 1) * kOne);
  const int y = std::clamp(v - kOne / 2, 0, (height - 1) * kOne);
  const int left = x >> kFraction, top = y >> kFraction;
  const int right = std::min(left + 1, width - 1), bottom = std::min(top + 1, height - 1);
  constexpr int kWeight = 256;
  const int fx = (x & (kOne - 1)) >> 8, fy = (y & (kOne - 1)) >> 8;
  const uint8_t* upper = plane + static_cast<ptrdiff_t>(top) * width;
  const uint8_t* lower = plane + static_cast<ptrdiff_t>(bottom) * width;
  const int above = upper[left] * (kWeight - fx) + upper[right] * fx;
  const int below = lower[left] * (kWeight - fx) + lower[right] * fx;
  return static_cast<uint8_t>((above * (kWeight - fy) + below * fy + kOne / 2) >> kFraction);
}

}  // namespace

VariantMaker::Size VariantMaker::ScaledSize(double scale) const {
  if (IsOwnSize(scale)) return {level_.width, level_.height};
  return {static_cast<int>(level_.width * scale), static_cast<int>(level_.height * scale)};
}

VariantMaker::Size VariantMaker::TurnedSize(Size size, double c, double s) {
  constexpr double kRounding = 1e-6;  // a quarter turn needs no extra column
  const auto box = [](double side) { return static_cast<int>(std::ceil(side - kRounding)); };
  return {box(std::abs(size.width * c) + std::abs(size.height * s)),
          box(std::abs(size.width * s) + std::abs(size.height * c))};
}

bool VariantMaker::Reserve(Size size, Picture& picture) const {
  picture.width = size.width;
  picture.height = size.height;
  return Grow(static_cast<size_t>(size.width) * size.height * (level_.planes + 1), picture.pixels);
}

bool VariantMaker::Scale(double scale) {
  if (scale_ == scale) return true;
  scale_ = 0;
  if (!Reserve(ScaledSize(scale), scaled_)) return false;
  const int width = scaled_.width, height = scaled_.height;
  const double step = IsOwnSize(scale) ? 1.0 : 1 / scale;
  // trunc(i / scale + 1/2 + offset), the offset keeping centre on centre.
  const auto source = [&](int i, int size, int full) {
    const double offset = (0.5 - size * 0.5) * step + full * 0.5 - 0.5;
    return std::min(static_cast<int>(i * step + 0.5 + offset), full - 1);
  };
  uint8_t* care = scaled_.Plane(level_.planes);
  for (int y = 0; y < height; ++y) {
    const int fromY = source(y, height, level_.height);
    for (int x = 0; x < width; ++x) {
      const int fromX = source(x, width, level_.width);
      const ptrdiff_t at = static_cast<ptrdiff_t>(y) * width + x;
      care[at] = !mask_ || mask_->rows[fromY][fromX] == 0 ? 255 : 0;
      for (int plane = 0; plane < level_.planes; ++plane) {
        scaled_.Plane(plane)[at] = level_.Plane(plane)[fromY][fromX];
      }
    }
  }
  scale_ = scale;
  return true;
}

bool VariantMaker::Turn(double c, double s) {
  const int width = scaled_.width, height = scaled_.height, planes = level_.planes;
  if (!Reserve(TurnedSize({width, height}, c, s), turned_)) return false;
  std::memset(turned_.pixels.data(), 0,
              static_cast<size_t>(planes + 1) * turned_.width * turned_.height);
  uint8_t* care = turned_.Plane(planes);
  const uint8_t* scaledCare = scaled_.Plane(planes);
  const int stepU = ToFixed(c), stepV = ToFixed(-s);
  const int endU = width << kFraction, endV = height << kFraction;
  ptrdiff_t at = 0;
  for (int y = 0; y < turned_.height; ++y) {
    const double fromX = 0.5 - turned_.width * 0.5, fromY = y + 0.5 - turned_.height * 0.5;
    int u = ToFixed(fromX * c + fromY * s + width * 0.5);
    int v = ToFixed(fromY * c - fromX * s + height * 0.5);
    for (int x = 0; x < turned_.width; ++x, u += stepU, v += stepV, ++at) {
      if (u < 0 || u >= endU || v < 0 || v >= endV ||
          !scaledCare[static_cast<ptrdiff_t>(v >> kFraction) * width + (u >> kFraction)]) {
        continue;
      }
      care[at] = 255;
      for (int plane = 0; plane < planes; ++plane) {
        turned_.Plane(plane)[at] = Sample(scaled_.Plane(plane), width, height, u, v);
      }
    }
  }
  return true;
}

bool VariantMaker::Pack(Picture& picture, Variant& variant) const {
  const int width = picture.width, height = picture.height;
  const auto& kernels = kernels_.correlation;
  variant.width = width;
  variant.height = height;
  variant.planes = level_.planes;
  variant.rowBytes = (width * kernels.elementBytes + 63) / 64 * 64;
  const size_t rowCount = static_cast<size_t>(height) * level_.planes;
  // A row of `width` columns has at most half as many runs, rounded up.
  if (!Grow(rowCount * variant.rowBytes, variant.packed) || !Grow(size_t(height), variant.rows) ||
      !Grow(static_cast<size_t>(height) * ((width + 1) / 2), variant.runs)) {
    return false;
  }
  variant.runCount = 0;
  PixelSums sums;
  uint32_t pixels = 0;
  for (int y = 0; y < height; ++y) {
    const ptrdiff_t rowStart = static_cast<ptrdiff_t>(y) * width;
    const uint8_t* care = picture.Plane(level_.planes) + rowStart;
    VariantRow row = {0, 0};
    for (int x = 0; x < width; ++x) {
      if (!care[x]) continue;
      const int first = x;
      while (x < width && care[x]) ++x;
      if (row.count == 0) row.first = first;
      row.count = x - row.first;
      pixels += static_cast<uint32_t>(x - first);
      variant.runs[variant.runCount++] = {first, x - 1, y};
      for (int plane = 0; plane < level_.planes; ++plane) {
        const uint8_t* run = picture.Plane(plane) + rowStart + first;
        AddProducts(kernels_, run, run, x - first, sums);
      }
    }
    variant.rows[y] = row;
    for (int plane = 0; plane < level_.planes; ++plane) {
      kernels.PackPattern(
          picture.Plane(plane) + rowStart + row.first, care + row.first, row.count,
          variant.packed.data() + (static_cast<ptrdiff_t>(plane) * height + y) * variant.rowBytes);
    }
  }
  variant.count = 0;
  if (pixels == 0) return true;
  const uint32_t count = static_cast<uint32_t>(level_.planes) * pixels;
  variant.sum = sums.image;
  variant.mean = static_cast<double>(sums.image) / count;
  variant.deviation = DeviationOf(sums.imageSquared, count, variant.mean);
  // Whole pixel values that are not all equal deviate by at least 1 - 1 / n, which is 1/2 or more.
  constexpr double kFlat = 0.25;
  if (variant.deviation > kFlat) variant.count = count;
  return true;
}

bool VariantMaker::Make(double scale, double degrees, Variant& variant) {
  variant.count = 0;
  variant.width = variant.height = 0;
  const double side = Length(level_.width, level_.height) * scale;
  if (!(side <= kMaxPatternSide) || level_.width * scale < 1 || level_.height * scale < 1) {
    return true;
  }
  variant.turned = degrees != 0;
  const double c = variant.turned ? std::cos(degrees * kRadians) : 1.0;
  const double s = variant.turned ? std::sin(degrees * kRadians) : 0.0;
  const Size size = TurnedSize(ScaledSize(scale), c, s);
  if (size.width > most_.width || size.height > most_.height) return true;
  if (!Scale(scale)) return false;
  if (!variant.turned) return Pack(scaled_, variant);
  return Turn(c, s) && Pack(turned_, variant);
}

}  // namespace quillon
