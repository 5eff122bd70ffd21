#include "blob/queries.h"

#include "core/image_access.h"

namespace quillon {
namespace {

// Sums of the bytes of pixels, channel by channel, as 32-bit numbers that wrap.
template <class Pixel>
class PixelSums {
 public:
  static constexpr int kChannels = static_cast<int>(sizeof(Pixel));

  explicit PixelSums(const CImage<Pixel>& image) : image_(image) {}

  void Add(const RunRecord& run) {
    if (run.y < 0 || run.y >= image_.height) return;
    const int end = std::min(run.xEnd, image_.width - 1) + 1;
    for (int x = std::max(run.xStart, 0); x < end; ++x) {
      const uint8_t* pixel = image_.rows[run.y] + kChannels * x;
      for (int c = 0; c < kChannels; ++c) sums_[c] += pixel[c];
    }
  }

  double Mean(int channel, int32_t area) const {
    return static_cast<double>(sums_[channel]) / static_cast<double>(area);
  }
  ColourMean Means(int32_t area) const { return {Mean(2, area), Mean(1, area), Mean(0, area)}; }

 private:
  const CImage<Pixel>& image_;
  uint32_t sums_[kChannels] = {};
};

template <class Pixel>
PixelSums<Pixel> SumBlob(const CImage<Pixel>& image, const RLERegion& region,
                         const BlobRecord& blob) {
  PixelSums<Pixel> sums(image);
  ForEachRun(region, blob, [&](const RunRecord& run) { sums.Add(run); });
  return sums;
}

template <class Pixel>
PixelSums<Pixel> SumRegion(const CImage<Pixel>& image, const RLERegion& region) {
  PixelSums<Pixel> sums(image);
  for (int i = 0; i < region.roiRunCount; ++i) sums.Add(region.roiRuns[i]);
  return sums;
}

BlobRecord* MakeCurrent(RLERegion& region, int n) {
  BlobRecord* blob = FindBlob(region, n);
  if (blob) region.currentBlob = region.blobIndex[n];
  return blob;
}

}  // namespace

Bounds BoundsOfBlob(const RLERegion& region, int n) {
  Bounds bounds;
  const BlobRecord* blob = FindBlob(region, n);
  if (!blob) return bounds;
  ForEachRun(region, *blob, [&](const RunRecord& run) {
    bounds.left = std::min(bounds.left, run.xStart);
    bounds.right = std::max(bounds.right, run.xEnd);
    bounds.top = std::min(bounds.top, run.y);
    bounds.bottom = std::max(bounds.bottom, run.y);
  });
  return bounds;
}

double GrayMeanOfBlob(const GreyImage* image, RLERegion& region, int n) {
  BlobRecord* blob = MakeCurrent(region, n);
  if (!blob || !HasPixels(image)) return 0;
  blob->grayMean = SumBlob(*image, region, *blob).Mean(0, blob->area);
  return blob->grayMean;
}

ColourMean ColourMeanOfBlob(const ColourImage* image, RLERegion& region, int n) {
  const BlobRecord* blob = MakeCurrent(region, n);
  if (!blob || !HasPixels(image)) return {};
  return SumBlob(*image, region, *blob).Means(blob->area);
}

double GrayMeanOfRegion(const GreyImage* image, const RLERegion& region) {
  if (!HasPixels(image) || region.roiRunCount == 0) return 0;
  return SumRegion(*image, region).Mean(0, region.roiArea);
}

ColourMean ColourMeanOfRegion(const ColourImage* image, const RLERegion& region) {
  if (!HasPixels(image) || region.roiRunCount == 0) return {};
  return SumRegion(*image, region).Means(region.roiArea);
}

}  // namespace quillon
