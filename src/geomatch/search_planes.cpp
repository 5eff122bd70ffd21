#include "geomatch/search_planes.h"

#include <algorithm>
#include <cstring>

#include "geomatch/edges.h"
#include "pyramid/pyramid.h"
#include "simd/kernels.h"

namespace quillon {

bool SearchPlanes::ComputeSearchGradients(const Kernels& kernels, const GreyImage& image, int level,
                                          const PixelBox& window, int margin, bool withInverses) {
  level_ = -1;
  const int64_t columns = int64_t{window.right} - window.left + 1 + 2 * int64_t{margin};
  const int64_t rows = int64_t{window.bottom} - window.top + 1 + 2 * int64_t{margin};
  // Kernels look at so many positions at a time; rows start on cache lines.
  const int64_t stride = (columns + kMaxScanLanes + 15) / 16 * 16;
  if (stride > INT32_MAX / rows) return false;
  const auto size = static_cast<size_t>(stride * rows);
  stride_ = static_cast<int>(stride);
  left_ = window.left - margin;
  top_ = window.top - margin;
  const int right = window.right + margin, bottom = window.bottom + margin;
  gradients_ = Buffer<PackedVector>(size);
  units_ = Buffer<PackedVector>(size);
  inverses_ = withInverses ? Buffer<double>(size) : Buffer<double>();
  if (!gradients_ || !units_ || (withInverses && !inverses_)) return false;

  // The pixels that the gradients need: their neighbours too.
  const int width = ReducedSize(image.width, level), height = ReducedSize(image.height, level);
  PixelBox box = {0, 0, -1, -1};
  if (width >= 3 && height >= 3 && right >= 0 && left_ < width && bottom >= 0 && top_ < height) {
    box = {.left = std::max(left_ - 1, 0),
           .top = std::clamp(top_, 1, height - 2) - 1,
           .right = std::min(right + 1, width - 1),
           .bottom = std::clamp(bottom, 1, height - 2) + 1};
  }
  LevelImage pixels;
  if (!pixels.Reduce(kernels, image, level, box)) return false;

  const int count = static_cast<int>(columns);
  const int begin = std::clamp(-left_, 0, count), end = std::clamp(width - left_, 0, count);
  const auto markOutside = [](PackedVector* from, PackedVector* to) {
    const auto bytes = static_cast<size_t>(to - from) * sizeof *from;
    if (bytes != 0) std::memset(from, kOutsideByte, bytes);
  };
  for (int y = top_; y <= bottom; ++y) {
    const ptrdiff_t first = Offset(left_, y);
    PackedVector *gradients = gradients_.data() + first, *units = units_.data() + first;
    double* inverses = withInverses ? inverses_.data() + first : nullptr;
    if (y < 0 || y >= height) {
      markOutside(gradients, gradients + stride_);
      std::fill_n(units, stride_, 0);
      if (inverses) std::fill_n(inverses, stride_, 0.0);
      continue;
    }
    ComputeSobelGradients(kernels, pixels.Pixels(), y, left_, right, gradients);
    std::fill(gradients + count, gradients + stride_, 0);
    kernels.geomatch.UnitRow(gradients, units, stride_);
    if (inverses) kernels.geomatch.InverseRow(gradients, inverses, stride_);
    markOutside(gradients, gradients + begin);
    markOutside(gradients + end, gradients + count);
  }
  level_ = level;
  window_ = window;
  width_ = width;
  height_ = height;
  return true;
}

}  // namespace quillon
