#include "finder/planes.h"

#include <cstring>

namespace quillon::finder {

bool Planes::Open(const FinderKernels& kernels, const Picture& picture, int levels) {
  kernels_ = &kernels;
  level_[0].pixels = picture.pixels;
  level_[0].stride = picture.stride;
  level_[0].width = picture.width;
  level_[0].height = picture.height;
  for (int l = 1; l < levels; ++l) {
    const Level& from = level_[l - 1];
    Level& to = level_[l];
    to.width = from.width / 2;
    to.height = from.height / 2;
    if (to.width == 0 || to.height == 0) return true;
    to.stride = to.width;
    to.own = Buffer<uint8_t>(static_cast<size_t>(to.width) * to.height);
    if (!to.own) return false;
    to.pixels = to.own.data();
    for (int y = 0; y < to.height; ++y) {
      const uint8_t* upper = from.pixels + 2 * y * from.stride;
      kernels.HalveRow(upper, upper + from.stride, to.own.data() + y * to.stride, to.width);
    }
  }
  return true;
}

bool Planes::NeedGradients(int level, int first, int last) {
  Level& l = level_[level];
  if (!l.gradients) {
    l.gradients = Buffer<Gradient16>(static_cast<size_t>(l.width) * l.height);
    l.hasGradients = Buffer<uint8_t>::Zeroed(l.height);
    if (!l.gradients || !l.hasGradients) return false;
  }
  first = std::max(first, 0);
  last = std::min(last, l.height);
  for (int y = first; y < last; ++y) {
    if (l.hasGradients[y]) continue;
    Gradient16* out = l.gradients.data() + static_cast<ptrdiff_t>(y) * l.width;
    if (y == 0 || y == l.height - 1 || l.width < 3) {
      std::memset(out, 0, l.width * sizeof(Gradient16));
    } else {
      kernels_->GradientRow(Row(level, y - 1), Row(level, y), Row(level, y + 1), out, l.width);
    }
    l.hasGradients[y] = 1;
  }
  return true;
}

bool Planes::NeedDirections(int level, int first, int last, float contrast) {
  if (!NeedGradients(level, first, last)) return false;
  Level& l = level_[level];
  if (!l.directions) {
    l.directions = Buffer<Direction8>(static_cast<size_t>(l.width) * l.height);
    l.hasDirections = Buffer<uint8_t>::Zeroed(l.height);
    if (!l.directions || !l.hasDirections) return false;
  }
  first = std::max(first, 0);
  last = std::min(last, l.height);
  for (int y = first; y < last; ++y) {
    if (l.hasDirections[y]) continue;
    const ptrdiff_t at = static_cast<ptrdiff_t>(y) * l.width;
    kernels_->DirectionRow(l.gradients.data() + at, contrast, l.directions.data() + at, l.width);
    l.hasDirections[y] = 1;
  }
  return true;
}

}  // namespace quillon::finder
