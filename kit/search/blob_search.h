// Finding blobs the way someone who counts parts wants them, for `quillon blobs` and for recipes.
//
// Labelling leaves out the last column of a region that ends there. Nobody who counts parts wants
// that, so the picture is labelled with one spare column on its right. Tables that overflow without
// a word are noticed here.
#pragma once

#include <climits>
#include <cstdint>
#include <memory>
#include <vector>

#include "quillon/quillon.h"

namespace quillon::kit {

struct Bounds {
  int min = INT_MIN, max = INT_MAX;
  bool AreGiven() const { return min != INT_MIN || max != INT_MAX; }
};

// Grey values low ... high.
struct Band {
  int low, high;
};

struct Region {
  Region();  // throws Failure when there is no memory
  operator RLERegion*() const { return handle.get(); }
  std::unique_ptr<RLERegion, void (*)(RLERegion*)> handle;
};

// ---- what to label ------------------------------------------------------------------------------

// The level is the highest grey value that the threshold made black; a constant picture has 0.
int OtsuLevel(const GreyImage& image);

// 1 where the picture is in the band, with the spare column, which is 0.
void MakeBinary(const GreyImage& image, Band band, GreyImage& binary);

// Sets all that pixels of `value`, which is not 0, enclose to that value.
void FillHoles(RLERegion* region, GreyImage& image, int value);

// ---- the region of interest, points x and y in turn ---------------------------------------------

constexpr int kFarthest = 32767;               // as large as pictures get
constexpr int64_t kLongestBoundary = 1 << 24;  // steps that the library takes

int64_t BoundaryLength(const std::vector<int>& points);

// Only then does the boundary belong to the polygon.
void TurnClockwise(std::vector<int>& points);

// The whole picture, spare column included.
std::vector<int> WholePicture(const GreyImage& image);

// ---- labelling and selecting --------------------------------------------------------------------

// Labels the ones, and returns how much of the region lies in the picture. Throws Failure when
// there are more blobs than can be labelled and measured.
double LabelAll(RLERegion* region, const GreyImage& image, const GreyImage& binary);

struct BlobSelection {
  Bounds area, width, height, centreX, centreY;
};
void SelectBlobs(const BlobSelection& selection, RLERegion* region);

std::vector<BlobFeature> SelectedBlobs(RLERegion* region);

// Blob numbers of the selected records.
std::vector<int> NumbersOf(const std::vector<BlobFeature>& selected,
                           const std::vector<BlobFeature>& all);

}  // namespace quillon::kit
