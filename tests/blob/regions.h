// Region objects for tests.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "blob/region.h"
#include "support/images.h"

namespace quillon::test {

struct RegionDeleter {
  void operator()(RLERegion* region) const { DestroyRegion(region); }
};
using RegionPtr = std::unique_ptr<RLERegion, RegionDeleter>;

inline RegionPtr NewRegion() { return RegionPtr(CreateRegion()); }

struct Span {
  int y, xStart, xEnd;
};

// A region of interest of these runs, which are in row-major order.
inline void SetRuns(RLERegion& region, const std::vector<Span>& spans) {
  region.roiRunCount = static_cast<int>(spans.size());
  uint32_t area = 0;
  for (size_t i = 0; i < spans.size(); ++i) {
    region.roiRuns[i] = {-7, spans[i].xStart, spans[i].xEnd, spans[i].y, -7};
    area += static_cast<uint32_t>(spans[i].xEnd) - static_cast<uint32_t>(spans[i].xStart) + 1;
  }
  region.roiArea = static_cast<int32_t>(area);
}

// One run a row, `margin` columns beyond the image on either side. With margin 0 the last column is
// left out of every labelling.
inline std::vector<Span> WholeImage(const GreyImage& image, int margin) {
  std::vector<Span> spans;
  for (int y = -margin; y < image.height + margin; ++y) {
    spans.push_back({y, -margin, image.width - 1 + margin});
  }
  return spans;
}

// Disjoint or touching runs, some rows left out, some parts outside the image.
inline std::vector<Span> RandomSpans(const GreyImage& image, Random& random) {
  std::vector<Span> spans;
  for (int y = -2; y < image.height + 2; ++y) {
    if (random.Within(0, 4) == 0) continue;
    for (int x = random.Within(-6, 6); x < image.width + 4; x += random.Within(0, 9)) {
      const int end = x + random.Within(0, image.width / 2 + 3);
      spans.push_back({y, x, end});
      x = end;
    }
  }
  return spans;
}

}  // namespace quillon::test
