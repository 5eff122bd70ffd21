// Making a candidate better: climbing on a level, fitting to a fraction of a pixel, the score
// itself.
#pragma once

#include "finder/sweep.h"

namespace quillon::finder {

struct RefineTask {
  const FinderKernels& kernels;
  const Model& model;
  Planes& planes;
  Buffer<float>& samples;  // grey: room that grows with need
  Freedom freedom;
  bool anyPolarity;
  int sweptLevel;  // at which the candidates were found
  double least;    // a score that is worth the last, exact steps
  double reached;  // by as many matches as are wanted, at full resolution; 0 while there are fewer
};

// Each moves `candidate` to a better pose, gives it its score at this level, and returns false only
// when memory is short.
//
// Climb tries the neighbouring poses until none is better: it starts up to two pixels of the level
// away. Fit solves for the pose by least squares: it starts within a pixel, and ends within a few
// hundredths.
//
// Where a template kept few pixels on the swept level (IsBarelySwept), fits by grey values look
// around themselves on the next one.
bool ClimbByEdges(const RefineTask& task, int level, Candidate& candidate);
bool FitByEdges(const RefineTask& task, int level, Candidate& candidate);
bool FitByGrey(const RefineTask& task, int level, Candidate& candidate);

// At the smallest size that is looked for, the template has so few pixels on the swept level that a
// fit there may lead away from a part that the sweep saw, or end too far from it for a fine pattern
// on the next level. Where angles are looked for too, the steps beside the best one start as well.
bool IsBarelySwept(const RefineTask& task);

struct Rating {
  double score, visible;
};
// At full resolution. False when memory is short.
bool RateByEdges(const RefineTask& task, const Pose& pose, Rating& rating);
bool RateByGrey(const RefineTask& task, const Pose& pose, Rating& rating);

}  // namespace quillon::finder
