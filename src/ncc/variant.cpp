#include "ncc/variant.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/length.h"
#include "ncc/correlation.h"
#include "ncc/correlation_kernels.h"
#include "ncc/fit_kernels.h"
#include "ncc/patch.h"
#include "ncc/pose.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

constexpr int kOne = 1 << kTurnedFraction;

int ToFixed(double value) { return static_cast<int>(std::lround(value * kOne)); }

int64_t DivideDown(int64_t a, int64_t b) { return a / b - (a % b < 0); }

// The columns first ... last - 1 of those where 0 <= start + step x < end.
void Cut(int64_t start, int64_t step, int64_t end, int64_t& first, int64_t& last) {
  if (step < 0) {  // the same columns from the other end of the interval
    start = end - 1 - start;
    step = -step;
  }
  if (step == 0) {
    if (start < 0 || start >= end) last = first;
    return;
  }
  first = std::max(first, DivideDown(-start + step - 1, step));
  last = std::min(last, DivideDown(end - start + step - 1, step));
}

}  // namespace

VariantMaker::VariantMaker(const Kernels& kernels, const NccLevel& level, const NccMask* mask)
    : kernels_(kernels), level_(level), mask_(mask) {}
VariantMaker::~VariantMaker() = default;

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
  const size_t planes = static_cast<size_t>(level_.planes) + 1;
  return Grow(planes * (picture.PlaneSize() + Picture::kVector), picture.pixels) &&
         Grow(static_cast<size_t>(size.height), picture.spans);
}

bool VariantMaker::Scale(double scale) {
  if (scale_ == scale) return true;
  scale_ = 0;
  hasCells_ = false;
  const Size size = ScaledSize(scale);
  if (!Reserve(size, scaled_) || !Grow(static_cast<size_t>(size.width), columns_)) return false;
  const double step = IsOwnSize(scale) ? 1.0 : 1 / scale;
  // trunc(i / scale + 1/2 + offset), the offset keeping centre on centre.
  const auto source = [&](int i, int part, int full) {
    const double offset = (0.5 - part * 0.5) * step + full * 0.5 - 0.5;
    return std::min(static_cast<int>(i * step + 0.5 + offset), full - 1);
  };
  for (int x = 0; x < size.width; ++x) columns_[x] = source(x, size.width, level_.width);
  for (int y = 0; y < size.height; ++y) {
    const int fromY = source(y, size.height, level_.height);
    const ptrdiff_t at = static_cast<ptrdiff_t>(y) * size.width;
    for (int plane = 0; plane < level_.planes; ++plane) {
      const uint8_t* from = level_.Plane(plane)[fromY];
      uint8_t* to = scaled_.Plane(plane) + at;
      for (int x = 0; x < size.width; ++x) to[x] = from[columns_[x]];
    }
    uint8_t* care = scaled_.Plane(level_.planes) + at;
    std::memset(care, 255, static_cast<size_t>(size.width));
    for (int x = 0; mask_ && x < size.width; ++x) {
      if (mask_->rows[fromY][columns_[x]] != 0) care[x] = 0;
    }
    scaled_.spans[y] = {0, size.width};
  }
  scale_ = scale;
  return true;
}

bool VariantMaker::PrepareCells() {
  if (hasCells_) return true;
  const ptrdiff_t pixels = scaled_.PlaneSize();
  if (!Grow(static_cast<size_t>(pixels * level_.planes), cells_)) return false;
  for (int plane = 0; plane < level_.planes; ++plane) {
    PackCells(kernels_, scaled_.Plane(plane), scaled_.width, scaled_.height,
              cells_.data() + plane * pixels);
  }
  hasCells_ = true;
  return true;
}

