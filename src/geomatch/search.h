// Finding a taught edge template, from the coarsest level down.
#pragma once

#include "geomatch/score.h"
#include "geomatch/tool.h"

namespace quillon {

struct GeoQuery {
  double minScore, greediness;
  bool anyAngle = false;  // search the angles from lowest to highest, in degrees
  double lowest = 0, highest = 0;
};

// The angle found, 0 without a search for it. `position` is that of the template's reference point;
// it stays as it was where nothing scores. Short of memory: 0, and the position stays.
double FindGeoModel(const Kernels& kernels, const GreyImage& image, const GeoTaughtTool& tool,
                    const GeoQuery& query, GeoPosition& position);

}  // namespace quillon
