// The search of templates: everything that is there is found, where it is.
#include <cmath>

#include "ncc/search_cases.h"
#include "support/levels.h"

namespace quillon::test {

TEST(NccSearch, FindsEveryInstanceWhereItIs) {
  struct Case {
    const char* name;
    SceneSpec spec;
    double position, worst, angle, scale;
  };
  const Case cases[] = {
      {"moved", {.instances = 6, .seed = 11}, 0.05, 0.2, 0, 0},
      {"turned", {.instances = 5, .angleMin = -20, .angleMax = 20, .seed = 12}, 0.05, 0.2, 0.05, 0},
      {"scaled",
       {.instances = 4, .scaleMin = 0.8, .scaleMax = 1.2, .seed = 13},
       0.05,
       0.2,
       0,
       0.002},
      {"all of it",
       {.templateWidth = 100,
        .templateHeight = 80,
        .instances = 3,
        .angleMin = -180,
        .angleMax = 180,
        .scaleMin = 0.9,
        .scaleMax = 1.1,
        .seed = 14},
       0.05,
       0.2,
       0.05,
       0.002},
      {"noisy",
       {.instances = 5, .angleMin = -20, .angleMax = 20, .gain = 0.7, .noise = 10, .seed = 15},
       0.1,
       0.4,
       0.1,
       0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    GreyImage pattern, scene;
    const auto truths = MakeScene(c.spec, pattern, scene);
    const auto results = Find(BestKernels(), pattern, scene, LimitsOf(c.spec));
    ASSERT_EQ(results.size(), truths.size());
    double position = 0, angle = 0, scale = 0;
    for (const Truth& truth : truths) {
      const NccResult* nearest = &results[0];
      const auto distance = [&](const NccResult& r) {
        return std::hypot(r.x - truth.x, r.y - truth.y);
      };
      for (const NccResult& r : results) {
        if (distance(r) < distance(*nearest)) nearest = &r;
      }
      EXPECT_LT(distance(*nearest), c.worst);
      position += distance(*nearest) / static_cast<double>(truths.size());
      angle += std::abs(std::remainder(nearest->angle - truth.angle, 360)) /
               static_cast<double>(truths.size());
      scale += std::abs(nearest->scale - truth.scale) / static_cast<double>(truths.size());
    }
    EXPECT_LE(position, c.position);
    EXPECT_LE(angle, c.angle);
    EXPECT_LE(scale, c.scale);
  }
}

TEST(NccSearch, LevelsAgreeAndNothingElseChanges) {
  const SceneSpec spec = {.instances = 4,
                          .angleMin = -15,
                          .angleMax = 15,
                          .scaleMin = 0.9,
                          .scaleMax = 1.1,
                          .noise = 4,
                          .seed = 21};
  GreyImage pattern, scene;
  ColourImage colourPattern, colourScene;
  MakeScene(spec, pattern, scene);
  Colourise(pattern, colourPattern);
  Colourise(scene, colourScene);
  const auto before = Bytes(scene), colourBefore = Bytes(colourScene);
  for (bool masked : {false, true}) {
    const auto grey = Find(*AvailableKernels()[0], pattern, scene, LimitsOf(spec), masked);
    const auto colour =
        Find(*AvailableKernels()[0], colourPattern, colourScene, LimitsOf(spec), masked);
    EXPECT_EQ(grey.size(), 4u);
    EXPECT_EQ(colour.size(), 4u);
    ForEachLevel([&](const Kernels& kernels) {
      EXPECT_TRUE(SameResults(Find(kernels, pattern, scene, LimitsOf(spec), masked), grey));
      EXPECT_TRUE(
          SameResults(Find(kernels, colourPattern, colourScene, LimitsOf(spec), masked), colour));
    });
  }
  EXPECT_EQ(Bytes(scene), before);
  EXPECT_EQ(Bytes(colourScene), colourBefore);

  NccTool tool;
  ASSERT_TRUE(BuildNccModel(BestKernels(), pattern, false, tool));
  ASSERT_TRUE(FindNccModel(BestKernels(), scene, LimitsOf(spec), tool));
  const auto first = ResultsOf(tool);
  const std::vector<uint8_t> model(tool.levels[0].pixels.begin(), tool.levels[0].pixels.end());
  ASSERT_TRUE(FindNccModel(BestKernels(), scene, LimitsOf(spec), tool));
  EXPECT_TRUE(SameResults(ResultsOf(tool), first)) << "a second search";
  EXPECT_TRUE(std::equal(model.begin(), model.end(), tool.levels[0].pixels.begin()));
}

TEST(NccSearch, ScoreOfAMovedTemplateIsTheCorrelation) {
  GreyImage pattern, scene;
  const SceneSpec spec = {.instances = 8, .noise = 12, .wholePixels = true, .seed = 31};
  const auto truths = MakeScene(spec, pattern, scene);
  const auto results = Find(BestKernels(), pattern, scene, LimitsOf(spec));
  ASSERT_EQ(results.size(), truths.size());
  for (const NccResult& r : results) {
    const int left = static_cast<int>(std::lround(r.x + 0.5 - pattern.width * 0.5));
    const int top = static_cast<int>(std::lround(r.y + 0.5 - pattern.height * 0.5));
    double n = 0, sumI = 0, sumT = 0, sumII = 0, sumTT = 0, sumIT = 0;
    for (int y = 0; y < pattern.height; ++y) {
      for (int x = 0; x < pattern.width; ++x) {
        const double i = scene.rows[top + y][left + x], t = pattern.rows[y][x];
        ++n, sumI += i, sumT += t, sumII += i * i, sumTT += t * t, sumIT += i * t;
      }
    }
    const double expected = (sumIT - sumI * sumT / n) /
                            std::sqrt((sumII - sumI * sumI / n) * (sumTT - sumT * sumT / n));
    EXPECT_NEAR(r.score, expected, 1e-9);
  }
}

TEST(NccSearch, MatchesLieInTheImage) {
  GreyImage pattern, scene, larger;
  MakeScene({.templateWidth = 41, .templateHeight = 30, .seed = 5}, pattern, scene);
  for (SearchLimits limits : kEveryKind) {
    SCOPED_TRACE(testing::Message() << limits.rotate << ", " << limits.scaleMin);
    for (auto [left, top] : {std::pair{0, 0}, {162, 0}, {0, 121}, {162, 121}, {77, 121}}) {
      Fill(scene, 203, 151, Content::kNoise);
      Paste(pattern, left, top, scene);
      limits.minScore = 1;
      const auto results = Find(BestKernels(), pattern, scene, limits);
      ASSERT_EQ(results.size(), 1u) << left << ", " << top;
      ExpectExactCopy(results[0], pattern, left, top);
    }
    for (auto [left, top] : {std::pair{-10, 40}, {172, 40}, {80, -10}, {80, 131}, {-6, 127}}) {
      Fill(scene, 203, 151, Content::kNoise);
      Paste(pattern, left, top, scene);
      limits.minScore = 0.6;
      Find(BestKernels(), pattern, scene, limits);
      limits.minScore = 0.9;
      EXPECT_TRUE(Find(BestKernels(), pattern, scene, limits).empty()) << left << ", " << top;
    }
    Fill(scene, 203, 151, Content::kNoise);
    const auto whole = Find(BestKernels(), scene, scene, limits);
    ASSERT_EQ(whole.size(), 1u) << "a template as large as the image";
    ExpectExactCopy(whole[0], scene, 0, 0);
    // A template that is larger, by so little that no reduced level shows it.
    MakeScene({.templateWidth = 66, .templateHeight = 65, .seed = 6}, larger, scene);
    scene.Create(65, 64);
    Paste(larger, 0, 0, scene);
    limits.minScore = 0.5;
    const auto shrunk = Find(BestKernels(), larger, scene, limits);
    EXPECT_EQ(shrunk.size(), limits.scaleMin < 1 ? 1u : 0u);
    for (const NccResult& r : shrunk) EXPECT_NEAR(r.scale, 0.984, 0.002);
    Fill(larger, 203, 151, Content::kNoise);
    EXPECT_TRUE(Find(BestKernels(), larger, pattern, limits).empty());
  }
}

TEST(NccSearch, ThinTemplatesAreFoundOverAnglesAndScales) {
  struct Case {
    const char* name;
    int width, height;
    bool (*takesPart)(int x, int y);
  };
  for (const Case& c :
       {Case{"row", 40, 1, nullptr},
        {"column", 1, 40, nullptr},
        {"long row", 300, 1, nullptr},
        {"checkerboard", 20, 20, [](int x, int y) { return (x + y) % 2 == 0; }},
        {"larger", 48, 48, [](int x, int y) { return (x + y) % 2 == 0; }},
        {"outline", 64, 60, [](int x, int y) { return x % 63 == 0 || y % 59 == 0 || x == y; }}}) {
    GreyImage pattern, scene;
    Fill(pattern, c.width, c.height, Content::kNoise, 5);
    for (int y = 0; y < c.height; ++y) {
      for (int x = 0; x < c.width; ++x) {
        uint8_t& pixel = pattern.rows[y][x];
        pixel = !c.takesPart || c.takesPart(x, y) ? std::max<uint8_t>(pixel, 1) : 0;
      }
    }
    Fill(scene, c.width + 83, c.height + 71, Content::kNoise, 6);
    Paste(pattern, 33, 41, scene, /*masked=*/true);
    for (SearchLimits limits : kEveryKind) {
      SCOPED_TRACE(testing::Message()
                   << c.name << ", " << limits.rotate << ", " << limits.scaleMin);
      limits.angleMin = std::max(limits.angleMin, -20.0);
      limits.angleMax = std::min(limits.angleMax, 20.0);
      const auto results =
          Find(BestKernels(), pattern, scene, limits, /*masked=*/c.takesPart != nullptr);
      ASSERT_FALSE(results.empty());
      ExpectExactCopy(results[0], pattern, 33, 41);
    }
  }
}

TEST(NccSearch, NoisyCopiesHaveTheSizeOfTheTemplate) {
  GreyImage pattern, scene;
  MakeScene({.templateWidth = 60, .templateHeight = 44, .seed = 17}, pattern, scene);
  Random random(3);
  for (int i = 0; i < 12; ++i) {
    Fill(scene, 160, 120, Content::kNoise, 7);
    Paste(pattern, 20 + i, 30, scene);
    for (int y = 0; y < scene.height; ++y) {
      for (int x = 0; x < scene.width; ++x) {
        uint8_t& pixel = scene.rows[y][x];
        pixel = static_cast<uint8_t>(std::clamp(pixel + random.Within(-4, 4), 0, 255));
      }
    }
    for (const SearchLimits& limits : kEveryKind) {
      const auto results = Find(BestKernels(), pattern, scene, limits);
      ASSERT_EQ(results.size(), 1u);
      EXPECT_EQ(results[0].scale, 1.0);
      EXPECT_EQ(results[0].matchWidth, 60);
      EXPECT_EQ(results[0].matchHeight, 44);
    }
  }
}

TEST(NccSearch, TurnsBetweenTheStepsAreFoundOnce) {
  for (const SceneSpec& spec :
       {SceneSpec{.templateWidth = 128,
       .templateHeight = 128,
       .instances = 2,
       .angleMin = -20,
       .angleMax = 20,
       .seed = 3},
        SceneSpec{.templateWidth = 150,
        .templateHeight = 151,
        .instances = 2,
        .angleMin = -180,
        .angleMax = 180,
        .seed = 800},
        SceneSpec{.instances = 5, .angleMin = -20, .angleMax = 20, .seed = 342},
        SceneSpec{.templateWidth = 100,
        .templateHeight = 60,
        .instances = 4,
        .angleMin = -30,
        .angleMax = 30,
        .scaleMin = 0.9,
        .scaleMax = 1.1,
        .seed = 732},
        SceneSpec{.templateWidth = 48,
        .templateHeight = 48,
        .instances = 10,
        .angleMin = -180,
        .angleMax = 180,
        .seed = 2013},
        // Two candidates that are apart end at the same instance.
        SceneSpec{.templateWidth = 100,
        .templateHeight = 60,
        .instances = 4,
        .angleMin = -30,
        .angleMax = 30,
        .scaleMin = 0.9,
        .scaleMax = 1.1,
        .seed = 70721}}) {
    GreyImage pattern, scene;
    const auto truths = MakeScene(spec, pattern, scene);
    const auto results = Find(BestKernels(), pattern, scene, LimitsOf(spec));
    EXPECT_EQ(results.size(), truths.size()) << "seed " << spec.seed;
  }
}

}  // namespace quillon::test
