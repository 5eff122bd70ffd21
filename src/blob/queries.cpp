#include "blob/queries.h"

#include "blob/runs_kernels.h"
#include "core/image_access.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

// Sums of the bytes of pixels, channel by channel, as 32-bit numbers that wrap.
template <class Pixel>
class PixelSums {
 public:
  static constexpr int kChannels = static_cast<int>(sizeof(Pixel));

  PixelSums(const Kernels& kernels, const CImage<Pixel>& image)
      : kernels_(kernels), image_(image) {}

  void Add(const RunRecord& run) {
    if (run.y < 0 || run.y >= image_.height) return;
    const int begin = std::max(run.xStart, 0), end = std::min(run.xEnd, image_.width - 1) + 1;
    if (begin < end) AddPixels(image_.rows[run.y] + kChannels * begin, end - begin);
  }

  double Mean(int channel, int32_t area) const {
    uint32_t sum = 0;
    for (const uint64_t lane : sums_[channel].lanes) sum += static_cast<uint32_t>(lane);
    return static_cast<double>(sum) / static_cast<double>(area);
  }
  ColourMean Means(int32_t area) const { return {Mean(2, area), Mean(1, area), Mean(0, area)}; }

 private:
  void AddPixels(const uint8_t* pixels, int count) {
    if constexpr (kChannels == 1) {
      kernels_.runs.AddRow(pixels, count, sums_[0]);
    } else {
      kernels_.runs.AddColourRow(pixels, count, sums_);
    }
  }

  const Kernels& kernels_;
  const CImage<Pixel>& image_;
  ChannelSum sums_[kChannels] = {};
};

template <class Pixel>
PixelSums<Pixel> SumBlob(const Kernels& kernels, const CImage<Pixel>& image,
                         const RLERegion& region, const BlobRecord& blob) {
  PixelSums<Pixel> sums(kernels, image);
  ForEachRun(region, blob, [&](const RunRecord& run) { sums.Add(run); });
  return sums;
}

// The last row first, in the order of memory.
template <class Pixel>
PixelSums<Pixel> SumRegion(const Kernels& kernels, const CImage<Pixel>& image,
                           const RLERegion& region) {
  PixelSums<Pixel> sums(kernels, image);
  for (int i = region.roiRunCount - 1; i >= 0; --i) sums.Add(region.roiRuns[i]);
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

double GrayMeanOfBlob(const Kernels& kernels, const GreyImage* image, RLERegion& region, int n) {
  BlobRecord* blob = MakeCurrent(region, n);
  if (!blob || !HasPixels(image)) return 0;
  blob->grayMean = SumBlob(kernels, *image, region, *blob).Mean(0, blob->area);
  return blob->grayMean;
}

ColourMean ColourMeanOfBlob(const Kernels& kernels, const ColourImage* image, RLERegion& region,
                            int n) {
  const BlobRecord* blob = MakeCurrent(region, n);
  if (!blob || !HasPixels(image)) return {};
  return SumBlob(kernels, *image, region, *blob).Means(blob->area);
}

double GrayMeanOfRegion(const Kernels& kernels, const GreyImage* image, const RLERegion& region) {
  if (!HasPixels(image) || !region.roiRuns || region.roiRunCount == 0) return 0;
  return SumRegion(kernels, *image, region).Mean(0, region.roiArea);
}

ColourMean ColourMeanOfRegion(const Kernels& kernels, const ColourImage* image,
                              const RLERegion& region) {
  if (!HasPixels(image) || !region.roiRuns || region.roiRunCount == 0) return {};
  return SumRegion(kernels, *image, region).Means(region.roiArea);
}

}  // namespace quillon
