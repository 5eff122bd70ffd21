#include "ncc/patch.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/grey_kernels.h"
#include "ncc/fit_kernels.h"
#include "pyramid/pyramid_kernels.h"
#include "simd/kernels.h"

namespace quillon {
bool OpenSearchImage(const Kernels&, const GreyImage& image, SearchImage& opened) {
  opened.width = image.width;
  opened.height = image.height;
  opened.planes = 1;
  opened.rows[0] = image.rows;
  return true;
}

bool OpenSearchImage(const Kernels& kernels, const ColourImage& image, SearchImage& opened) {
  const size_t width = static_cast<size_t>(image.width), height = static_cast<size_t>(image.height);
  opened.width = image.width;
  opened.height = image.height;
  opened.planes = 3;
  opened.pixels = Buffer<uint8_t>(3 * width * height);
  opened.rowTable = Buffer<uint8_t*>(3 * height);
  if (!opened.pixels || !opened.rowTable) return false;
  for (size_t i = 0; i < 3 * height; ++i) opened.rowTable[i] = opened.pixels.data() + i * width;
  for (size_t plane = 0; plane < 3; ++plane) {
    opened.rows[plane] = opened.rowTable.data() + plane * height;
  }
  for (size_t y = 0; y < height; ++y) {
    kernels.grey.SplitRow(image.rows[y], opened.rowTable[y], opened.rowTable[height + y],
                          opened.rowTable[2 * height + y], image.width);
  }
  return true;
}

void PackCells(const Kernels& kernels, const uint8_t* pixels, int width, int height,
               uint32_t* cells) {
  // All rows as if they were one.
  const int last = (height - 1) * width;
  kernels.fit.PackCells(pixels, pixels + width, last, cells);
  kernels.fit.PackCells(pixels + last, pixels + last, width, cells + last);
}

bool Patch::CutPixels(const Kernels& kernels, const SearchImage& image, int level,
                      const Region& region) {
  left_ = std::max(region.left, 0);
  top_ = std::max(region.top, 0);
  width_ = std::max(std::min(region.right, ReducedSize(image.width, level)) - left_, 0);
  height_ = std::max(std::min(region.bottom, ReducedSize(image.height, level)) - top_, 0);
  planes_ = image.planes;
  hasSums_[0] = hasSums_[1] = false;
  image_ = {std::ldexp(image.width, -level), std::ldexp(image.height, -level)};
  const size_t size = static_cast<size_t>(planes_) * height_ * width_;
  if (!Grow(size + kPackedMargin, pixels_)) return false;
  const int side = 1 << level;
  for (int plane = 0; plane < image.planes; ++plane) {
    for (int y = 0; y < height_; ++y) {
      uint8_t* row = pixels_.data() + RowOf(plane, y) * width_;
      const uint8_t* source[1 << kMaxPyramidLevel];
      for (int i = 0; i < side; ++i) {
        source[i] = image.rows[plane][(top_ + y) * side + i] + static_cast<ptrdiff_t>(left_) * side;
      }
      if (level == 0) {
        std::memcpy(row, source[0], static_cast<size_t>(width_));
      } else {
        kernels.pyramid.ReduceRow[level - 1](source, row, width_);
      }
    }
  }
  return true;
}

bool Patch::AddCells(const Kernels& kernels) {
  if (!Grow(static_cast<size_t>(planes_) * height_ * width_, cells_)) return false;
  if (width_ == 0 || height_ == 0) return true;
  for (int plane = 0; plane < planes_; ++plane) {
    PackCells(kernels, Pixels(plane, 0), width_, height_, cells_.data() + RowOf(plane, 0) * width_);
  }
  return true;
}

bool Patch::Cut(const Kernels& kernels, const SearchImage& image, int level, const Region& region) {
  if (!CutPixels(kernels, image, level, region)) return false;
  packedStride_ = width_ * kernels.correlation.elementBytes;
  // Vectors that reach behind a row read the next one, and behind the last one the margin.
  const size_t packed = static_cast<size_t>(image.planes) * height_ * packedStride_ +
                        kPackedMargin * static_cast<size_t>(kernels.correlation.elementBytes);
  if (!Grow(packed, packed_)) return false;
  for (int plane = 0; plane < image.planes; ++plane) {
    for (int y = 0; y < height_; ++y) {
      kernels.correlation.PackImage(Pixels(plane, y), width_,
                                    packed_.data() + RowOf(plane, y) * packedStride_);
    }
  }
  return true;
}

// Sums go row by row: their vectors reach into the next row, which is written after them.
bool Patch::AddSums(const Kernels& kernels, bool joint) {
  if (hasSums_[joint]) return true;
  const size_t size = static_cast<size_t>(SumStride()) * height_ + kPackedMargin;
  Buffer<uint32_t>& values = joint ? joint_ : values_;
  if (!Grow(size, values) || (!joint && !Grow(size, squares_))) return false;
  for (int y = 0; y < height_; ++y) {
    const ptrdiff_t at = RowOf(0, y) * SumStride();
    for (int plane = 0; plane < planes_; ++plane) {
      kernels.correlation.AddRunningSums(Pixels(plane, y), width_, plane + 1, values.data() + at,
                                         joint ? nullptr : squares_.data() + at);
    }
  }
  return hasSums_[joint] = true;
}

}  // namespace quillon
