// Fitting a pose: the template, sampled where the pose puts it, is moved, turned and scaled until
// its correlation with the image stops growing (Gauss-Newton with a free gain and offset, after B.
// D. Lucas and T. Kanade, "An iterative image registration technique", IJCAI 1981).
#pragma once

#include "ncc/patch.h"
#include "ncc/pose.h"
#include "ncc/tool.h"

namespace quillon {

// What may change, and between which bounds.
struct FitFreedom {
  bool turn = false, scale = false;
  double degreesMin = 0, degreesMax = 0;
  double scaleMin = 1, scaleMax = 1;
};

// Improves a pose of `pattern`, given in pixels of its level, on a patch of the same level. Returns
// its correlation, over the image's pixels whose source lies between pixels of the template that
// take part; -1 when there are too few or they are flat.
double FitPose(const NccLevel& pattern, const NccMask* mask, const Patch& patch,
               const FitFreedom& freedom, Pose& pose);

}  // namespace quillon
