// Climbing: from a point of the search's grid to the best pose between it and its neighbours. The
// grid is coarse, and half a step beside a match two patches of a few pixels are hardly alike any
// more; so a grid point is not scored as it stands, but where the climb from it ends. Each step
// applies a matrix that depends on the template alone and is made once (the inverse compositional
// algorithm of S. Baker and I. Matthews, "Lucas-Kanade 20 years on: a unifying framework",
// International Journal of Computer Vision 56, 2004).
//
// Why there are two optimisers: a climb runs at every grid point that looks promising, mostly on
// reduced levels, so it must be cheap, and it need only tell which points are worth going on with.
// A fit (fit.h) runs a few times a match at full resolution, so it can afford to make its matrix
// anew at every step, which is what exactness to hundredths of a pixel takes. It samples the
// template between its pixels, though, where lines and scattered pixels of a mask have nothing:
// those end with a climb, which samples the image at the template's own pixels.
#pragma once

#include "ncc/fit_kernels.h"
#include "ncc/patch.h"
#include "ncc/pose.h"
#include "ncc/tool.h"

namespace quillon {

// How far from a grid point its poses lie, to either side, within the image. What is 0 stays as it
// is.
struct CellReach {
  double pixels = 0, degrees = 0, scale = 0;
};

// One level of a template, made ready to climb.
class PoseClimb {
 public:
  // False when memory is short.
  bool Open(const Kernels& kernels, const NccLevel& pattern, const NccMask* mask,
            const CellReach& reach);

  bool IsOpen() const { return kernels_ != nullptr; }

  // Moves a pose of the cell around `point`, both in pixels of the patch's level, to where the
  // image looks most like the template; returns their correlation there, -1 when there is none.
  // Ends where two steps do not lead above `hopeful`, or do not promise to. The patch has its
  // cells. No pose reaches beyond the image.
  double Run(const Patch& patch, const Pose& point, double hopeful, Pose& pose) const;

  // The correlation at a pose, moved into the image; -1 when there is none.
  double Score(const Patch& patch, Pose& pose) const;

 private:
  enum Change { kAlongX, kAlongY, kTurned, kScaled, kChanges, kTerms };
  struct Changes {
    double by[kChanges] = {};
    double promised = 0;  // correlation, if the image changed with the pose as its slopes say
  };
  struct Placed {
    Pose pose;
    double cosine, sine;  // times the scale
  };

  static Placed Put(const Pose& pose);
  bool Place(const NccMask* mask);
  void FillFactors(const NccLevel& pattern, const NccMask* mask);
  void AddFactors(int plane, double (&products)[kTerms][kTerms]);
  void InvertSlopes();
  double Correlate(const Patch& patch, const Placed& placed, Changes& changes) const;
  Placed Step(const Placed& from, const Pose& point, const Changes& changes) const;
  bool PutInside(const Patch& patch, Placed& placed) const;

  float* Factor(int plane, int index) {
    return factors_.data() + (static_cast<ptrdiff_t>(plane) * factorCount_ + index) * stride_;
  }
  const float* Factor(int plane, int index) const {
    return factors_.data() + (static_cast<ptrdiff_t>(plane) * factorCount_ + index) * stride_;
  }

  const float* Ones() const { return points_.data() + 2 * static_cast<ptrdiff_t>(stride_); }

  const Kernels* kernels_ = nullptr;
  CellReach reach_;
  int width_ = 0, height_ = 0, planes_ = 0;
  int count_ = 0, stride_ = 0;  // of pixels that take part
  // The factors that a pixel has: the pattern, and its slopes along the changes that are made.
  int factorCount_ = 0;
  Change changes_[kChanges] = {kAlongX, kAlongY};
  double norm_ = 0;              // of the pattern; 0 when it is flat
  double sums_[kTerms] = {};     // of the factors
  double along_[kChanges] = {};  // the pattern, in a slope
  double weights_[kChanges][kTerms] = {};
  Buffer<float> points_;  // u, then v, then a 1 for each
  Buffer<float> factors_;
};

}  // namespace quillon