bool VariantMaker::Turn(double c, double s) {
  const int width = scaled_.width, height = scaled_.height, planes = level_.planes;
  if (!PrepareCells() || !Reserve(TurnedSize({width, height}, c, s), turned_)) return false;
  const uint8_t* scaledCare = scaled_.Plane(planes);
  const int stepU = ToFixed(c), stepV = ToFixed(-s);
  for (int y = 0; y < turned_.height; ++y) {
    const double fromX = 0.5 - turned_.width * 0.5, fromY = y + 0.5 - turned_.height * 0.5;
    const int fromU = ToFixed(fromX * c + fromY * s + width * 0.5);
    const int fromV = ToFixed(fromY * c - fromX * s + height * 0.5);
    int64_t from = 0, to = turned_.width;
    Cut(fromU, stepU, int64_t{width} << kTurnedFraction, from, to);
    Cut(fromV, stepV, int64_t{height} << kTurnedFraction, from, to);
    if (to < from) from = to = 0;
    const int first = static_cast<int>(from), count = static_cast<int>(to - from);
    turned_.spans[y] = {first, count};
    const TurnedRow places = {fromU + first * stepU, fromV + first * stepV, stepU, stepV};
    const ptrdiff_t at = static_cast<ptrdiff_t>(y) * turned_.width;
    for (int plane = 0; plane < planes; ++plane) {
      const FitCells cells = {cells_.data() + plane * scaled_.PlaneSize(), nullptr, width, height};
      uint8_t* row = turned_.Plane(plane) + at;
      kernels_.fit.TurnRow(cells, places, count, row + first);
      std::memset(row, 0, static_cast<size_t>(first));
      std::memset(row + first + count, 0, static_cast<size_t>(turned_.width - first - count));
    }
    uint8_t* care = turned_.Plane(planes) + at + first;
    std::memset(care, 255, static_cast<size_t>(count));
    int u = places.u, v = places.v;
    for (int x = 0; mask_ && x < count; ++x, u += stepU, v += stepV) {
      care[x] =
          scaledCare[static_cast<ptrdiff_t>(v >> kTurnedFraction) * width + (u >> kTurnedFraction)];
    }
  }
  return true;
}

// Finds the runs of pixels that take part, and adds up their pixels.
void VariantMaker::FindRuns(Picture& picture, Variant& variant, PixelSums& sums) const {
  variant.runCount = 0;
  for (int y = 0; y < picture.height; ++y) {
    const VariantRow& span = picture.spans[y];
    const ptrdiff_t rowStart = static_cast<ptrdiff_t>(y) * picture.width;
    const uint8_t* care = picture.Plane(level_.planes) + rowStart;
    const int end = span.first + span.count;
    VariantRow row = {0, 0};
    for (int x = span.first; x < end; ++x) {
      if (!care[x]) continue;
      const int first = x;
      while (x < end && care[x]) ++x;
      if (row.count == 0) row.first = first;
      row.count = x - row.first;
      variant.runs[variant.runCount++] = {first, x - 1, y};
      for (int plane = 0; plane < level_.planes; ++plane) {
        const uint8_t* run = picture.Plane(plane) + rowStart + first;
        AddProducts(kernels_, run, run, x - first, sums);
      }
    }
    variant.rows[y] = row;
  }
}

// The same without a mask: a row's span is its run, and what is not in it adds nothing.
void VariantMaker::TakeSpans(Picture& picture, Variant& variant, PixelSums& sums) const {
  variant.runCount = 0;
  for (int y = 0; y < picture.height; ++y) {
    const VariantRow& span = picture.spans[y];
    variant.rows[y] = span;
    if (span.count == 0) continue;
    variant.runs[variant.runCount++] = {span.first, span.first + span.count - 1, y};
  }
  for (int plane = 0; plane < level_.planes; ++plane) {
    const uint8_t* pixels = picture.Plane(plane);
    AddProducts(kernels_, pixels, pixels, static_cast<int>(picture.PlaneSize()), sums);
  }
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
      !Grow(static_cast<size_t>(height) * (mask_ ? (width + 1) / 2 : 1), variant.runs)) {
    return false;
  }
  PixelSums sums;
  mask_ ? FindRuns(picture, variant, sums) : TakeSpans(picture, variant, sums);
  for (int y = 0; y < height; ++y) {
    const VariantRow& row = variant.rows[y];
    const ptrdiff_t at = static_cast<ptrdiff_t>(y) * width + row.first;
    const uint8_t* care = picture.Plane(level_.planes) + at;
    for (int plane = 0; plane < level_.planes; ++plane) {
      kernels.PackPattern(
          picture.Plane(plane) + at, care, row.count,
          variant.packed.data() + (static_cast<ptrdiff_t>(plane) * height + y) * variant.rowBytes);
    }
  }
  uint32_t pixels = 0;
  variant.longestRun = 0;
  for (int i = 0; i < variant.runCount; ++i) {
    const int length = variant.runs[i].last - variant.runs[i].first + 1;
    variant.longestRun = std::max(variant.longestRun, length);
    pixels += static_cast<uint32_t>(length);
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
