// What a scan reads of the search image: the gradients of a level, or of the part that matters.
#pragma once

#include "core/buffer.h"
#include "geomatch/geomatch_kernels.h"
#include "geomatch/level_pixels.h"

namespace quillon {

class SearchPlanes {
 public:
  // Gradients of level `level` around the positions of `window`, `margin` pixels to each side.
  // Where that leaves the level there is kOutside, with unit vectors and inverse magnitudes of 0,
  // so that points outside of it add nothing to a score. Inverse magnitudes are made on request.
  // False when the memory is not there.
  bool ComputeSearchGradients(const Kernels& kernels, const GreyImage& image, int level,
                              const PixelBox& window, int margin, bool withInverses);

  // Whether scores of all these positions can be had, inverse magnitudes included.
  bool Covers(int level, const PixelBox& window) const {
    return inverses_ && level == level_ && window.left >= window_.left &&
           window.top >= window_.top && window.right <= window_.right &&
           window.bottom <= window_.bottom;
  }
  // The positions at which all of a turned model lies within the level.
  PixelBox Inner(const TurnedModel& model) const {
    return {model.reachX, model.reachY, width_ - 1 - model.reachX, height_ - 1 - model.reachY};
  }
  int Stride() const { return stride_; }
  // Rows from a position on; a few words more than the margin may be read to the right.
  const PackedVector* Gradients(int x, int y) const { return gradients_.data() + Offset(x, y); }
  const PackedVector* Units(int x, int y) const { return units_.data() + Offset(x, y); }
  // Null when they were not asked for.
  const double* Inverses(int x, int y) const {
    return inverses_ ? inverses_.data() + Offset(x, y) : nullptr;
  }

 private:
  ptrdiff_t Offset(int x, int y) const {
    return static_cast<ptrdiff_t>(y - top_) * stride_ + (x - left_);
  }

  int level_ = -1;
  int width_ = 0, height_ = 0;  // of the level
  PixelBox window_ = {};
  int left_ = 0, top_ = 0, stride_ = 0;  // of the planes
  Buffer<PackedVector> gradients_, units_;
  Buffer<double> inverses_;
};

}  // namespace quillon
