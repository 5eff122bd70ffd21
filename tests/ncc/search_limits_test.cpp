// The search of templates: what its limits leave out, and what a search of nothing gives.
#include <cmath>
#include <limits>
#include <memory>

#include "ncc/search_cases.h"
#include "quillon/quillon.h"
#include "support/levels.h"

namespace quillon::test {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

}  // namespace

TEST(NccSearch, ReportsWithinTheLimits) {
  GreyImage pattern, scene;
  MakeScene({.templateWidth = 40, .templateHeight = 36, .width = 120, .height = 100, .seed = 18},
            pattern, scene);
  struct Case {
    double angleMax, angleMin, scaleMax, scaleMin;
    bool rotate;
    double angle, scale;
  };
  for (const Case& c : {Case{9, 5, 1, 1, false, 5, 1},
                        {-5, -9, 1, 1, false, -5, 1},
                        {5, 9, 1, 1, false, 9, 1},
                        {kNaN, kNaN, 1, 1, false, 0, 1},
                        {-kInfinity, kInfinity, 1, 1, false, 0, 1},
                        {0, 0, 1, 1, true, 0, 1},
                        {-0.5, 0.5, 1, 1, true, 0.5, 1},
                        {0.5, 0.5, 1, 1, true, 0.5, 1},
                        {0, 0, 0.99, 1.01, false, 0, 1.01},
                        {0, 0, 1.01, 1.01, false, 0, 1.01},
                        {-0.5, 0.5, 0.99, 1.01, true, 0.5, 1.01},
                        {0, 0, 1.0008, 1.0008, false, 0, 1}}) {
    const auto results =
        Find(BestKernels(), pattern, scene,
             {0.7, c.angleMax, c.angleMin, c.scaleMax, c.scaleMin, c.rotate, /*maxResults=*/1});
    SCOPED_TRACE(testing::Message() << c.angleMin << " to " << c.angleMax << ", " << c.scaleMin
                                    << " to " << c.scaleMax);
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].angle, c.angle);
    EXPECT_EQ(results[0].scale, c.scale);
  }
}

TEST(NccSearch, NarrowScaleLimitsLoseNothing) {
  for (double scale : {0.8, 0.95, 1.04, 1.12, 1.3}) {
    GreyImage pattern, scene;
    const Truth truth = MakeScene({.width = 300,
                                   .height = 260,
                                   .scaleMin = scale,
                                   .scaleMax = scale,
                                   .seed = static_cast<uint32_t>(1000 * scale)},
                                  pattern, scene)[0];
    struct Case {
      double scaleMin, scaleMax;
    };
    for (auto [low, high] : {Case{scale, scale}, {scale - 0.1, scale}, {scale, scale + 0.1}}) {
      const auto results =
          Find(BestKernels(), pattern, scene, {0.9, 0, 0, high, low, /*rotate=*/false, 5});
      ASSERT_EQ(results.size(), 1u) << low << " to " << high;
      EXPECT_LT(std::hypot(results[0].x - truth.x, results[0].y - truth.y), 0.2);
      EXPECT_NEAR(results[0].scale, scale, 0.003);
    }
  }
}

TEST(NccSearch, EqualMatchesKeepTheirOrderAndCloseOnesAreOne) {
  GreyImage pattern, scene;
  MakeScene({.templateWidth = 32, .templateHeight = 32, .seed = 9}, pattern, scene);
  const SearchLimits limits = {.minScore = 0.8,
                               .angleMax = 0,
                               .angleMin = 0,
                               .scaleMax = 1,
                               .scaleMin = 1,
                               .rotate = false,
                               .maxResults = 500};
  scene.Create(256, 256);
  for (int i = 0; i < 9; ++i) Paste(pattern, 8 + i % 3 * 80, 8 + i / 3 * 80, scene);
  for (const SearchLimits& kind : kEveryKind) {
    const auto results = Find(BestKernels(), pattern, scene, kind);
    ASSERT_EQ(results.size(), 9u);
    for (size_t i = 0; i < 9; ++i) {
      ExpectExactCopy(results[i], pattern, 8 + static_cast<double>(i % 3 * 80),
                      8 + static_cast<double>(i / 3 * 80));
    }
  }
  // Of candidates half a template apart along both axes or nearer, only the better one is left; the
  // last stage moves what is left.
  constexpr double kMoved = 2;
  for (int apart : {4, 12, 16, 20}) {
    scene.Create(128, 96);
    Paste(pattern, 24, 24, scene);
    Paste(pattern, 24 + apart, 24 + apart, scene);
    SearchLimits any = limits;
    any.minScore = 0.01;
    const auto found = Find(BestKernels(), pattern, scene, any);
    ASSERT_FALSE(found.empty());
    EXPECT_NEAR(found[0].x, 39.5 + apart, 0.02);
    for (size_t i = 0; i < found.size(); ++i) {
      for (size_t j = 0; j < i; ++j) {
        EXPECT_GE(std::max(std::abs(found[i].x - found[j].x), std::abs(found[i].y - found[j].y)),
                  16.0 - kMoved);
      }
    }
  }
}

