#include "ncc/fit.h"

#include <cmath>
#include <memory>

#include "ncc/model.h"
#include "support/levels.h"
#include "support/scenes.h"

namespace quillon::test {
namespace {

// The correlation at a pose, from bilinear samples of the template in double precision.
template <class Pixel>
double PlainScore(const CImage<Pixel>& image, const NccTool& tool, const Pose& pose) {
  const NccLevel& pattern = tool.levels[0];
  const double c = std::cos(pose.degrees * kRadians) / pose.scale;
  const double s = std::sin(pose.degrees * kRadians) / pose.scale;
  double n = 0, sumI = 0, sumT = 0, sumII = 0, sumTT = 0, sumIT = 0;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      const double dx = x + 0.5 - pose.x, dy = y + 0.5 - pose.y;
      const double u = dx * c + dy * s + (pattern.width - 1) * 0.5;
      const double v = dy * c - dx * s + (pattern.height - 1) * 0.5;
      if (u < 0 || v < 0 || u > pattern.width - 1 || v > pattern.height - 1) continue;
      const int left = static_cast<int>(u), top = static_cast<int>(v);
      const int right = std::min(left + 1, pattern.width - 1);
      const int bottom = std::min(top + 1, pattern.height - 1);
      const double fu = u - left, fv = v - top;
      if (tool.maskEnabled) {
        uint8_t* const* mask = tool.masks[0].rows.data();
        if (mask[top][left] | mask[top][right] | mask[bottom][left] | mask[bottom][right]) continue;
      }
      for (int plane = 0; plane < pattern.planes; ++plane) {
        uint8_t* const* rows = pattern.Plane(plane);
        const double t = (rows[top][left] * (1 - fu) + rows[top][right] * fu) * (1 - fv) +
                         (rows[bottom][left] * (1 - fu) + rows[bottom][right] * fu) * fv;
        const double i = image.rows[y][x * pattern.planes + plane];
        ++n, sumI += i, sumT += t, sumII += i * i, sumTT += t * t, sumIT += i * t;
      }
    }
  }
  return (sumIT - sumI * sumT / n) /
         std::sqrt((sumII - sumI * sumI / n) * (sumTT - sumT * sumT / n));
}

template <class Pixel>
void ExpectBestPose(const CImage<Pixel>& pattern, const CImage<Pixel>& scene, const Truth& truth,
                    bool masked, const FitFreedom& freedom) {
  NccTool tool;
  ASSERT_TRUE(BuildNccModel(BestKernels(), pattern, masked, tool));
  ForEachLevel([&](const Kernels& kernels) {
    SearchImage opened;
    Patch patch;
    PoseFit fit;
    ASSERT_TRUE(OpenSearchImage(kernels, scene, opened));
    ASSERT_TRUE(patch.CutPixels(kernels, opened, 0, {0, 0, scene.width, scene.height}));
    ASSERT_TRUE(fit.Open(kernels, tool.levels[0], masked ? &tool.masks[0] : nullptr, freedom));
    Pose pose = {truth.x + 0.5 + 0.9, truth.y + 0.5 - 0.7,
                 freedom.turn ? truth.angle + 1.5 : truth.angle,
                 freedom.scale ? truth.scale * 1.02 : truth.scale};
    double score = 0;
    ASSERT_TRUE(fit.Run(patch, pose, score));
    EXPECT_NEAR(pose.x, truth.x + 0.5, 0.05);
    EXPECT_NEAR(pose.y, truth.y + 0.5, 0.05);
    EXPECT_NEAR(pose.degrees, truth.angle, 0.2);  // 0.06 pixels at the corner
    EXPECT_NEAR(pose.scale, truth.scale, 0.002);
    if (!freedom.moveOnly) {
      EXPECT_NEAR(score, PlainScore(scene, tool, pose), 1e-6);
    } else {
      EXPECT_GT(score, 0.98);
    }
  });
}

}  // namespace

