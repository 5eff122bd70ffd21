// What hosts ask about single blobs and about the region of interest. A number outside
// 0 ... blobCount - 1 names no blob and gives what a blob without pixels would.
#pragma once

#include <algorithm>

#include "blob/region.h"

namespace quillon {

struct Kernels;

// Null when there is no blob of this number.
inline BlobRecord* FindBlob(const RLERegion& region, int n) {
  const bool exists = n >= 0 && n < region.blobCount && region.blobs && region.blobIndex;
  return exists ? &region.blobs[region.blobIndex[n]] : nullptr;
}

// Walks a blob's runs along their chain: calls visit(the run's place in the table).
template <class Visit>
void ForEachRunPlace(const RLERegion& region, const BlobRecord& blob, Visit visit) {
  int i = region.runs ? blob.head : -1;
  for (int left = blob.runCount; left > 0 && i >= 0; --left) {
    const int next = region.runs[i].next;
    visit(i);
    i = next;
  }
}

// The same; calls visit(run).
template <class Visit>
void ForEachRun(const RLERegion& region, const BlobRecord& blob, Visit visit) {
  ForEachRunPlace(region, blob, [&](int i) { visit(region.runs[i]); });
}

struct Bounds {
  int32_t left = 99999, right = 0, top = 99999, bottom = 0;
};
Bounds BoundsOfBlob(const RLERegion& region, int n);

// Red, green, blue.
struct ColourMean {
  double red = 0, green = 0, blue = 0;
};

// Means of the image's pixels, divided by the area of the blob or of the region. Sums are 32 bits
// wide; pixels outside the image add nothing. The means of a blob make it the current one, and the
// grey mean is kept in its record.
double GrayMeanOfBlob(const Kernels& kernels, const GreyImage* image, RLERegion& region, int n);
ColourMean ColourMeanOfBlob(const Kernels& kernels, const ColourImage* image, RLERegion& region,
                            int n);
double GrayMeanOfRegion(const Kernels& kernels, const GreyImage* image, const RLERegion& region);
ColourMean ColourMeanOfRegion(const Kernels& kernels, const ColourImage* image,
                              const RLERegion& region);

}  // namespace quillon
