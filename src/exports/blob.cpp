// Exports: regions of interest, blobs, their features and selection.
#include "blob/features.h"
#include "blob/labelling.h"
#include "blob/polygon.h"
#include "blob/queries.h"
#include "blob/selection.h"
#include "exports/guards.h"
#include "platform/region_display.h"

namespace quillon {
namespace {

void Write(const ColourMean& mean, double* result) {
  if (!result) return;
  result[0] = mean.red;
  result[1] = mean.green;
  result[2] = mean.blue;
}

}  // namespace

RLERegion* CreateRLERegion() { return CreateRegion(); }

void DestroyRLERegion(RLERegion* region) { DestroyRegion(region); }

void IxPointToRegion(RLERegion* region, const int* points, int count) {
  if (region && points && count > 0) BuildRegionOfInterest(*region, points, count);
}

bool IxImgAssignToRegion(RLERegion* region, const GreyImage* image) {
  if (!region || !image) return false;
  AssignImageToRegion(*region, *image);
  return true;
}

HBITMAP IxGetRegDisplay(RLERegion* region) {
  if (!region || !region->assignedImage || !HasPixels(region->displayImage)) return nullptr;
  DrawRegionDisplay(*region);
  return region->displayImage->bitmap;
}

void IxGrayBlobLabel(const GreyImage* image, RLERegion* region, int low, int high) {
  if (HasPixels(image) && region) LabelGrayBlobs(BestKernels(), *region, *image, low, high);
}

bool IxBinaryFillUp(GreyImage* image, RLERegion* region, int value) {
  if (!HasPixels(image) || !region) return false;
  return FillUpHoles(BestKernels(), *region, *image, static_cast<uint8_t>(value));
}

int IxGetBlobCount(const RLERegion* region) { return region ? region->blobCount : 0; }

int IxGetnBlobArea(const RLERegion* region, int n) {
  const BlobRecord* blob = region ? FindBlob(*region, n) : nullptr;
  return blob ? blob->area : 0;
}

void IxGetnBlobCenter(const RLERegion* region, int n, float* result) {
  if (!result) return;
  const BlobRecord* blob = region ? FindBlob(*region, n) : nullptr;
  result[0] = blob ? static_cast<float>(blob->centreX) : 0;
  result[1] = blob ? static_cast<float>(blob->centreY) : 0;
}

void IxGetnBlobBound(const RLERegion* region, int n, int* result) {
  if (!result) return;
  const Bounds bounds = region ? BoundsOfBlob(*region, n) : Bounds();
  result[0] = bounds.left;
  result[1] = bounds.right;
  result[2] = bounds.top;
  result[3] = bounds.bottom;
}

bool IxGetBlobMinRect(const RLERegion* region, int n, float* result) {
  MinRectangle rectangle;
  if (!region || !result || !ComputeBlobMinRect(BestKernels(), *region, n, rectangle)) return false;
  memcpy(result, &rectangle, sizeof rectangle);
  return true;
}

double IxGetnBlobGrayMean(const GreyImage* image, RLERegion* region, int n) {
  return region ? GrayMeanOfBlob(BestKernels(), image, *region, n) : 0;
}

void IxGetnBlobColorMean(const ColourImage* image, RLERegion* region, int n, double* result) {
  Write(region ? ColourMeanOfBlob(BestKernels(), image, *region, n) : ColourMean(), result);
}

double IxGetnRegionGrayMean(const GreyImage* image, const RLERegion* region) {
  return region ? GrayMeanOfRegion(BestKernels(), image, *region) : 0;
}

void IxGetnRegionColorMean(const ColourImage* image, const RLERegion* region, double* result) {
  Write(region ? ColourMeanOfRegion(BestKernels(), image, *region) : ColourMean(), result);
}

bool IxComputeAllBlobFeature(RLERegion* region) {
  return region && ComputeAllBlobFeatures(BestKernels(), *region);
}

bool IxSelectBlobArea(RLERegion* region, int maxArea, int minArea) {
  return region && SelectBlobArea(*region, minArea, maxArea);
}

bool IxSelectBlobWidth(RLERegion* region, int maxWidth, int minWidth) {
  return region && SelectBlobWidth(*region, minWidth, maxWidth);
}

bool IxSelectBlobHeight(RLERegion* region, int maxHeight, int minHeight) {
  return region && SelectBlobHeight(*region, minHeight, maxHeight);
}

bool IxLocateBlobCenter(RLERegion* region, int xMin, int xMax, int yMin, int yMax) {
  return region && SelectBlobCentre(*region, xMin, xMax, yMin, yMax);
}

bool IxReSelectBlob(RLERegion* region) { return region && ReselectBlobs(*region); }

int IxGetSelectBlobCount(const RLERegion* region) { return region ? region->selectCount : 0; }

bool IxGetBlobList(const RLERegion* region, BlobFeature* result) {
  return region && result && CopySelectedBlobs(*region, result);
}

}  // namespace quillon
