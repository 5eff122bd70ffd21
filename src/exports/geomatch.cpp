// Exports: edge-based matching.
#include "exports/guards.h"
#include "geomatch/tool.h"

namespace quillon {

GeoMatchTool* IxCreateGeoTool() { return ConstructGeoTool(); }

bool IxCreateGeoMatchModel(const GreyImage* image, GeoMatchTool* tool, double high, double low) {
  return HasPixels(image) && tool && BuildGeoModel(BestKernels(), *image, high, low, *tool);
}

void IxDestroyMatchModel(GeoMatchTool* tool) { DestroyGeoTool(tool); }

}  // namespace quillon
