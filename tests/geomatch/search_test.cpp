#include "geomatch/search.h"

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>

#include "geomatch/quadric.h"
#include "geomatch/support/reference.h"
#include "geomatch/support/scenes.h"
#include "support/levels.h"

namespace quillon::test {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

// A fitted quadric may be so flat that its peak, not the position, depends on the last bits.
constexpr double kAngleTolerance = 0.02;

struct Case {
  GreyImage pattern, scene;
  double high = 80, low = 30;
  reference::GeoQuery query = {
      .minScore = 0.6, .greediness = 0.8, .anyAngle = false, .lowest = 0, .highest = 0};
  int start[2] = {-7, 12345};  // what the position holds before
};

// The whole search at every level of instructions against the definition.
void ExpectFoundAsDefined(const Case& c) {
  const reference::GeoModel model = reference::Teach(c.pattern, c.high, c.low);
  int expected[2] = {c.start[0], c.start[1]};
  const reference::GeoResult wanted = reference::Find(c.scene, model, c.query, expected);
  ForEachLevel([&](const Kernels& kernels) {
    Tool tool;
    ASSERT_TRUE(BuildGeoModel(kernels, c.pattern, c.high, c.low, *tool));
    GeoPosition position = {c.start[0], c.start[1]};
    const double angle = FindGeoModel(kernels, c.scene, tool.Taught(),
                                      {.minScore = c.query.minScore,
                                       .greediness = c.query.greediness,
                                       .anyAngle = c.query.anyAngle,
                                       .lowest = c.query.lowest,
                                       .highest = c.query.highest},
                                      position);
    EXPECT_EQ(position.x, expected[0]);
    EXPECT_EQ(position.y, expected[1]);
    EXPECT_NEAR(angle, wanted.angle, kAngleTolerance);
  });
}

// Random templates and scenes: shapes, noise, both; the template in the scene or not; every mode.
void MakeRandomCase(uint32_t seed, Case& c) {
  Random random(seed);
  const int width = random.Within(3, 60), height = random.Within(3, 60);
  if (seed % 5 == 0) {
    Fill(c.pattern, width, height, kContents[random.Within(0, 4)], seed);
  } else {
    DrawShapes(c.pattern, width, height, seed);
  }
  const int sceneWidth = random.Within(3, 150), sceneHeight = random.Within(3, 110);
  if (seed % 7 == 0) {
    Fill(c.scene, sceneWidth, sceneHeight, kContents[random.Within(0, 4)], seed + 1);
  } else {
    DrawShapes(c.scene, sceneWidth, sceneHeight, seed + 1);
  }
  c.query.anyAngle = random.Within(0, 2) > 0;
  c.query.lowest = -random.Within(0, 200);
  c.query.highest = c.query.lowest + random.Within(0, 300);
  if (random.Within(0, 3) > 0) {
    const double degrees = c.query.anyAngle ? c.query.lowest / 2 + c.query.highest / 2 : 0;
    Place(c.pattern,
          {.x = sceneWidth * random.Unit(),
           .y = sceneHeight * random.Unit(),
           .degrees = degrees,
           .gain = 0.4 + 1.4 * random.Unit()},
          c.scene);
  }
  if (random.Within(0, 2) == 0) AddNoise(c.scene, 15 * random.Unit(), random);
  FillPadding(c.scene, kPadding);
  c.high = random.Within(20, 200);
  c.low = c.high * random.Unit();
  c.query.minScore = random.Within(0, 10) / 10.0;
  c.query.greediness = random.Within(0, 9) / 10.0;
  c.start[0] = random.Within(-30, 60);
  c.start[1] = random.Within(-30, 60);
}

}  // namespace

TEST(GeoSearch, RandomScenesAreFoundAsDefined) {
  constexpr uint32_t kCases = 2500;
  for (uint32_t seed = 1; seed <= kCases; ++seed) {
    SCOPED_TRACE(seed);
    Case c;
    MakeRandomCase(seed, c);
    ExpectFoundAsDefined(c);
    if (testing::Test::HasFailure()) return;
  }
}

