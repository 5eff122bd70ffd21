// Finding blobs the way someone who counts parts wants them.
//
//   BlobFinder finder;
//   for (const FoundBlob& blob : finder.Find(image, {.fillHoles = true})) ...
//
// Labelling leaves out the last column of a region that ends there. Nobody who counts parts wants
// that, so the picture is labelled with one spare column on its right. Tables that overflow without
// a word are noticed here.
#pragma once

#include <climits>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "kit/errors.h"
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
  Region();  // throws OutOfMemory
  operator RLERegion*() const { return handle.get(); }
  std::unique_ptr<RLERegion, void (*)(RLERegion*)> handle;
};

// ---- what to label ------------------------------------------------------------------------------

// The level is the highest grey value that the threshold made black; a constant picture has 0. The
// binary picture is for callers that look at many pictures and keep its memory.
int OtsuLevel(const GreyImage& image, GreyImage& binary);

// 1 where the picture is in the band, with the spare column, which is 0.
void MakeBinary(const GreyImage& image, Band band, GreyImage& binary);

// Sets all that pixels of `value`, which is not 0, enclose to that value.
void FillHoles(RLERegion* region, GreyImage& image, int value);

// ---- the region of interest, points x and y in turn ---------------------------------------------

constexpr int kFarthest = 32767;               // as large as pictures get
constexpr int64_t kLongestBoundary = 1 << 24;  // steps that the library takes

int64_t BoundaryLength(const std::vector<int>& points);

Failure NoPixelInPolygon(int width, int height);

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

// ---- all of it ----------------------------------------------------------------------------------

struct BlobQuery {
  std::optional<Band> band = {};  // none: the pixels above Otsu's level
  bool dark = false;              // without a band: those at or below it
  bool fillHoles = false;
  std::vector<int> polygon = {};  // x and y in turn; empty: the whole picture
  BlobSelection selection = {};
};

struct FoundBlob {
  int number;  // among all blobs, before the selection
  BlobFeature feature;
  int left, top, right, bottom;  // its outermost pixels
  double mean;                   // of its grey values
};

// Searches one picture after the other; one object for each thread.
class BlobFinder {
 public:
  // The selected blobs, in the order of their first pixels. Throws Failure.
  std::vector<FoundBlob> Find(const GreyImage& image, const BlobQuery& query);

  // Of the last search.
  Band UsedBand() const { return band_; }
  size_t FoundInAll() const { return found_; }
  double ShareInPicture() const { return share_; }     // of the region
  const GreyImage& Binary() const { return binary_; }  // what was labelled, with its spare column
  RLERegion* Labelled() const { return region_; }

 private:
  Region region_;
  GreyImage binary_;
  Band band_ = {};
  size_t found_ = 0;
  double share_ = 0;
};

}  // namespace quillon::kit
