// Records that cross the boundary, and the opaque tools that the library owns.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace quillon {

struct RLERegion;     // a region of interest and the blobs found in it
struct NccTool;       // a taught grey or colour template
struct GeoMatchTool;  // a taught edge template; its first field may be read

// One blob, as IxGetBlobList hands it out: 80 bytes, padding included.
struct alignas(8) BlobFeature {
  int32_t area;             // pixels
  double centreX, centreY;  // mean column and row
  // The rectangle of least area around the blob's pixel centres.
  float rectCentreX, rectCentreY;
  float height;      // length of the first side, the one whose direction gives the angle
  float width;       // length of the second side
  float angle;       // of the first side, degrees
  float corners[8];  // four points x, y
  uint8_t selected;  // 1 while the blob is in the current selection
  uint8_t reserved[3];
};
static_assert(sizeof(BlobFeature) == 80);
static_assert(offsetof(BlobFeature, centreX) == 8);
static_assert(offsetof(BlobFeature, rectCentreX) == 24);
static_assert(offsetof(BlobFeature, corners) == 44);
static_assert(offsetof(BlobFeature, selected) == 76);

// One match of a grey or colour template: 48 bytes.
struct alignas(8) NccResult {
  int32_t matchWidth, matchHeight;  // template size times scale, truncated
  double x, y;                      // centre of the match, pixels
  double angle;                     // degrees; positive turns clockwise as displayed
  double scale;
  double score;  // -1 to 1
};
static_assert(sizeof(NccResult) == 48);
static_assert(offsetof(NccResult, x) == 8);

// The edge points of one level of an edge template, in raster order.
struct GeoModelLevel {
  int32_t count = 0;
  const int32_t *x = nullptr, *y = nullptr;  // relative to the reference point
  const int32_t *gradientX = nullptr, *gradientY = nullptr;
  const double* inverseMagnitude = nullptr;  // 1 / sqrt(gradientX^2 + gradientY^2)
  int32_t width = 0, height = 0;
  int32_t referenceX = 0, referenceY = 0;  // width / 2, height / 2
  double radius = 0;                       // from the reference point to the farthest point
};

// Made by IxCreateGeoTool only: more follows behind the one field that hosts may read.
struct GeoMatchTool {
  const GeoModelLevel* model;  // the full resolution; count 0 until taught
};

}  // namespace quillon
