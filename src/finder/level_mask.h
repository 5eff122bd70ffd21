// Which pixels of a template's level take part.
#pragma once

#include "finder/finder.h"

namespace quillon::finder {

class LevelMask {
 public:
  // Level 0. False when memory is short.
  bool Open(const Model& model);
  // To the next level: of a pixel there, all four pixels of this one take part.
  void Halve();

  int Width() const { return width_; }
  int Height() const { return height_; }
  bool At(int x, int y) const { return takesPart_[static_cast<size_t>(y) * width_ + x] != 0; }

 private:
  int width_ = 0, height_ = 0;
  Buffer<uint8_t> takesPart_;
};

}  // namespace quillon::finder
