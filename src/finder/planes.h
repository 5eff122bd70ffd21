// A picture as the finder sees it: a pyramid, with gradients and directions where they are asked
// for.
#pragma once

#include "finder/finder.h"

namespace quillon::finder {

class Planes {
 public:
  // Level 0 is `picture`, which stays where it is; each further level halves. Levels without a
  // pixel are not made. False when memory is short.
  bool Open(const FinderKernels& kernels, const Picture& picture, int levels);

  int Width(int level) const { return level_[level].width; }
  int Height(int level) const { return level_[level].height; }
  ptrdiff_t Stride(int level) const { return level_[level].stride; }
  const uint8_t* Row(int level, int y) const {
    return level_[level].pixels + y * level_[level].stride;
  }

  // Makes the gradients of rows [first, last) where they are not there yet, and the directions
  // for this contrast (DirectionRow), which is the same at each call for a level. False when memory
  // is short.
  bool NeedGradients(int level, int first, int last);
  bool NeedDirections(int level, int first, int last, float contrast);

  // All rows one after the other, without gaps; only those that were asked for are filled.
  const Gradient16* Gradients(int level) const { return level_[level].gradients.data(); }
  const Direction8* Directions(int level) const { return level_[level].directions.data(); }

 private:
  struct Level {
    const uint8_t* pixels = nullptr;
    ptrdiff_t stride = 0;
    int width = 0, height = 0;
    Buffer<uint8_t> own;
    Buffer<Gradient16> gradients;
    Buffer<Direction8> directions;
    Buffer<uint8_t> hasGradients, hasDirections;  // per row
  };

  const FinderKernels* kernels_ = nullptr;
  Level level_[kMaxLevels];
};

// A pixel of level 0 in pixels of another level, and back: pixel X of level l covers 2^l pixels.
inline double ToLevel(double x, int level) { return (x + 0.5) / (1 << level) - 0.5; }
inline double FromLevel(double x, int level) { return (x + 0.5) * (1 << level) - 0.5; }

}  // namespace quillon::finder
