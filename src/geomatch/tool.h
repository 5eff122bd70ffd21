// The edge template: what it holds, and teaching it.
#pragma once

#include "core/buffer.h"
#include "pyramid/pyramid_kernels.h"
#include "quillon/image.h"
#include "quillon/records.h"

namespace quillon {

struct Kernels;

// A level with the memory behind it.
struct GeoOwnedLevel : GeoModelLevel {
  Buffer<int32_t> components;  // x, y, gradientX and gradientY, one after the other
  Buffer<double> magnitudes;

  struct Components {
    int32_t *x, *y, *gradientX, *gradientY;
    double* inverseMagnitude;
  };

  // Room for `points`, which become the count; 0 points and false when the memory is not there.
  bool Allocate(int points);
  Components Writable();
};

// Hosts see its base alone.
struct GeoTaughtTool : GeoMatchTool {
  GeoOwnedLevel levels[kMaxPyramidLevel + 1];
  bool ready = false;
  int topLevel = 0;  // the coarsest in use
};

GeoMatchTool* ConstructGeoTool();  // null when the memory is not there
void DestroyGeoTool(GeoMatchTool* tool);

// Teaches the edge points of the image at every level. False, with the tool not ready, when the
// memory is not there.
bool BuildGeoModel(const Kernels& kernels, const GreyImage& image, double high, double low,
                   GeoMatchTool& tool);

}  // namespace quillon
