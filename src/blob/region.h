// The region object: a region of interest as horizontal runs, and everything that the last
// labelling found in it. Its tables have fixed capacities; whatever fills them stops at the limit.
#pragma once

#include "quillon/image.h"
#include "quillon/records.h"

namespace quillon {

constexpr int kMaxRuns = 300'000;     // of a region of interest, and of all its blobs together
constexpr int kMaxLabels = 50'000;    // raw labels, those merged away included
constexpr int kMaxFeatures = 20'000;  // feature records; blobs beyond have none

// Pixels xStart ... xEnd of row y.
struct RunRecord {
  int32_t blob;  // blob runs only: a raw label while labelling, then the blob's number
  int32_t xStart, xEnd, y;
  int32_t next;  // blob runs only: index of the blob's next run, or -1
};
static_assert(sizeof(RunRecord) == 20);

// One raw label. Its runs are a chain from head to tail; merging two labels splices their chains,
// so a chain is not sorted by row.
struct alignas(8) BlobRecord {
  int32_t label;  // its own raw label; -1 once merged away; the blob's number after labelling
  int32_t runCount;
  int32_t area;
  double centreX, centreY;
  double grayMean;                   // 0 until asked for
  int32_t left, right, top, bottom;  // of the head run alone: bounds are computed on demand
  int32_t head, tail;
  int32_t parent;  // the raw label that it was merged into, or -1
};
static_assert(sizeof(BlobRecord) == 72);
static_assert(offsetof(BlobRecord, centreX) == 16);
static_assert(offsetof(BlobRecord, left) == 40);
static_assert(offsetof(BlobRecord, parent) == 64);

// Thirteen words in the 32-bit build. The tables are blocks of the C heap. The library makes all of
// them; a host that reaches into the object may have taken one away.
struct RLERegion {
  BlobRecord* blobs;      // kMaxLabels, by raw label
  RunRecord* runs;        // kMaxRuns, in the order of their creation
  BlobFeature* features;  // kMaxFeatures, by blob number
  int32_t* blobIndex;     // kMaxLabels: the raw label of each blob number
  int32_t currentBlob;    // raw label of the blob whose mean was asked for last
  int32_t labelCount, blobCount, selectCount;
  RunRecord* roiRuns;  // kMaxRuns, by row, then column
  int32_t roiRunCount;
  int32_t roiArea;               // pixels of roiRuns, in 32 bits
  const HBITMAP* assignedImage;  // the handle field of the image to display, read when displayed
  ColourImage* displayImage;     // owned
};
static_assert(sizeof(void*) != 4 || sizeof(RLERegion) == 13 * 4);
static_assert(sizeof(void*) != 4 || offsetof(RLERegion, assignedImage) == 11 * 4);

// A region without runs, all tables zero. Null when there is no memory for it.
RLERegion* CreateRegion();
void DestroyRegion(RLERegion* region);

// Remembers the image for display and makes a display image of its size, replacing an earlier one.
void AssignImageToRegion(RLERegion& region, const GreyImage& image);

}  // namespace quillon
