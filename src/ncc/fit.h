// Fitting a pose: the template, sampled where the pose puts it, is moved, turned and scaled until
// its correlation with the image stops growing (Gauss-Newton with a free gain and offset, after B.
// D. Lucas and T. Kanade, "An iterative image registration technique", IJCAI 1981). climb.h has the
// other optimiser of a search, and says why there are two.
#pragma once

#include "ncc/fit_kernels.h"
#include "ncc/patch.h"
#include "ncc/pose.h"
#include "ncc/tool.h"

namespace quillon {

// What may change, and between which bounds.
struct FitFreedom {
  bool turn = false, scale = false;
  bool moveOnly = false;  // a template that is neither turned nor scaled
  double degreesMin = 0, degreesMax = 0;
  double scaleMin = 1, scaleMax = 1;
};

// One level of a template, made ready for fits.
class PoseFit {
 public:
  // False when memory is short.
  bool Open(const Kernels& kernels, const NccLevel& pattern, const NccMask* mask,
            const FitFreedom& freedom);
  bool IsOpen() const { return kernels_ != nullptr; }

  // Whether the cells of four neighbouring pixels, between which the template is sampled, make up
  // for most of the pixels that take part: not so of lines and of scattered pixels.
  bool CoversTemplate() const { return coversTemplate_; }

  // Improves a pose, given in pixels of the level, on a patch of the same level, and keeps it
  // inside the image. `score` becomes its correlation, over the image's pixels whose source lies
  // between pixels of the template that take part; -1 when there are too few or they are flat, or
  // the template is larger than the image. False when memory is short.
  bool Run(const Patch& patch, Pose& pose, double& score);

 private:
  // Sums of products of terms, and what follows from them.
  struct Moments {
    double sums[kFitTerms + 1][kFitTerms + 1];
  };
  bool PrepareWeights(const NccMask* mask);
  bool MoveInto(const Patch& patch, Pose& pose) const;
  bool PrepareCells(const Kernels& kernels, const NccLevel& pattern);
  bool PrepareSmooth(const NccLevel& pattern);
  bool Reserve(int width);

  Moments Measure(const Patch& patch, const Pose& pose);
  void SampleMoved(int plane, const FitLine& line, int count);
  void AddStretch(const FitCells& cells, int plane, const uint8_t* pixels, const FitLine& line,
                  int count, Moments& moments);
  void Flush(Moments& moments);
  double Score(const Moments& moments) const;
  bool Solve(const Moments& moments, double* solution) const;
  double Step(const Patch& patch, const Moments& moments, double longest, Pose& pose);
  void Move(FitTerm term, double change, double low, double high, double& value);

  const Kernels* kernels_ = nullptr;
  int width_ = 0, height_ = 0, planes_ = 0;
  FitFreedom freedom_;
  bool coversTemplate_ = false;
  Buffer<float> weights_;  // of cells, where there is a mask
  Buffer<uint32_t> cells_;
  // Instead of cells, where a fit only moves. All pixels have the same fraction then: linear
  // interpolation, which blurs the more the nearer that is to a half, would pull every match to
  // whole pixels; so it is cubic.
  Buffer<float> smooth_;
  int smoothStride_ = 0;

  bool active_[kFitTerms] = {};
  FitSums sums_ = {};
  int pixelsAdded_ = 0;

  int room_ = 0;  // of rows
  Buffer<float> samples_;
  Buffer<uint32_t> scratch_;
  FitSamples row_ = {};
  int weighedAlike_ = -1;          // so many pixels have a weight of 1, where there is no mask
  float* filteredValues_[4] = {};  // rows of `smooth_`, in a ring
  float* filteredSlopes_[4] = {};
  int filteredRows_[4] = {};
};

}  // namespace quillon
