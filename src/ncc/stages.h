// The stages of a search, in the order they run.
#pragma once

#include "ncc/candidates.h"
#include "ncc/patch.h"
#include "ncc/pose.h"
#include "ncc/search.h"
#include "ncc/tool.h"

namespace quillon {

// The grid of angles and scales. A level's angular step moves the template's corner by one of its
// pixels, its scale step an edge by half of one; the next finer level halves both. Grid points are
// whole multiples of a third of the angular step and of the scale step of level 0.
struct Lattice {
  double angleStep = 0, scaleStep = 0;  // of level 0

  static constexpr int kThirds = 3;  // points of an angular step
  double AngleStep(int level) const { return angleStep * (1 << level); }
  double ScaleStep(int level) const { return scaleStep * (1 << level); }
  double Angle(int index) const { return index * (angleStep / kThirds); }
  double Scale(int index) const { return 1 + index * scaleStep; }
};

struct Search {
  const Kernels& kernels;
  const NccTool& tool;
  const SearchImage& image;
  const SearchLimits& limits;
  Lattice lattice = {};

  const NccMask* Mask(int level) const { return tool.maskEnabled ? &tool.masks[level] : nullptr; }
  // Whether the grid point lies within the limits, give or take a step.
  bool AllowsAngle(int index, double step) const;
  bool AllowsScale(int index, double step) const;
};

// Moves a candidate's centre to the next finer level: blocks that a reduction drops at the right
// and bottom edge move the template's centre.
void CarryToLevel(const Search& search, int level, Candidate& candidate);

// The sweep: the best candidates of the current level, in decreasing order of score. False when
// memory is short.
bool SweepCoarsestLevel(const Search& search, int capacity, Buffer<Candidate>& candidates,
                        int& count);

// Each candidate at the next finer level: the best of the neighbouring angles, scales and positions
// that scores more than 0.1 below what it had. False when memory is short.
bool RefineAtLevel(const Search& search, int level, Candidate* candidates, int count);

// A match at full resolution.
struct Match {
  Pose pose;
  double score;
  int rank;  // among the candidates
};

// Measures the candidates of level 1 (or 0, where that is the current level) at full resolution.
// Those with a score of -1 are skipped. False when memory is short.
bool FitAtFullResolution(const Search& search, const Candidate* candidates, int count,
                         Match* matches);

}  // namespace quillon