// Deeper pyramids, and a match that is where it was put.
TEST(GeoSearch, PlacedTemplatesAreFoundThroughThePyramid) {
  constexpr struct { int side, levels; } kSides[] = {{24, 1}, {60, 2}, {96, 3}, {130, 4}, {280, 5}};
  for (const auto& [side, levels] : kSides) {
    for (double degrees : {0.0, -12.5, 31.0}) {
      SCOPED_TRACE(testing::Message() << side << ", " << degrees);
      Case c;
      DrawShapes(c.pattern, side, side, static_cast<uint32_t>(side));
      DrawShapes(c.scene, 3 * side, 2 * side, 99);
      const int x = side + 5, y = side - 3;
      Place(c.pattern, {.x = double(x), .y = double(y), .degrees = degrees}, c.scene);
      c.query = {.minScore = 0.5,
                 .greediness = 0.7,
                 .anyAngle = degrees != 0,
                 .lowest = -45,
                 .highest = 45};
      ExpectFoundAsDefined(c);

      Tool tool;
      ASSERT_TRUE(BuildGeoModel(BestKernels(), c.pattern, c.high, c.low, *tool));
      EXPECT_GE(tool.Taught().topLevel, levels - 1);
      GeoPosition position = {-1, -1};
      const double angle = FindGeoModel(BestKernels(), c.scene, tool.Taught(),
                                        {.minScore = c.query.minScore,
                                         .greediness = c.query.greediness,
                                         .anyAngle = c.query.anyAngle,
                                         .lowest = -45,
                                         .highest = 45},
                                        position);
      // A finer level corrects by one pixel at most, so a turned template may end beside its place.
      const int reach = degrees == 0 ? 1 : 1 + side / 40;
      EXPECT_NEAR(position.x, x, reach);
      EXPECT_NEAR(position.y, y, reach);
      EXPECT_NEAR(angle, degrees, 2);
    }
  }
}

// A chessboard of templates has many equal scores; flat ground has none.
TEST(GeoSearch, TiesAndFlatGroundFollowRasterOrder) {
  Case c;
  DrawShapes(c.pattern, 16, 16, 5);
  c.scene.Create(150, 100);
  std::memset(c.scene.bits, 90, static_cast<size_t>(c.scene.imageSize));
  for (const auto& [minScore, greediness] : {std::pair{0.5, 0.5}, {0.9, 0.9}, {0.0, 0.0}}) {
    c.query.minScore = minScore;
    c.query.greediness = greediness;
    ExpectFoundAsDefined(c);  // nothing there
    for (int y = 20; y < 90; y += 30) {
      for (int x = 20; x < 140; x += 31) {
        Place(c.pattern, {.x = double(x), .y = double(y), .degrees = 0}, c.scene);
      }
    }
    ExpectFoundAsDefined(c);
    std::memset(c.scene.bits, 90, static_cast<size_t>(c.scene.imageSize));
  }
}

TEST(GeoSearch, NumbersOutsideTheirRangesFollowTheFormulas) {
  constexpr double kNumbers[] = {0, 0.5, 1, 1.5, -0.3, 1e300, -1e300, INFINITY, -INFINITY, kNan};
  Case c;
  DrawShapes(c.pattern, 20, 17, 8);
  DrawShapes(c.scene, 60, 50, 9);
  Place(c.pattern, {.x = 31, .y = 22, .degrees = 0}, c.scene);
  for (bool anyAngle : {false, true}) {
    for (double minScore : kNumbers) {
      for (double greediness : kNumbers) {
        SCOPED_TRACE(testing::Message() << minScore << ", " << greediness);
        c.query = {.minScore = minScore,
                   .greediness = greediness,
                   .anyAngle = anyAngle,
                   .lowest = -20,
                   .highest = 20};
        ExpectFoundAsDefined(c);
      }
    }
  }
}

