#include "blob/selection.h"

#include <algorithm>

namespace quillon {
namespace {

int FeatureCount(const RLERegion& region) { return std::min(region.blobCount, kMaxFeatures); }

template <class Keep>
bool Narrow(RLERegion& region, Keep keep) {
  if (!region.features || region.selectCount == 0) return false;
  int kept = 0;
  for (int i = 0; i < FeatureCount(region); ++i) {
    BlobFeature& feature = region.features[i];
    if (feature.selected != 1) continue;
    feature.selected = keep(feature) ? 1 : 0;
    kept += feature.selected;
  }
  region.selectCount = kept;
  return true;
}

// A value that is not a number is in no range.
template <class Value>
bool IsWithin(Value value, int lowest, int highest) {
  return static_cast<Value>(lowest) <= value && value <= static_cast<Value>(highest);
}

}  // namespace

bool SelectBlobArea(RLERegion& region, int lowest, int highest) {
  return Narrow(region, [=](const BlobFeature& f) { return IsWithin(f.area, lowest, highest); });
}

bool SelectBlobWidth(RLERegion& region, int lowest, int highest) {
  return Narrow(region, [=](const BlobFeature& f) { return IsWithin(f.width, lowest, highest); });
}

bool SelectBlobHeight(RLERegion& region, int lowest, int highest) {
  return Narrow(region, [=](const BlobFeature& f) { return IsWithin(f.height, lowest, highest); });
}

bool SelectBlobCentre(RLERegion& region, int xLowest, int xHighest, int yLowest, int yHighest) {
  return Narrow(region, [=](const BlobFeature& f) {
    return IsWithin(f.centreX, xLowest, xHighest) && IsWithin(f.centreY, yLowest, yHighest);
  });
}

bool ReselectBlobs(RLERegion& region) {
  if (!region.features || region.selectCount == 0) return false;
  for (int i = 0; i < FeatureCount(region); ++i) region.features[i].selected = 1;
  region.selectCount = FeatureCount(region);
  return true;
}

// After another labelling more records may be marked than were counted: never more are copied than
// the host was told to have room for.
bool CopySelectedBlobs(const RLERegion& region, BlobFeature* selected) {
  if (!region.features || region.selectCount == 0) return false;
  int left = region.selectCount;
  for (int i = 0; i < FeatureCount(region) && left > 0; ++i) {
    if (region.features[i].selected != 1) continue;
    *selected++ = region.features[i];
    --left;
  }
  return true;
}

}  // namespace quillon
