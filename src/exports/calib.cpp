// Exports: flat field and lens distortion.
#include "calib/distortion.h"
#include "calib/flat_field.h"
#include "exports/guards.h"

namespace quillon {

uint8_t IxFFCParaBuild(GreyImage* image, int target, int xStart, int xEnd, int yStart, int yEnd,
                       const char* fileName) {
  return image && BuildFlatFieldTable(*image, target, {xStart, xEnd, yStart, yEnd}, fileName);
}

uint8_t IxFFCParaLoad(GreyImage* image, int* region, const char* fileName) {
  if (!image) return 0;
  FlatFieldRegion loaded = {};
  if (region) loaded = {region[0], region[1], region[2], region[3]};
  if (!LoadFlatFieldTable(*image, loaded, fileName)) return 0;
  if (region) {
    region[0] = loaded.xStart;
    region[1] = loaded.xEnd;
    region[2] = loaded.yStart;
    region[3] = loaded.yEnd;
  }
  return 1;
}

void IxFFCCalibrate(GreyImage* image, int xStart, int xEnd, int yStart, int yEnd) {
  if (HasPixels(image)) ApplyFlatField(BestKernels(), *image, {xStart, xEnd, yStart, yEnd});
}

uint8_t IxDistortionParaBuild(GreyImage* image, int* points, int count, float xPitch, float yPitch,
                              float xPixelSize, float yPixelSize, const char* fileName) {
  return image && BuildDistortionModel(*image, points, count,
                                       {xPitch, yPitch, xPixelSize, yPixelSize}, fileName);
}

uint8_t IxDistortionParaLoad(GreyImage* image, const char* fileName) {
  return image && LoadDistortionParameters(*image, fileName);
}

void IxDistortionPreCalculate(GreyImage* image) {
  if (image) BuildDistortionMap(*image);
}

uint8_t IxDistortionCalibrate(GreyImage* image) {
  return HasPixels(image) && ApplyDistortionMap(BestKernels(), *image);
}

}  // namespace quillon
