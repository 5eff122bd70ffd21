#include "finder/level_mask.h"

#include <algorithm>

namespace quillon::finder {

bool LevelMask::Open(const Model& model) {
  width_ = model.width;
  height_ = model.height;
  takesPart_ = Buffer<uint8_t>(static_cast<size_t>(width_) * height_);
  if (!takesPart_) return false;
  if (model.mask) {
    std::copy(model.mask.begin(), model.mask.end(), takesPart_.begin());
  } else {
    std::fill(takesPart_.begin(), takesPart_.end(), uint8_t{255});
  }
  return true;
}

void LevelMask::Halve() {
  const int wide = width_;
  width_ /= 2;
  height_ /= 2;
  for (int y = 0; y < height_; ++y) {
    for (int x = 0; x < width_; ++x) {
      // What is written lies behind what is still to be read.
      const uint8_t* from = &takesPart_[static_cast<size_t>(2 * y) * wide + 2 * x];
      const int all = from[0] & from[1] & from[wide] & from[wide + 1];
      takesPart_[static_cast<size_t>(y) * width_ + x] = static_cast<uint8_t>(all);
    }
  }
}

}  // namespace quillon::finder