TEST(NccSearch, ModelsOfOneLevel) {
  for (const SceneSpec& spec :
       {SceneSpec{.templateWidth = 15, .templateHeight = 14, .width = 90, .height = 70, .seed = 61},
        SceneSpec{.templateWidth = 24,
        .templateHeight = 20,
        .width = 120,
        .height = 90,
        .angleMin = -15,
        .angleMax = 15,
        .scaleMin = 0.95,
        .scaleMax = 1.05,
        .seed = 62}}) {
    GreyImage pattern, scene;
    const auto truths = MakeScene(spec, pattern, scene);
    const auto tool = std::make_unique<NccTool>();
    for (bool masked : {false, true}) {
      ASSERT_TRUE(BuildNccModel(BestKernels(), pattern, masked, *tool));
      EXPECT_EQ(tool->defaultLevel, spec.templateWidth < 16 ? 0 : 1);
      ASSERT_TRUE(IxSetPyramidLevel(tool.get(), 0));
      SearchLimits limits = LimitsOf(spec, 1);
      limits.minScore = 0.6;
      ASSERT_TRUE(FindNccModel(BestKernels(), scene, limits, *tool));
      ASSERT_EQ(tool->resultCount, 1);
      EXPECT_LT(std::hypot(tool->results[0].x - truths[0].x, tool->results[0].y - truths[0].y),
                0.2);
      EXPECT_NEAR(tool->results[0].angle, truths[0].angle, 1.5);  // 0.4 pixels at the corner
      EXPECT_NEAR(tool->results[0].scale, truths[0].scale, 0.02);
    }
  }
}

TEST(NccSearch, LimitsOfTheResultTable) {
  GreyImage pattern, scene;
  const SceneSpec spec = {.templateWidth = 40,
                          .templateHeight = 40,
                          .width = 200,
                          .height = 160,
                          .instances = 4,
                          .seed = 41};
  MakeScene(spec, pattern, scene);
  NccTool tool;
  ASSERT_TRUE(BuildNccModel(BestKernels(), pattern, false, tool));
  struct Case {
    int asked, kept;
  };
  for (auto [asked, kept] :
       {Case{1000, 20}, {INT32_MAX, 20}, {3, 3}, {1, 1}, {0, 0}, {-7, 0}, {INT32_MIN, 0}}) {
    ASSERT_TRUE(FindNccModel(BestKernels(), scene, LimitsOf(spec, asked), tool));
    EXPECT_EQ(tool.maxResults, kept);
    EXPECT_LE(tool.resultCount, kept);
    EXPECT_EQ(tool.resultCount, std::min(kept, 4));
  }
  EXPECT_EQ(tool.candidateCapacity, 40);
}

