#include "ncc/climb.h"

#include <cmath>

#include "ncc/model.h"
#include "support/levels.h"
#include "support/scenes.h"

namespace quillon::test {
namespace {

// The correlation of the template's pixels with bilinear samples of the image, in double precision.
template <class Pixel>
double PlainScore(const CImage<Pixel>& image, const NccTool& tool, const Pose& pose) {
  const NccLevel& pattern = tool.levels[0];
  const double c = pose.scale * std::cos(pose.degrees * kRadians);
  const double s = pose.scale * std::sin(pose.degrees * kRadians);
  double n = 0, sumI = 0, sumT = 0, sumII = 0, sumTT = 0, sumIT = 0;
  for (int y = 0; y < pattern.height; ++y) {
    for (int x = 0; x < pattern.width; ++x) {
      if (tool.maskEnabled && tool.masks[0].rows[y][x] != 0) continue;
      const double u = x + 0.5 - pattern.width * 0.5, v = y + 0.5 - pattern.height * 0.5;
      const double atX = std::clamp(pose.x + u * c - v * s - 0.5, 0.0, image.width - 1.0);
      const double atY = std::clamp(pose.y + u * s + v * c - 0.5, 0.0, image.height - 1.0);
      const int left = static_cast<int>(atX), top = static_cast<int>(atY);
      const int right = std::min(left + 1, image.width - 1);
      const int bottom = std::min(top + 1, image.height - 1);
      const double fx = atX - left, fy = atY - top;
      for (int plane = 0; plane < pattern.planes; ++plane) {
        const auto pixel = [&](int row, int column) {
          return static_cast<double>(image.rows[row][column * pattern.planes + plane]);
        };
        const double i = (pixel(top, left) * (1 - fx) + pixel(top, right) * fx) * (1 - fy) +
                         (pixel(bottom, left) * (1 - fx) + pixel(bottom, right) * fx) * fy;
        const double t = pattern.Plane(plane)[y][x];
        ++n, sumI += i, sumT += t, sumII += i * i, sumTT += t * t, sumIT += i * t;
      }
    }
  }
  return (sumIT - sumI * sumT / n) /
         std::sqrt((sumII - sumI * sumI / n) * (sumTT - sumT * sumT / n));
}

bool OpenPatch(const Kernels& kernels, const SearchImage& opened, Patch& patch) {
  return patch.CutPixels(kernels, opened, 0, {0, 0, opened.width, opened.height}) &&
         patch.AddCells(kernels);
}

template <class Pixel>
void ExpectClimb(const CImage<Pixel>& pattern, const CImage<Pixel>& scene, const Truth& truth,
                 bool masked, const CellReach& reach) {
  NccTool tool;
  ASSERT_TRUE(BuildNccModel(BestKernels(), pattern, masked, tool));
  const NccMask* mask = masked ? &tool.masks[0] : nullptr;
  const Pose point = {truth.x + 0.5 + 0.8, truth.y + 0.5 - 0.6, truth.angle + 0.7 * reach.degrees,
                      truth.scale + 0.7 * reach.scale};
  Pose first;
  double firstScore = 0;
  ForEachLevel([&](const Kernels& kernels) {
    SearchImage opened;
    Patch patch;
    PoseClimb climb;
    ASSERT_TRUE(OpenSearchImage(kernels, scene, opened));
    ASSERT_TRUE(OpenPatch(kernels, opened, patch));
    ASSERT_TRUE(climb.Open(kernels, tool.levels[0], mask, reach));
    Pose pose = point;
    const double score = climb.Run(patch, point, 0, pose);
    EXPECT_NEAR(score, PlainScore(scene, tool, pose), 1e-4);
    EXPECT_GT(score, PlainScore(scene, tool, point));
    EXPECT_NEAR(pose.x, truth.x + 0.5, 0.25);
    EXPECT_NEAR(pose.y, truth.y + 0.5, 0.25);
    EXPECT_NEAR(pose.degrees, truth.angle, 0.8);
    EXPECT_NEAR(pose.scale, truth.scale, 0.02);
    if (&kernels == AvailableKernels()[0]) first = pose, firstScore = score;
    EXPECT_EQ(pose.x, first.x);
    EXPECT_EQ(pose.degrees, first.degrees);
    EXPECT_EQ(score, firstScore);
  });
}

}  // namespace

TEST(NccClimb, ReachesTheMatchOfItsCell) {
  struct Case {
    CellReach reach;
    SceneSpec spec;
  };
  for (Case c :
       {Case{{.pixels = 1}, {.templateWidth = 41, .templateHeight = 30, .seed = 81}},
        {{.pixels = 1, .degrees = 3},
         {.templateWidth = 33, .templateHeight = 40, .angleMin = -90, .angleMax = 90, .seed = 82}},
        {{.pixels = 1, .scale = 0.05},
         {.templateWidth = 40, .templateHeight = 40, .scaleMin = 0.9, .scaleMax = 1.1, .seed = 83}},
        {{.pixels = 1, .degrees = 3, .scale = 0.04},
         {.templateWidth = 50,
         .templateHeight = 35,
         .angleMin = 100,
         .angleMax = 170,
         .scaleMin = 0.8,
         .scaleMax = 1.2,
         .seed = 84}},
        // So large that its factors' products are added up in order.
        {{.pixels = 1, .degrees = 0.3, .scale = 0.004},
         {.templateWidth = 340,
         .templateHeight = 330,
         .angleMin = 5,
         .angleMax = 9,
         .seed = 86}}}) {
    SCOPED_TRACE(c.spec.seed);
    c.spec.width = c.spec.templateWidth + 110, c.spec.height = c.spec.templateHeight + 110;
    ForEachKind(c.spec, [&](const auto& pattern, const auto& scene, const Truth& truth,
                            bool masked) { ExpectClimb(pattern, scene, truth, masked, c.reach); });
  }
}

// Outside the cell lies a better pose, but it is another's; a pose without hope is not pursued.
TEST(NccClimb, StaysInItsCell) {
  GreyImage pattern, scene;
  const Truth truth =
      MakeScene({.templateWidth = 40, .templateHeight = 40, .width = 100, .height = 90, .seed = 85},
                pattern, scene)
          .at(0);
  NccTool tool;
  ASSERT_TRUE(BuildNccModel(BestKernels(), pattern, false, tool));
  SearchImage opened;
  Patch patch;
  PoseClimb climb;
  ASSERT_TRUE(OpenSearchImage(BestKernels(), scene, opened));
  ASSERT_TRUE(OpenPatch(BestKernels(), opened, patch));
  ASSERT_TRUE(climb.Open(BestKernels(), tool.levels[0], nullptr, {.pixels = 0.5, .degrees = 1}));
  const Pose point = {truth.x + 0.5 - 1.25, truth.y + 0.5, 0, 1};
  Pose pose = point;
  const double score = climb.Run(patch, point, 0, pose);
  EXPECT_EQ(pose.x, point.x + 0.5);
  EXPECT_LE(std::abs(pose.y - point.y), 0.5);
  EXPECT_LE(std::abs(pose.degrees), 1);
  EXPECT_GT(score, PlainScore(scene, tool, point));
  pose = point;
  climb.Run(patch, point, 2, pose);
  EXPECT_EQ(pose.x, point.x);
}

// No score from flat pixels or templates, none from the opposite of a template, and a number that
// is finite at the border, beyond it and on a single pixel.
TEST(NccClimb, OfOddImages) {
  GreyImage pattern, noise, flat, line, negative, dot;
  Fill(pattern, 20, 20, Content::kNoise);
  Fill(noise, 60, 60, Content::kNoise, 5);
  Fill(flat, 60, 60, Content::kFlat);
  Fill(line, 20, 1, Content::kNoise);
  Fill(dot, 1, 1, Content::kNoise);
  negative.Create(20, 20);
  for (int y = 0; y < 20; ++y) {
    for (int x = 0; x < 20; ++x)
      negative.rows[y][x] = static_cast<uint8_t>(255 - pattern.rows[y][x]);
  }
  struct Case {
    const GreyImage* pattern;
    const GreyImage* image;
    Pose pose;
    bool scores;
  };
  for (const Case& c : {Case{&pattern, &flat, {30, 30}, false},
                        {&flat, &noise, {30, 30}, false},
                        {&pattern, &negative, {10, 10}, false},
                        {&pattern, &dot, {0.5, 0.5}, false},
                        {&pattern, &pattern, {10, 10}, true},
                        {&pattern, &pattern, {11, 9.5}, true},
                        {&line, &line, {10, 0.5}, true},
                        {&pattern, &noise, {-500, 4000}, false}}) {
    NccTool tool;
    ASSERT_TRUE(BuildNccModel(BestKernels(), *c.pattern, false, tool));
    SearchImage opened;
    Patch patch;
    PoseClimb climb;
    ASSERT_TRUE(OpenSearchImage(BestKernels(), *c.image, opened));
    ASSERT_TRUE(OpenPatch(BestKernels(), opened, patch));
    ASSERT_TRUE(climb.Open(BestKernels(), tool.levels[0], nullptr,
                           {.pixels = 1, .degrees = 2, .scale = 0.1}));
    Pose pose = c.pose;
    const double score = climb.Run(patch, c.pose, 0, pose);
    EXPECT_EQ(score > -1, c.scores) << score;
    for (double value : {pose.x, pose.y, pose.degrees, pose.scale}) {
      EXPECT_TRUE(std::isfinite(value));
    }
  }
}

}  // namespace quillon::test