TEST(GeoSearch, AnglesOutsideTheirRangesAreClampedOrNotTried) {
  Case c;
  DrawShapes(c.pattern, 20, 17, 8);
  DrawShapes(c.scene, 60, 50, 9);
  Place(c.pattern, {.x = 31, .y = 22, .degrees = 15}, c.scene);
  constexpr double kLimits[][2] = {{10, -10}, {-1e9, 1e9},           {400, 500},
                                   {15, 15},  {-INFINITY, INFINITY}, {-5, 3}};
  for (const auto& [lowest, highest] : kLimits) {
    c.query = {
        .minScore = 0.5, .greediness = 0.5, .anyAngle = true, .lowest = lowest, .highest = highest};
    ExpectFoundAsDefined(c);
  }
  c.query.lowest = kNan;
  ExpectFoundAsDefined(c);
}

// Wherever the position pointed before, and however small the image.
TEST(GeoSearch, StalePositionsAndTinyImagesAreSafe) {
  constexpr int kStarts[][2] = {{INT_MIN, INT_MAX},
                                {INT_MAX, INT_MIN},
                                {INT_MIN, INT_MIN},
                                {INT_MAX, INT_MAX},
                                {-1, -1},
                                {-9, 5},
                                {0, 0},
                                {1 << 30, 1 << 30}};
  constexpr int kSizes[][2] = {{1, 1}, {2, 9}, {9, 2}, {3, 3}, {5, 40}, {40, 5}, {33, 33}};
  for (const auto& start : kStarts) {
    for (const auto& size : kSizes) {
      for (const auto& side : {3, 12, 40}) {
        SCOPED_TRACE(testing::Message() << start[0] << ", " << start[1] << ": " << size[0] << " x "
                                        << size[1] << " in " << side);
        Case c;
        DrawShapes(c.pattern, side, side, 3);
        Fill(c.scene, size[0], size[1], Content::kNoise);
        c.query = {.minScore = 0.3,
                   .greediness = 0.5,
                   .anyAngle = side != 12,
                   .lowest = -30,
                   .highest = 30};
        std::copy(start, start + 2, c.start);
        ExpectFoundAsDefined(c);
      }
    }
  }
}

TEST(GeoSearch, ModelsWithoutPointsFindNothing) {
  Case c;
  Fill(c.pattern, 40, 40, Content::kFlat);
  DrawShapes(c.scene, 90, 80, 4);
  for (bool anyAngle : {false, true}) {
    c.query.anyAngle = anyAngle;
    c.query.lowest = 5;
    c.query.highest = 9;
    ExpectFoundAsDefined(c);
  }
}

TEST(GeoQuadric, PeaksAgreeWithTheNormalEquations) {
  Random random(4);
  for (int trial = 0; trial < 3000; ++trial) {
    const double degrees = 0.05 + 3 * random.Unit();
    const bool peaked = trial % 3 > 0;  // else any 27 numbers: saddles, edges of the box
    const double at[3] = {random.Unit() - 0.5, random.Unit() - 0.5, 2 * random.Unit() - 1};
    double scores[3][3][3];
    for (int w = 0; w < 3; ++w) {
      for (int v = 0; v < 3; ++v) {
        for (int u = 0; u < 3; ++u) {
          const double du = u - 1 - at[0], dv = v - 1 - at[1], dw = w - 1 - at[2];
          scores[w][v][u] = peaked ? 0.9 - 0.2 * du * du - 0.1 * dv * dv - 0.15 * dw * dw +
                                         0.05 * du * dv + 0.04 * random.Unit()
                                   : random.Unit();
        }
      }
    }
    const double angle = degrees * SolveGeoQuadric(FitGeoQuadric(scores), degrees);
    ASSERT_NEAR(angle, reference::PeakAngle(scores, degrees), kAngleTolerance) << trial;
  }
  const double same[3][3][3] = {};
  EXPECT_EQ(SolveGeoQuadric(FitGeoQuadric(same), 2), 0) << "nothing to prefer: stay";
}

}  // namespace quillon::test
