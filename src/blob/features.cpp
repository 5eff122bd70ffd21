// A blob's rectangle is found from the ends of its runs, row by row from the top, each row from the
// left. The order matters: it decides which of several equal rectangles is found. A blob's chain of
// runs is not in this order where labels merged, but the runs were created in it; so their places
// in the table are sorted.
#include "blob/features.h"

#include <algorithm>

#include "blob/hull_kernels.h"
#include "blob/queries.h"
#include "core/buffer.h"

namespace quillon {
namespace {

// Memory for the blobs with up to `runs` runs, used again from blob to blob.
class RectangleFinder {
 public:
  RectangleFinder(const Kernels& kernels, size_t runs)
      : kernels_(kernels),
        order_(runs),
        sides_(Buffer<int16_t>::Zeroed(2 * SideSize(runs))),
        bends_(2 * static_cast<size_t>(WordsOfBends(static_cast<int>(runs)))),
        points_(2 * runs),
        hull_(HullWorkSize(2 * runs)) {}

  explicit operator bool() const { return order_ && sides_ && bends_ && points_ && hull_; }

  // False for a blob without runs.
  bool Find(const RLERegion& region, const BlobRecord& blob, MinRectangle& result) {
    const std::span<const int32_t> runs = OrderRuns(region, blob);
    if (runs.empty()) return false;
    const Outline outline = OutlineOf(region, runs);
    const std::span<Point> hull =
        outline.rows > 1 && blob.area > 1
            ? ConvexHullOfOutline(kernels_, outline, hull_.data())
            : ConvexHullOfPolyline(EdgePoints(region, blob, runs), hull_.data());
    result = MinRectangleOfHull(kernels_, hull);
    return true;
  }

 private:
  static size_t SideSize(size_t runs) { return kSideMargin + runs + kSideRoom; }

  std::span<const int32_t> OrderRuns(const RLERegion& region, const BlobRecord& blob) {
    int32_t* end = order_.begin();
    int32_t last = -1;
    bool sorted = true;
    ForEachRunPlace(region, blob, [&](int32_t i) {
      sorted &= i > last;
      *end++ = last = i;
    });
    if (!sorted) std::sort(order_.begin(), end);
    return {order_.begin(), end};
  }

  // No rows, where the blob has too many columns or rows without runs.
  Outline OutlineOf(const RLERegion& region, std::span<const int32_t> runs) {
    const RunRecord& first = region.runs[runs.front()];
    int16_t* const left = sides_.data() + kSideMargin;
    int16_t* const right = left + SideSize(order_.size());
    uint32_t y = static_cast<uint32_t>(first.y) - 1, leaps = 0;
    int32_t row = -1, rowStart = 0, reach = 0;
    for (const int32_t i : runs) {
      const RunRecord& run = region.runs[i];
      const int32_t start = run.xStart - first.xStart, end = first.xStart - run.xEnd;
      // Without branches: no processor foresees where a row has several runs.
      const uint32_t rowsOn = static_cast<uint32_t>(run.y) - y;
      leaps |= rowsOn & ~1u;
      row += rowsOn != 0;
      rowStart = rowsOn != 0 ? start : rowStart;
      y += rowsOn;
      left[row] = static_cast<int16_t>(rowStart);
      right[row] = static_cast<int16_t>(end);
      reach |= (start ^ start >> 31) | (end ^ end >> 31);
    }
    const bool fits = leaps == 0 && reach <= kMostColumns;
    return {{first.xStart, first.y}, fits ? row + 1 : 0, left, right, bends_.data()};
  }

  std::span<const Point> EdgePoints(const RLERegion& region, const BlobRecord& blob,
                                    std::span<const int32_t> runs) {
    Point* point = points_.begin();
    for (const int32_t i : runs) {
      const RunRecord& run = region.runs[i];
      *point++ = {run.xStart, run.y};
      *point++ = {run.xEnd, run.y};
    }
    const auto count = static_cast<size_t>(point - points_.begin());
    return {points_.data(), blob.area == 1 ? std::min<size_t>(count, 1) : count};
  }

  const Kernels& kernels_;
  Buffer<int32_t> order_;
  Buffer<int16_t> sides_;
  Buffer<uint64_t> bends_;
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

bool ComputeBlobMinRect(const Kernels& kernels, const RLERegion& region, int n,
                        MinRectangle& result) {
  const BlobRecord* blob = FindBlob(region, n);
  if (!blob) return false;
  RectangleFinder finder(kernels, static_cast<size_t>(blob->runCount));
  return finder && finder.Find(region, *blob, result);
}

bool ComputeAllBlobFeatures(const Kernels& kernels, RLERegion& region) {
  if (region.labelCount == 0 || !region.blobs || !region.blobIndex || !region.features) {
    return false;
  }
  const int count = std::min(region.blobCount, kMaxFeatures);
  RectangleFinder finder(kernels, MostRuns(region, count));
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
