// A template's edge points: places to a fraction of a pixel, thinned, spread over the template.
#pragma once

#include "finder/level_mask.h"
#include "finder/planes.h"

namespace quillon::finder {

// The points of one level of a template, strongest first, and the level's contrast and radius.
// `mask` is the level's. False when memory is short.
bool FindEdgePoints(Planes& planes, int level, const Model& model, const LevelMask& mask,
                    ModelLevel& made);

}  // namespace quillon::finder
