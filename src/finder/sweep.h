// The search of a coarse level: every angle, every scale, every place.
#pragma once

#include "finder/geometry.h"
#include "finder/planes.h"

namespace quillon::finder {

struct Candidate {
  Pose pose;
  float score = 0;  // on the level that it was last seen on, 0 ... 1
};

// The poses of a sweep. Neighbouring ones move the template's farthest point by about a pixel of
// the level.
struct SweepGrid {
  int angles = 1, scales = 1;
  double angleLow = 0, angleStep = 0, scaleLow = 1, scaleFactor = 1;

  SweepGrid(const Freedom& freedom, double radius);
  Pose At(int angle, int scale) const;
};

// How many numbers a sweep by edges adds.
double EdgeSums(const Model& model, const Planes& planes, const Freedom& freedom, int level);

struct SweepTask {
  const FinderKernels& kernels;
  const Model& model;
  Planes& planes;
  Freedom freedom;
  int level;
  int left, top, right, bottom;  // of centres, in pixels of the level
  bool anyPolarity;
  float leastScore;
};

// The poses that score higher than their neighbours in place, angle and scale, best first, at most
// `most`. False when memory is short.
bool Sweep(const SweepTask& task, size_t most, List<Candidate>& candidates);

}  // namespace quillon::finder
