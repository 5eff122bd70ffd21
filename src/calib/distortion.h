// Lens distortion: a cubic from ideal grid positions to measured ones, kept in the image, and the
// pixel map made from it.
#pragma once

#include "quillon/image.h"

namespace quillon {

struct Kernels;

struct GridPitch {
  float xPitch, yPitch;          // of the grid
  float xPixelSize, yPixelSize;  // a step has pitch * 10000 / pixelSize pixels
};

// Fits the cubic to count points (x, y), an odd number, given row by row from the top left of a
// square grid, and writes the parameter file. Rewrites the points relative to the middle one, y up.
// False, and nothing changed, for an even count or none.
bool BuildDistortionModel(GreyImage& image, int32_t* points, int count, const GridPitch& pitch,
                          const char* fileName);

// Takes the parameters of a file. False, and an image without coefficients, when it cannot be
// opened. Coefficients that a short file lacks are 0; the image keeps its values of the parameters
// that are missing.
bool LoadDistortionParameters(GreyImage& image, const char* fileName);

// Makes the pixel map of an image with coefficients, for its present size.
void BuildDistortionMap(GreyImage& image);

// Resamples the image through its map. False when it has none.
bool ApplyDistortionMap(const Kernels& kernels, GreyImage& image);

}  // namespace quillon
