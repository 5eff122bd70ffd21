#include "blob/region.h"

#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

#include "core/buffer.h"

namespace quillon {
namespace {

// Zero from the start: what no labelling wrote yet reads as an empty blob, run or feature.
template <class Record>
bool MakeTable(Record*& table, int capacity) {
  table = static_cast<Record*>(OrNote(std::calloc(static_cast<size_t>(capacity), sizeof(Record))));
  return table != nullptr;
}

void DestroyDisplay(RLERegion& region) {
  const std::unique_ptr<ColourImage> old(std::exchange(region.displayImage, nullptr));
}

}  // namespace

RLERegion* CreateRegion() {
  auto* region = OrNote(new (std::nothrow) RLERegion{});
  if (!region) return nullptr;
  const bool complete = MakeTable(region->blobs, kMaxLabels) && MakeTable(region->runs, kMaxRuns) &&
                        MakeTable(region->features, kMaxFeatures) &&
                        MakeTable(region->blobIndex, kMaxLabels) &&
                        MakeTable(region->roiRuns, kMaxRuns);
  if (complete) return region;
  DestroyRegion(region);
  return nullptr;
}

void DestroyRegion(RLERegion* region) {
  if (!region) return;
  std::free(region->blobs);
  std::free(region->runs);
  std::free(region->features);
  std::free(region->blobIndex);
  std::free(region->roiRuns);
  DestroyDisplay(*region);
  delete region;
}

void AssignImageToRegion(RLERegion& region, const GreyImage& image) {
  DestroyDisplay(region);
  region.assignedImage = &image.bitmap;
  region.displayImage = OrNote(new (std::nothrow) ColourImage);
  if (!region.displayImage) return;
  region.displayImage->Create(image.width, image.height);
  if (image.bits) OrNote(region.displayImage->bits);
}

}  // namespace quillon
