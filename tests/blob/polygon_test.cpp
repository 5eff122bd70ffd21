#include "blob/polygon.h"

#include <climits>

#include "blob/polygon_reference.h"
#include "blob/regions.h"

namespace quillon::test {
namespace {

std::string Text(const std::vector<Span>& spans, int area) {
  std::string text = std::to_string(area) + " pixels:";
  for (const Span& s : spans) {
    text +=
        " " + std::to_string(s.y) + ":" + std::to_string(s.xStart) + "-" + std::to_string(s.xEnd);
  }
  return text;
}

std::string Text(const RLERegion& region) {
  std::vector<Span> spans;
  for (int i = 0; i < region.roiRunCount; ++i) {
    const RunRecord& run = region.roiRuns[i];
    spans.push_back({run.y, run.xStart, run.xEnd});
  }
  return Text(spans, region.roiArea);
}

void Build(RLERegion& region, const std::vector<int>& points) {
  BuildRegionOfInterest(region, points.data(), static_cast<int>(points.size() / 2));
}

}  // namespace

TEST(Polygon, RectanglesKnowTheirOrientation) {
  const RegionPtr region = NewRegion();
  Build(*region, {0, 0, 9, 0, 9, 4, 0, 4});
  EXPECT_EQ(Text(*region), "50 pixels: 0:0-9 1:0-9 2:0-9 3:0-9 4:0-9");
  Build(*region, {0, 0, 0, 4, 9, 4, 9, 0});
  EXPECT_EQ(Text(*region), "30 pixels: 1:0-9 2:0-9 3:0-9");
}

TEST(Polygon, DegenerateOnesGiveWhatTheirChainsGive) {
  const RegionPtr region = NewRegion();
  for (const std::vector<int>& points : {std::vector{5, 5},
                                         {5, 5, 5, 5, 5, 5},
                                         {5, 5, 6, 5},
                                         {5, 5, 5, 9},
                                         {2, 2, 8, 5},
                                         {0, 0, 6, 0, 3, 0},
                                         {0, 0, 4, 4, 8, 8, 2, 2},
                                         {7, 3, 7, 8, 7, 3, 1, 3}}) {
    Build(*region, {0, 0, 9, 0, 9, 4, 0, 4});
    Build(*region, points);
    const auto expected = reference::Polygon(points);
    EXPECT_EQ(Text(*region), Text(expected.spans, expected.area)) << testing::PrintToString(points);
  }
  Build(*region, {5, 5});
  EXPECT_EQ(Text(*region), "0 pixels:") << "no step, no run";
}

TEST(Polygon, RandomOnesMatchThePlainConstruction) {
  const RegionPtr region = NewRegion();
  Random random(11);
  for (int i = 0; i < 400; ++i) {
    const int corners = random.Within(1, 9), extent = random.Within(1, 60);
    std::vector<int> points;
    for (int k = 0; k < 2 * corners; ++k) points.push_back(random.Within(-extent, extent));
    Build(*region, points);
    const auto expected = reference::Polygon(points);
    ASSERT_EQ(Text(*region), Text(expected.spans, expected.area)) << testing::PrintToString(points);
  }
}

TEST(Polygon, BoundariesWithoutEndGiveAnEmptyRegion) {
  const RegionPtr region = NewRegion();
  for (const std::vector<int>& points :
       {std::vector{INT_MIN, INT_MIN, INT_MAX, INT_MIN, INT_MAX, INT_MAX, INT_MIN, INT_MAX},
        {INT_MIN, 0, INT_MAX, 0},
        {0, INT_MAX, 0, INT_MIN},
        {0, 0, kMaxChainCodes, 1}}) {
    Build(*region, {0, 0, 9, 0, 9, 4, 0, 4});
    Build(*region, points);
    EXPECT_EQ(Text(*region), "0 pixels:") << testing::PrintToString(points);
  }
  // At the ends of the number range, small extents are exact.
  Build(*region,
        {INT_MAX - 1, INT_MAX - 1, INT_MAX, INT_MAX - 1, INT_MAX, INT_MAX, INT_MAX - 1, INT_MAX});
  EXPECT_EQ(region->roiArea, 4);
  EXPECT_EQ(region->roiRuns[1].y, INT_MAX);
}

TEST(Polygon, RunsStopAtTheTable) {
  const RegionPtr region = NewRegion();
  std::vector<int> comb;  // 201 teeth of 2000 rows
  for (int x = 0; x <= 800; x += 4) {
    for (int v : {x, 0, x + 2, 0, x + 2, 1999, x + 4, 1999}) comb.push_back(v);
  }
  for (int v : {804, 2000, 0, 2000}) comb.push_back(v);
  Build(*region, comb);
  EXPECT_EQ(region->roiRunCount, kMaxRuns);
  int area = 0;
  for (int i = 0; i < kMaxRuns; ++i) {
    const RunRecord& run = region->roiRuns[i];
    area += run.xEnd - run.xStart + 1;
    ASSERT_GE(run.y, region->roiRuns[std::max(i, 1) - 1].y);
  }
  EXPECT_EQ(region->roiArea, area);
  // A large rectangle needs more steps than any image's outline, and is exact.
  Build(*region, {0, 0, 99999, 0, 99999, 9999, 0, 9999});
  EXPECT_EQ(region->roiRunCount, 10000);
  EXPECT_EQ(region->roiArea, 1'000'000'000);
}

}  // namespace quillon::test
