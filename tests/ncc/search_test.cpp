#include "ncc/search.h"

#include <cmath>
#include <limits>
#include <memory>

#include "ncc/model.h"
#include "ncc/pose.h"
#include "quillon/quillon.h"
#include "support/levels.h"
#include "support/scenes.h"

namespace quillon::test {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

SearchLimits LimitsOf(const SceneSpec& spec, int maxResults = 50) {
  return {.minScore = 0.8,
          .angleMax = spec.angleMax,
          .angleMin = spec.angleMin,
          .scaleMax = spec.scaleMax,
          .scaleMin = spec.scaleMin,
          .rotate = spec.angleMin < spec.angleMax,
          .maxResults = maxResults};
}

std::vector<NccResult> ResultsOf(const NccTool& tool) {
  return {tool.results.begin(), tool.results.begin() + tool.resultCount};
}

template <class Pixel>
std::vector<NccResult> Find(const Kernels& kernels, const CImage<Pixel>& pattern,
                            const CImage<Pixel>& image, const SearchLimits& limits,
                            bool masked = false) {
  const auto tool = std::make_unique<NccTool>();
  EXPECT_TRUE(BuildNccModel(kernels, pattern, masked, *tool));
  EXPECT_TRUE(FindNccModel(kernels, image, limits, *tool));
  double previous = 1;
  for (const NccResult& r : ResultsOf(*tool)) {
    EXPECT_LE(r.score, previous);
    previous = r.score;
    for (double value : {r.x, r.y, r.angle, r.scale, r.score}) EXPECT_TRUE(std::isfinite(value));
    EXPECT_GE(r.score, limits.minScore);
    EXPECT_LE(r.score, 1.0);
    EXPECT_EQ(r.matchWidth, static_cast<int>(pattern.width * r.scale));
    EXPECT_EQ(r.matchHeight, static_cast<int>(pattern.height * r.scale));
    EXPECT_TRUE(r.scale == 1 || std::abs(r.scale - 1) > 0.001) << r.scale;
    // The whole template lies in the image.
    const double c = std::abs(std::cos(r.angle * kRadians)), s = std::sin(r.angle * kRadians);
    const double halfWidth = (pattern.width * c + pattern.height * std::abs(s)) * r.scale / 2;
    const double halfHeight = (pattern.width * std::abs(s) + pattern.height * c) * r.scale / 2;
    constexpr double kRounding = 1e-6;
    EXPECT_GE(r.x + 0.5 - halfWidth, -kRounding);
    EXPECT_GE(r.y + 0.5 - halfHeight, -kRounding);
    EXPECT_LE(r.x + 0.5 + halfWidth, image.width + kRounding);
    EXPECT_LE(r.y + 0.5 + halfHeight, image.height + kRounding);
  }
  return ResultsOf(*tool);
}

bool SameResults(const std::vector<NccResult>& a, const std::vector<NccResult>& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (a[i].x != b[i].x || a[i].y != b[i].y || a[i].angle != b[i].angle ||
        a[i].scale != b[i].scale || a[i].score != b[i].score) {
      return false;
    }
  }
  return true;
}

// Copies the pattern into the image with its top left pixel at (left, top): without what the border
// cuts, and without the zeros that a mask leaves out.
void Paste(const GreyImage& pattern, int left, int top, GreyImage& image, bool masked = false) {
  for (int y = std::max(-top, 0); y < std::min(pattern.height, image.height - top); ++y) {
    for (int x = std::max(-left, 0); x < std::min(pattern.width, image.width - left); ++x) {
      if (masked && pattern.rows[y][x] == 0) continue;
      image.rows[top + y][left + x] = pattern.rows[y][x];
    }
  }
}

// No search, over angles, over scales, and over both.
const SearchLimits kEveryKind[] = {{.minScore = 0.8,
                                    .angleMax = 0,
                                    .angleMin = 0,
                                    .scaleMax = 1,
                                    .scaleMin = 1,
                                    .rotate = false,
                                    .maxResults = 10},
                                   {0.8, 20, -20, 1, 1, true, 10},
                                   {0.8, 0, 0, 1.15, 0.85, false, 10},
                                   {0.8, 180, -180, 1.25, 0.8, true, 10}};

void ExpectExactCopy(const NccResult& r, const GreyImage& pattern, double left, double top) {
  EXPECT_EQ(r.score, 1.0);
  EXPECT_EQ(r.scale, 1.0);
  EXPECT_EQ(r.angle, 0.0);
  EXPECT_EQ(r.matchWidth, pattern.width);
  EXPECT_EQ(r.matchHeight, pattern.height);
  EXPECT_NEAR(r.x, left + pattern.width * 0.5 - 0.5, 0.02);
  EXPECT_NEAR(r.y, top + pattern.height * 0.5 - 0.5, 0.02);
}

}  // namespace

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

// Where neither angle nor scale is searched, the score is the formula's at the whole-pixel
// position.
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

// Whatever is searched, an exact copy scores 1 and is found as it is: at the border, too, but not
// beyond it.
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

// Templates that have no area between their pixels, and masks whose reduced levels are empty.
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

// Noise moves a fitted scale by less than a thousandth: that is the template's own size.
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

// At most the upper limit, then at least the lower one, whatever was searched.
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

// The sweep's steps are coarser than limits may be, and reach beyond them.
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

// Few pixels, or the host's choice, leave the full resolution as the only level.
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

// Angles half way between two steps of the coarsest level, where a few pixels are left.
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
