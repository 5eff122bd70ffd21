// Exports: edge-based matching.
#include "exports/guards.h"
#include "geomatch/search.h"

namespace quillon {

GeoMatchTool* IxCreateGeoTool() { return ConstructGeoTool(); }

bool IxCreateGeoMatchModel(const GreyImage* image, GeoMatchTool* tool, double high, double low) {
  return HasPixels(image) && tool && BuildGeoModel(BestKernels(), *image, high, low, *tool);
}

double IxFindGeoMatchModel(const GreyImage* image, const GeoMatchTool* tool, double minScore,
                           double greediness, int* position, double highestAngle,
                           double lowestAngle, int angleSearch) {
  if (!HasPixels(image) || !tool || !position) return 0;
  const auto& taught = static_cast<const GeoTaughtTool&>(*tool);
  if (!taught.ready) return 0;
  GeoPosition found = {position[0], position[1]};
  const double angle = FindGeoModel(BestKernels(), *image, taught,
                                    {.minScore = minScore,
                                     .greediness = greediness,
                                     .anyAngle = static_cast<uint8_t>(angleSearch) != 0,
                                     .lowest = lowestAngle,
                                     .highest = highestAngle},
                                    found);
  position[0] = found.x;
  position[1] = found.y;
  return angle;
}

void IxDestroyMatchModel(GeoMatchTool* tool) { DestroyGeoTool(tool); }

}  // namespace quillon
