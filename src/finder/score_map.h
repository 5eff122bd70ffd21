// Scores of one angle and scale at every place.
#pragma once

#include <cstring>

#include "core/buffer.h"
#include "finder/finder_kernels.h"

namespace quillon::finder {

// Around the places lies a frame of zeros, which is lower than any score that counts. Rows have
// room for more than `width` scores, for kernels write whole blocks.
class ScoreMap {
 public:
  // False when memory is short.
  bool Open(int width, int height) {
    width_ = width;
    height_ = height;
    stride_ = width + kSumBlock + 1;
    scores_ = Buffer<uint16_t>(static_cast<size_t>(stride_) * (height + 2));
    if (!scores_) return false;
    Clear();
    return true;
  }
  void Clear() { std::memset(scores_.data(), 0, scores_.size() * sizeof(uint16_t)); }
  // What kernels wrote beyond the rows becomes the frame again.
  void Frame() {
    for (int y = 0; y < height_; ++y) Row(y)[width_] = 0;
  }
  int Width() const { return width_; }
  int Height() const { return height_; }
  int Stride() const { return stride_; }
  // From -1 to Height(); its columns from -1 to Width().
  uint16_t* Row(int y) { return &scores_[static_cast<size_t>(y + 1) * stride_ + 1]; }

 private:
  int width_ = 0, height_ = 0, stride_ = 0;
  Buffer<uint16_t> scores_;
};

}  // namespace quillon::finder
