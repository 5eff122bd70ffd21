// The stages of a search, in the order they run.
#pragma once

#include <cmath>

#include "ncc/candidates.h"
#include "ncc/climb.h"
#include "ncc/limits.h"
#include "ncc/patch.h"
#include "ncc/pose.h"
#include "ncc/tool.h"

namespace quillon {

// The grid of angles and scales. A level's angular step moves the template's corner by one of its
// pixels, its scale step an edge by half of one; the next finer level halves both. Grid points are
// whole multiples of the steps of level 0, and a level's are two of its steps apart.
struct Lattice {
  double angleStep = 0, scaleStep = 0;  // of level 0

  double AngleStep(int level) const { return angleStep * (1 << level); }
  double ScaleStep(int level) const { return scaleStep * (1 << level); }
  double Angle(int index) const { return index * angleStep; }
  double Scale(int index) const { return 1 + index * scaleStep; }
  // From a grid point to a pose, in steps.
  double Distance(int scale, int angle, const Pose& pose) const {
    return std::abs(Scale(scale) - pose.scale) / scaleStep +
           std::abs(Angle(angle) - pose.degrees) / angleStep;
  }
};

struct Search {
  const Kernels& kernels;
  const NccTool& tool;
  const SearchImage& image;
  const SearchLimits& limits;
  int start = 0;  // the level of the sweep
  Lattice lattice = {};

  const NccMask* Mask(int level) const { return tool.maskEnabled ? &tool.masks[level] : nullptr; }
  // Whether a level's template has enough pixels that take part, not all alike, to be looked for.
  bool Counts(int level) const;
  // Whether an angle, or the grid point, lies within the limits, give or take a step.
  bool AllowsDegrees(double degrees, double step) const;
  bool AllowsAngle(int index, double step) const {
    return AllowsDegrees(lattice.Angle(index), step);
  }
  bool AllowsScale(int index, double step) const;
  // The poses that a grid point of a level stands for: a pixel and a step to either side.
  CellReach Reach(int level) const;
};

// Moves a candidate's pose to the next finer level: blocks that a reduction drops at the right and
// bottom edge move the template's centre.
void CarryToLevel(const Search& search, int level, Pose& pose);

// The sweep: the best candidates of the level where the search starts, in decreasing order of
// score. False when memory is short.
bool SweepCoarsestLevel(const Search& search, int capacity, Buffer<Candidate>& candidates,
                        int& count);

// Each candidate at the next finer level: the best of the neighbouring angles, scales and
// positions; it is given up where that scores more than 0.1 below what it had. Where the level does
// not count, candidates are only carried there. False when memory is short.
bool RefineAtLevel(const Search& search, int level, Candidate* candidates, int count);

// A match at full resolution.
struct Match {
  Pose pose;
  double score;
  int rank;  // among the candidates
};

// Measures the candidates of level 1 (or 0, where the search starts there) at full resolution.
// Those with a score of -1 are skipped. False when memory is short.
bool FitAtFullResolution(const Search& search, const Candidate* candidates, int count,
                         Match* matches);

}  // namespace quillon
