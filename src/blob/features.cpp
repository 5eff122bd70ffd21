// A blob's rectangle is found from the ends of its runs, row by row from the top, each row from the
// left. The order matters: it decides which of several equal rectangles is found. A blob's chain of
// runs is not in this order where labels merged, but the runs were created in it; so their indices
// are sorted.
#include "blob/features.h"

#include <algorithm>

#include "blob/queries.h"
#include "core/buffer.h"

namespace quillon {
namespace {

// Memory for the blobs with up to `runs` runs, used again from blob to blob.
class RectangleFinder {
 public:
  explicit RectangleFinder(size_t runs)
      : order_(runs), points_(2 * runs), hull_(HullWorkSize(2 * runs)) {}

  explicit operator bool() const { return order_ && points_ && hull_; }

  // False for a blob without runs.
  bool Find(const RLERegion& region, const BlobRecord& blob, MinRectangle& result) {
    const std::span<const Point> points = GatherBlobEdgePoints(region, blob);
    if (points.empty()) return false;
    result = MinRectangleOfHull(ConvexHullOfPolyline(points, hull_.data()));
    return true;
  }

 private:
  std::span<const Point> GatherBlobEdgePoints(const RLERegion& region, const BlobRecord& blob) {
    int32_t* end = order_.begin();
    ForEachRun(region, blob,
               [&](const RunRecord& run) { *end++ = static_cast<int32_t>(&run - region.runs); });
    if (!std::is_sorted(order_.begin(), end)) std::sort(order_.begin(), end);
    Point* point = points_.begin();
    for (const int32_t* i = order_.begin(); i != end; ++i) {
      const RunRecord& run = region.runs[*i];
      *point++ = {run.xStart, run.y};
      *point++ = {run.xEnd, run.y};
    }
    const auto count = static_cast<size_t>(point - points_.begin());
    return {points_.data(), blob.area == 1 ? std::min<size_t>(count, 1) : count};
  }

  Buffer<int32_t> order_;
  Buffer<Point> points_;
  Buffer<Point> hull_;
};

size_t MostRuns(const RLERegion& region, int blobs) {
  int most = 0;
  for (int n = 0; n < blobs; ++n) most = std::max(most, FindBlob(region, n)->runCount);
  return static_cast<size_t>(most);
}

void Describe(const BlobRecord& blob, const MinRectangle& rectangle, BlobFeature& feature) {
  feature.area = blob.area;
  feature.centreX = blob.centreX;
  feature.centreY = blob.centreY;
  feature.rectCentreX = rectangle.centreX;
  feature.rectCentreY = rectangle.centreY;
  feature.height = rectangle.height;
  feature.width = rectangle.width;
  feature.angle = rectangle.angle;
  std::copy(std::begin(rectangle.corners), std::end(rectangle.corners), feature.corners);
  feature.selected = 1;
}

}  // namespace

bool ComputeBlobMinRect(const RLERegion& region, int n, MinRectangle& result) {
  const BlobRecord* blob = FindBlob(region, n);
  if (!blob) return false;
  RectangleFinder finder(static_cast<size_t>(blob->runCount));
  return finder && finder.Find(region, *blob, result);
}

bool ComputeAllBlobFeatures(RLERegion& region) {
  if (region.labelCount == 0 || !region.blobs || !region.blobIndex || !region.features) {
    return false;
  }
  const int count = std::min(region.blobCount, kMaxFeatures);
  RectangleFinder finder(MostRuns(region, count));
  if (!finder) return false;
  for (int n = 0; n < count; ++n) {
    const BlobRecord& blob = *FindBlob(region, n);
    MinRectangle rectangle;
    if (!finder.Find(region, blob, rectangle)) return false;
    Describe(blob, rectangle, region.features[n]);
  }
  region.selectCount = count;
  return true;
}

}  // namespace quillon
