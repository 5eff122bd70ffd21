#include <cmath>
#include <limits>
#include <memory>

#include "geomatch/edges.h"
#include "geomatch/support/reference.h"
#include "geomatch/support/scenes.h"
#include "pyramid/pyramid_kernels.h"
#include "support/levels.h"

namespace quillon::test {
namespace {

std::string Difference(const GeoTaughtTool& tool, const reference::GeoModel& expected) {
  std::ostringstream message;
  if (tool.topLevel != expected.topLevel) {
    message << "top level " << tool.topLevel << " instead of " << expected.topLevel;
    return message.str();
  }
  for (size_t k = 0; k < expected.levels.size(); ++k) {
    const GeoModelLevel& level = tool.levels[k];
    const reference::GeoLevel& wanted = expected.levels[k];
    const int count = static_cast<int>(wanted.points.size());
    if (level.count != count || level.width != wanted.width || level.height != wanted.height ||
        level.referenceX != wanted.referenceX || level.referenceY != wanted.referenceY ||
        level.radius != wanted.radius) {
      message << "level " << k << ": " << level.count << " points, radius " << level.radius
              << " instead of " << count << ", " << wanted.radius;
      return message.str();
    }
    for (int i = 0; i < count; ++i) {
      const reference::GeoPoint& p = wanted.points[static_cast<size_t>(i)];
      if (level.x[i] == p.x && level.y[i] == p.y && level.gradientX[i] == p.gx &&
          level.gradientY[i] == p.gy && level.inverseMagnitude[i] == p.inverse) {
        continue;
      }
      message << "level " << k << ", point " << i << ": (" << level.x[i] << ", " << level.y[i]
              << ") instead of (" << p.x << ", " << p.y << ")";
      return message.str();
    }
  }
  return "";
}

void ExpectTaughtAsDefined(const Kernels& kernels, const GreyImage& image, double high,
                           double low) {
  Tool tool;
  ASSERT_TRUE(BuildGeoModel(kernels, image, high, low, *tool));
  ASSERT_EQ(Difference(tool.Taught(), reference::Teach(image, high, low)), "")
      << image.width << " x " << image.height << ", " << high << ", " << low;
}

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

}  // namespace

TEST(GeoTeach, MatchesTheDefinitionAtEverySizeAndThreshold) {
  constexpr double kThresholds[][2] = {{60, 20},
                                       {200, 199.5},
                                       {20, 60},
                                       {0, 0},
                                       {-5, -7},
                                       {255, 254},
                                       {255.5, 0},
                                       {kNan, 30},
                                       {30, kNan},
                                       {1, 1},
                                       {INFINITY, -INFINITY}};
  ForEachLevelAndImage([&](const Kernels& kernels, const GreyImage& image) {
    for (const auto& [high, low] : kThresholds) {
      ExpectTaughtAsDefined(kernels, image, high, low);
    }
  });
}

TEST(GeoTeach, MatchesTheDefinitionOnShapesAtEveryLevelOfThePyramid) {
  ForEachLevel([](const Kernels& kernels) {
    uint32_t seed = 1;
    for (int side : {14, 15, 16, 31, 32, 47, 64, 96, 130, 256, 512}) {
      GreyImage image;
      DrawShapes(image, side + side % 3, side, seed++);
      ExpectTaughtAsDefined(kernels, image, 80, 30);
    }
  });
}

// The integer form of the sector limits against the arctangent, for every gradient there is. In the
// row above every second pixel is stronger: what is dropped tells what was compared.
TEST(GeoTeach, SectorsOfEveryGradientAreTheArctangents) {
  constexpr int kMost = 4 * 255, kCount = 2 * kMost + 1;
  constexpr int kRow = 5, kStronger = 9;
  const std::vector<int32_t> row(kCount + 2, kRow), below(kCount + 2, 0);
  std::vector<int32_t> above(kCount + 2, 0);
  for (size_t i = 0; i < above.size(); i += 2) above[i] = kStronger;
  std::vector<PackedVector> gradients(kCount);
  std::vector<int32_t> classes(kCount);
  ForEachLevel([&](const Kernels& kernels) {
    int wrong = 0;
    for (int gy = -kMost; gy <= kMost; ++gy) {
      for (int i = 0; i < kCount; ++i) gradients[i] = PackVector(i - kMost, gy);
      kernels.geomatch.ClassifyRow(gradients.data(), above.data() + 1, row.data() + 1,
                                   below.data() + 1, {.weak = 1, .strong = kRow}, classes.data(),
                                   kCount);
      for (int i = 0; i < kCount; ++i) {
        const int gx = i - kMost;
        const double a = gx == 0 ? 0 : std::atan(static_cast<double>(gy) / gx) * 57.29577950560105;
        const int ahead = a > 67.5 ? above[i + 1] : a > 22.5 ? above[i + 2] : kRow;
        wrong += (classes[i] == kStrongEdge) != (ahead <= kRow);
      }
    }
    EXPECT_EQ(wrong, 0);
  });
}

TEST(GeoTeach, CountsOfLevelsFollowTheSize) {
  constexpr struct {
    int width, height, taught;
  } kCases[] = {{15, 14, 0}, {15, 15, 0}, {14, 16, 0}, {32, 32, 1}, {512, 512, 5}, {2, 300, 0}};
  for (const auto& [width, height, taught] : kCases) {
    GreyImage flat;
    Fill(flat, width, height, Content::kFlat);
    Tool tool;
    ASSERT_TRUE(BuildGeoModel(BestKernels(), flat, 50, 20, *tool));
    EXPECT_EQ(tool.Taught().topLevel, taught) << "no points: one level fewer, if there is one";
    EXPECT_EQ(tool->model->count, 0);
  }
}

TEST(GeoTeach, TeachingAgainReplacesTheModel) {
  GreyImage large, small;
  DrawShapes(large, 200, 150, 1);
  DrawShapes(small, 20, 18, 2);
  Tool tool;
  ASSERT_TRUE(BuildGeoModel(BestKernels(), large, 80, 30, *tool));
  ASSERT_TRUE(BuildGeoModel(BestKernels(), small, 80, 30, *tool));
  EXPECT_EQ(Difference(tool.Taught(), reference::Teach(small, 80, 30)), "");
  for (int k = 2; k <= kMaxPyramidLevel; ++k) EXPECT_EQ(tool.Taught().levels[k].count, 0);
}

}  // namespace quillon::test