TEST(NccFit, FindsThePoseAndItsCorrelation) {
  struct Case {
    FitFreedom freedom;
    SceneSpec spec;
  };
  const Case cases[] = {
      {{.moveOnly = true}, {.templateWidth = 41, .templateHeight = 30, .seed = 71}},
      {{}, {.templateWidth = 41, .templateHeight = 30, .angleMin = 9, .angleMax = 9, .seed = 72}},
      {{.turn = true, .degreesMin = -180, .degreesMax = 180},
       {.templateWidth = 40, .templateHeight = 33, .angleMin = -90, .angleMax = 90, .seed = 73}},
      {{.turn = true,
        .scale = true,
        .degreesMin = -180,
        .degreesMax = 180,
        .scaleMin = 0.5,
        .scaleMax = 2},
       {.templateWidth = 50,
        .templateHeight = 35,
        .angleMin = 100,
        .angleMax = 170,
        .scaleMin = 0.8,
        .scaleMax = 1.2,
        .seed = 74}}};
  for (Case c : cases) {
    SCOPED_TRACE(c.spec.seed);
    c.spec.width = 110, c.spec.height = 90;
    ForEachKind(c.spec,
                [&](const auto& pattern, const auto& scene, const Truth& truth, bool masked) {
                  ExpectBestPose(pattern, scene, truth, masked, c.freedom);
                });
  }
}

// A limit that is reached is kept, and the rest is fitted without it.
TEST(NccFit, StaysWithinItsLimits) {
  GreyImage pattern, scene;
  const Truth truth = MakeScene({.templateWidth = 48,
                                 .templateHeight = 48,
                                 .width = 120,
                                 .height = 100,
                                 .angleMin = 4,
                                 .angleMax = 4,
                                 .seed = 75},
                                pattern, scene)
                          .at(0);
  NccTool tool;
  ASSERT_TRUE(BuildNccModel(BestKernels(), pattern, false, tool));
  SearchImage opened;
  Patch patch;
  PoseFit fit;
  ASSERT_TRUE(OpenSearchImage(BestKernels(), scene, opened));
  ASSERT_TRUE(patch.CutPixels(BestKernels(), opened, 0, {0, 0, scene.width, scene.height}));
  ASSERT_TRUE(fit.Open(BestKernels(), tool.levels[0], nullptr,
                       {.turn = true, .degreesMin = -3, .degreesMax = 3}));
  Pose pose = {truth.x + 0.5, truth.y + 0.5, 2, 1};
  double score = 0;
  ASSERT_TRUE(fit.Run(patch, pose, score));
  EXPECT_EQ(pose.degrees, 3);
  EXPECT_NEAR(pose.x, truth.x + 0.5, 0.2);
}

// Nothing to fit to: an image that is too small, flat pixels, or a template without area.
TEST(NccFit, HasNoScoreWhereNothingCanBeFitted) {
  GreyImage pattern, noise, flat, line;
  Fill(pattern, 20, 20, Content::kNoise);
  Fill(noise, 60, 60, Content::kNoise, 5);
  Fill(flat, 60, 60, Content::kFlat);
  Fill(line, 20, 1, Content::kNoise);
  struct Case {
    const GreyImage* pattern;
    const GreyImage* image;
    Pose pose;
  };
  for (const Case& c : {Case{&noise, &pattern, {10, 10}},
                        {&pattern, &flat, {30, 30}},
                        {&flat, &noise, {30, 30}},
                        {&line, &noise, {30, 30}}}) {
    NccTool tool;
    ASSERT_TRUE(BuildNccModel(BestKernels(), *c.pattern, false, tool));
    for (bool moveOnly : {false, true}) {
      SearchImage opened;
      Patch patch;
      PoseFit fit;
      Pose pose = c.pose;
      double score = 0;
      ASSERT_TRUE(OpenSearchImage(BestKernels(), *c.image, opened));
      ASSERT_TRUE(patch.CutPixels(BestKernels(), opened, 0, {0, 0, 60, 60}));
      ASSERT_TRUE(fit.Open(
          BestKernels(), tool.levels[0], nullptr,
          {.turn = !moveOnly, .moveOnly = moveOnly, .degreesMin = -180, .degreesMax = 180}));
      ASSERT_TRUE(fit.Run(patch, pose, score));
      EXPECT_EQ(score, -1);
      EXPECT_EQ(pose.x, c.pose.x);
    }
  }
}

}  // namespace quillon::test