TEST(NccSearch, NothingIsFoundWithoutSomethingToFind) {
  GreyImage flat, black, noise, tall;
  Fill(flat, 24, 24, Content::kFlat);
  Fill(noise, 90, 70, Content::kNoise);
  black.Create(24, 24);
  Fill(tall, 1, 700, Content::kNoise);
  const SearchLimits any = {.minScore = -kInfinity,
                            .angleMax = 180,
                            .angleMin = -180,
                            .scaleMax = 1.3,
                            .scaleMin = 0.7,
                            .rotate = true,
                            .maxResults = 50};
  for (bool masked : {false, true}) {
    EXPECT_TRUE(Find(BestKernels(), flat, noise, any, masked).empty());
    EXPECT_TRUE(Find(BestKernels(), black, noise, any, masked).empty());
    EXPECT_TRUE(Find(BestKernels(), tall, noise, any, masked).empty());
    Find(BestKernels(), noise, flat, any, masked);
  }
  GreyImage pattern;
  Fill(pattern, 20, 20, Content::kNoise);
  Paste(pattern, 30, 30, noise);
  for (double bad : {kNaN, kInfinity, -kInfinity, 1e300, -1e300}) {
    for (int field = 0; field < 5; ++field) {
      SearchLimits limits = {.minScore = 0.5,
                             .angleMax = 10,
                             .angleMin = -10,
                             .scaleMax = 1,
                             .scaleMin = 1,
                             .rotate = true,
                             .maxResults = 5};
      double* const fields[] = {&limits.minScore, &limits.angleMax, &limits.angleMin,
                                &limits.scaleMax, &limits.scaleMin};
      *fields[field] = bad;
      const auto results = Find(BestKernels(), pattern, noise, limits);
      if (std::isnan(bad)) {
        EXPECT_TRUE(results.empty()) << field;
      }
    }
  }
}

TEST(NccSearch, SearchesOfTheWrongKindKeepTheResults) {
  GreyImage pattern, scene;
  ColourImage colour;
  MakeScene({.instances = 2, .seed = 51}, pattern, scene);
  Colourise(scene, colour);
  const std::unique_ptr<NccTool, void (*)(NccTool*)> tool(IxCreateNCCTool(), IxDestroyNCCModel);
  EXPECT_EQ(IxFindNCCMatchModel(&scene, tool.get(), 0.8, 0, 0, 1, 1, false, 5), 0) << "no model";
  ASSERT_TRUE(IxCreateNCCMatchModel(&pattern, tool.get(), false));
  ASSERT_EQ(IxFindNCCMatchModel(&scene, tool.get(), 0.8, 0, 0, 1, 1, false, 5), 2);
  GreyImage empty;
  EXPECT_EQ(IxFindNCCMatchColorModel(&colour, tool.get(), 0.8, 0, 0, 1, 1, false, 5), 0);
  EXPECT_EQ(IxFindNCCMatchModel(&empty, tool.get(), 0.8, 0, 0, 1, 1, false, 5), 0);
  EXPECT_EQ(IxFindNCCMatchModel(nullptr, tool.get(), 0.8, 0, 0, 1, 1, false, 5), 0);
  EXPECT_EQ(IxFindNCCMatchModel(&scene, nullptr, 0.8, 0, 0, 1, 1, false, 5), 0);
  EXPECT_EQ(IxFindNCCMatchModel(reinterpret_cast<GreyImage*>(&colour), tool.get(), 0.8, 0, 0, 1, 1,
                                false, 5),
            0);
  NccResult result = {};
  EXPECT_TRUE(IxGetNCCMatchResults(tool.get(), 1, &result)) << "the results are still there";
  EXPECT_GT(result.score, 0.8);
  result.score = 7;
  for (int index : {2, 500, INT32_MAX, -1, INT32_MIN}) {
    EXPECT_FALSE(IxGetNCCMatchResults(tool.get(), index, &result));
  }
  EXPECT_EQ(result.score, 7);
  EXPECT_FALSE(IxGetNCCMatchResults(tool.get(), 0, nullptr));

  // A single-level colour model on levels of another size: refused, not read.
  ColourImage large, small;
  Fill(large, 64, 64, Content::kNoise);
  Fill(small, 20, 20, Content::kNoise);
  ASSERT_TRUE(IxCreateNCCMatchColorModel(&large, tool.get(), true));
  ASSERT_TRUE(IxCreateNCCMatchColorModel_ROI(&small, tool.get()));
  EXPECT_EQ(IxFindNCCMatchColorModel(&colour, tool.get(), 0.1, 0, 0, 1, 1, false, 5), 0);
}

}  // namespace quillon::test
