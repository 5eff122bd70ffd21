#include "geomatch/level_pixels.h"

#include "pyramid/pyramid.h"

namespace quillon {

bool LevelImage::Reduce(const Kernels& kernels, const GreyImage& image, int level,
                        const PixelBox& box) {
  pixels_ = {.rows = image.rows,
             .width = ReducedSize(image.width, level),
             .height = ReducedSize(image.height, level)};
  if (level == 0) return true;
  const int width = box.right - box.left + 1, height = box.bottom - box.top + 1;
  if (width <= 0 || height <= 0) return true;

  // Blocks do not overlap: the reduction of a part is the part of the reduction.
  const int sourceWidth = width << level, sourceHeight = height << level;
  block_ = Buffer<uint8_t>(static_cast<size_t>(width) * static_cast<size_t>(height));
  rows_ = Buffer<uint8_t*>(static_cast<size_t>(height));
  sourceRows_ = Buffer<const uint8_t*>(static_cast<size_t>(sourceHeight));
  if (!block_ || !rows_ || !sourceRows_) return false;
  for (int y = 0; y < height; ++y) rows_[y] = block_.data() + static_cast<ptrdiff_t>(y) * width;
  for (int y = 0; y < sourceHeight; ++y) {
    sourceRows_[y] = image.rows[(box.top << level) + y] + (box.left << level);
  }
  ReduceByBlockMean(kernels, level, sourceRows_.data(), sourceWidth, sourceHeight, rows_.data());
  pixels_.rows = rows_.data();
  pixels_.left = box.left;
  pixels_.top = box.top;
  return true;
}

bool LevelImage::Reduce(const Kernels& kernels, const GreyImage& image, int level) {
  return Reduce(kernels, image, level,
                {.left = 0,
                 .top = 0,
                 .right = ReducedSize(image.width, level) - 1,
                 .bottom = ReducedSize(image.height, level) - 1});
}

}  // namespace quillon
