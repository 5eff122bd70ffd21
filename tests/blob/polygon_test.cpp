#include "blob/polygon.h"

#include <climits>

#include "blob/regions.h"

namespace quillon::test {
namespace reference {

struct Runs {
  std::vector<Span> spans;
  int area = 0;
};

// Edge by edge, pixel by pixel, with the table of bends and both sorts spelled out.
Runs Polygon(const std::vector<int>& points) {
  constexpr int kBends[8][8] = {{0, 0, 0, 0, 2, 2, 2, 2}, {1, 1, 1, 1, 0, 3, 3, 3},
                                {1, 1, 1, 1, 0, 0, 3, 3}, {1, 1, 1, 1, 0, 0, 0, 3},
                                {1, 1, 1, 1, 0, 0, 0, 0}, {0, 3, 3, 3, 2, 2, 2, 2},
                                {0, 0, 3, 3, 2, 2, 2, 2}, {0, 0, 0, 3, 2, 2, 2, 2}};
  constexpr int kDx[8] = {1, 1, 0, -1, -1, -1, 0, 1}, kDy[8] = {0, -1, -1, -1, 0, 1, 1, 1};
  const auto sign = [](int v) { return (v > 0) - (v < 0); };

  std::vector<int> codes;
  const size_t count = points.size() / 2;
  for (size_t i = 0; i < count; ++i) {
    int x = points[2 * i], y = points[2 * i + 1];
    const int dx = points[2 * ((i + 1) % count)] - x, dy = points[2 * ((i + 1) % count) + 1] - y;
    const int n = std::max(std::abs(dx), std::abs(dy));
    int ex = 1, ey = 1;
    std::vector<std::pair<int, int>> pixels;
    for (int k = 0; k <= n; ++k) {
      pixels.emplace_back(x, y);
      ex += std::abs(dx);
      ey += std::abs(dy);
      if (ex > n) x += sign(dx), ex -= n;
      if (ey > n) y += sign(dy), ey -= n;
    }
    for (size_t k = 1; k < pixels.size(); ++k) {
      for (int d = 0; d < 8; ++d) {
        if (pixels[k].first - pixels[k - 1].first == kDx[d] &&
            pixels[k].second - pixels[k - 1].second == kDy[d]) {
          codes.push_back(d);
        }
      }
    }
  }

  std::vector<std::pair<int, int>> ends;
  int x = points[0], y = points[1];
  for (size_t i = 0; i < codes.size(); ++i) {
    x += kDx[codes[i]];
    y += kDy[codes[i]];
    const int bend = kBends[codes[i]][codes[(i + 1) % codes.size()]];
    for (int k = 0; k < (bend + 1) / 2; ++k) ends.emplace_back(x, y);
  }
  for (size_t i = 0; i < ends.size(); ++i) {
    size_t first = i;
    for (size_t j = i; j < ends.size(); ++j) {
      if (ends[j].second < ends[first].second) first = j;
    }
    std::swap(ends[i], ends[first]);
  }
  for (bool swapped = true; swapped;) {
    swapped = false;
    for (size_t j = ends.size(); j-- > 1;) {
      if (ends[j - 1].second == ends[j].second && ends[j - 1].first > ends[j].first) {
        std::swap(ends[j - 1], ends[j]);
        swapped = true;
      }
    }
  }
  Runs runs;
  for (size_t k = 0; k + 1 < ends.size(); k += 2) {
    runs.spans.push_back({ends[k].second, ends[k].first, ends[k + 1].first});
    runs.area += ends[k + 1].first - ends[k].first + 1;
  }
  return runs;
}

}  // namespace reference

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
