// The grey values of a pyramid level, or of a part of it.
#pragma once

#include <cstdint>

#include "core/buffer.h"
#include "quillon/image.h"

namespace quillon {

struct Kernels;

// rows[0][0] is the pixel (left, top) of a level of width x height.
struct LevelPixels {
  const uint8_t* const* rows;
  int width, height;
  int left = 0, top = 0;
};

// A rectangle of pixels, its last column and row included.
struct PixelBox {
  int left, top, right, bottom;
};

// A level of an image, held in memory of its own where it is a reduced one.
class LevelImage {
 public:
  // The part `box` of a level; the box lies inside the level. False when the memory is not there.
  bool Reduce(const Kernels& kernels, const GreyImage& image, int level, const PixelBox& box);
  // All of it.
  bool Reduce(const Kernels& kernels, const GreyImage& image, int level);
  const LevelPixels& Pixels() const { return pixels_; }

 private:
  LevelPixels pixels_ = {};
  Buffer<uint8_t> block_;
  Buffer<uint8_t*> rows_;
  Buffer<const uint8_t*> sourceRows_;
};

}  // namespace quillon
