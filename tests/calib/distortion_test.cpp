#include "calib/distortion.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>

#include "calib/distortion_reference.h"
#include "calib/polynomial.h"
#include "support/levels.h"
#include "support/temporary_file.h"

namespace quillon::test {
namespace {

// The points of a side x side grid with the given step around a centre, through a lens that moves a
// point at radius r by strength * r^2 of itself.
std::vector<int32_t> GridThroughLens(int side, int step, int centreX, int centreY,
                                     double strength) {
  std::vector<int32_t> points;
  for (int row = 0; row < side; ++row) {
    for (int column = 0; column < side; ++column) {
      const double x = (column - (side - 1) / 2) * step, y = (row - (side - 1) / 2) * step;
      const double bend = 1 + strength * (x * x + y * y);
      points.push_back(static_cast<int32_t>(std::lround(centreX + x * bend)));
      points.push_back(static_cast<int32_t>(std::lround(centreY + y * bend)));
    }
  }
  return points;
}

// Pitch and pixel size for a step of `pixels`.
GridPitch Step(int pixels) {
  const auto pitch = static_cast<float>(pixels);
  return {pitch, pitch, 10000.0f, 10000.0f};
}

}  // namespace

TEST(Distortion, FitsKnownCubicsToAMillionthOfAPixel) {
  struct Case {
    int side, width, height;
  };
  for (const Case& c : {Case{5, 640, 480}, {21, 4096, 3072}, {7, 30000, 30000}}) {
    // A cubic whose values at the grid are whole, so that the points can be exact.
    const int step = std::min(c.width, c.height) / (c.side + 1);
    GreyImage image;
    std::vector<int32_t> points;
    for (int row = 0; row < c.side; ++row) {
      for (int column = 0; column < c.side; ++column) {
        const int i = column - (c.side - 1) / 2, j = (c.side - 1) / 2 - row;
        points.push_back(c.width / 2 + step * i + i * j + 2 * i * i - i * j * j);
        points.push_back(c.height / 2 - (step * j + j * j * j - i * i + i * i * j));
      }
    }
    ASSERT_TRUE(BuildDistortionModel(image, points.data(), c.side * c.side, Step(step), nullptr));
    double worst = 0;
    for (int k = 0; k < c.side * c.side; ++k) {
      const int half = (c.side - 1) / 2;
      const auto at =
          reference::Evaluate(image, (k % c.side - half) * step, (half - k / c.side) * step);
      worst =
          std::max({worst, std::fabs(at[0] - points[2 * k]), std::fabs(at[1] - points[2 * k + 1])});
    }
    EXPECT_LT(worst, 1e-6) << c.side << " points a side on " << c.width << " x " << c.height;
    free(image.distortionCoefficients);
    free(image.distortionCoefficientRows);
    image.distortionCoefficients = nullptr;
    image.distortionCoefficientRows = nullptr;
  }
}

// On nine points u^3 and u differ by nothing but a factor: of all fits, the smallest coefficients.
TEST(Distortion, NinePointsTakeTheFitOfLeastNorm) {
  GreyImage image;
  image.Create(400, 400);
  auto points = GridThroughLens(3, 100, 200, 200, 0);
  ASSERT_TRUE(BuildDistortionModel(image, points.data(), 9, {1, 1, 100, 100}, nullptr));
  EXPECT_EQ(image.xMin, 100);
  EXPECT_EQ(image.xMax, 300);
  EXPECT_EQ(image.centreX, 200);
  for (int k = 0; k < 9; ++k) {
    const auto at = reference::Evaluate(image, (k % 3 - 1) * 100, (1 - k / 3) * 100);
    EXPECT_NEAR(at[0], points[2 * static_cast<size_t>(k)], 1e-6);
    EXPECT_NEAR(at[1], points[2 * static_cast<size_t>(k) + 1], 1e-6);
  }
  // x = a u + b u^3 with a + 10000 b = 1 and least a^2 + b^2.
  EXPECT_NEAR(image.distortionCoefficientRows[8][0], 1e4 / (1 + 1e8), 1e-12);
  EXPECT_NEAR(image.distortionCoefficientRows[1][0], 1 / (1 + 1e8), 1e-12);
}

TEST(Distortion, CorrectsEveryPixelThroughItsMap) {
  GreyImage image;
  for (double strength : {-4e-6, 0.0, 3e-6}) {  // barrel, none, pincushion
    for (const Size& size : {Size{200, 160}, {203, 161}, {60, 50}, {640, 480}}) {
      Fill(image, size.width, size.height, Content::kNoise);
      auto points = GridThroughLens(5, 40, size.width / 2, size.height / 2, strength);
      ASSERT_TRUE(BuildDistortionModel(image, points.data(), 25, Step(40), nullptr));
      EXPECT_FALSE(ApplyDistortionMap(BestKernels(), image)) << "there is no map yet";
      BuildDistortionMap(image);
      ASSERT_TRUE(image.distortionMap);
      const auto expected = reference::CorrectDistortion(image);
      const std::vector<uint8_t> unchanged = Bytes(image);
      ForEachLevel([&](const Kernels& level) {
        std::copy(unchanged.begin(), unchanged.end(), image.bits);
        EXPECT_TRUE(ApplyDistortionMap(level, image));
        EXPECT_EQ(Bytes(image), expected);
      });
    }
  }
}

// Straight lines of the scene are straight again after the correction.
TEST(Distortion, StraightensBarrelAndPincushion) {
  for (double strength : {-3e-6, 3e-6}) {
    GreyImage image;
    image.Create(480, 480);
    // A horizontal line of the scene at 100 above the centre, seen through the lens.
    for (double x = -200; x <= 200; x += 0.25) {
      const double bend = 1 + strength * (x * x + 100 * 100);
      image.rows[std::lround(240 - 100 * bend)][std::lround(240 + x * bend)] = 255;
    }
    const auto bend = [&](int first, int last) {
      int top = INT_MAX, bottom = INT_MIN;
      for (int x = first; x <= last; ++x) {
        for (int y = 0; y < 480; ++y) {
          if (image.rows[y][x]) top = std::min(top, y), bottom = std::max(bottom, y);
        }
      }
      return bottom - top;
    };
    const int before = bend(70, 410);
    auto points = GridThroughLens(9, 50, 240, 240, strength);
    ASSERT_TRUE(BuildDistortionModel(image, points.data(), 81, Step(50), nullptr));
    BuildDistortionMap(image);
    ASSERT_TRUE(ApplyDistortionMap(BestKernels(), image));
    EXPECT_GE(before, 6);
    EXPECT_LE(bend(70, 410), 2) << "was " << before;
    EXPECT_LE(image.rows[140][240] + image.rows[139][240] + image.rows[141][240], 3 * 255);
  }
}

TEST(Distortion, FilesHoldTheHeaderTwiceAndLoadBack) {
  TemporaryFile file("lens");
  GreyImage image, loaded;
  image.Create(300, 200);
  loaded.Create(300, 200);
  auto points = GridThroughLens(5, 30, 150, 100, 2e-6);
  const auto measured = points;
  ASSERT_TRUE(BuildDistortionModel(image, points.data(), 25, Step(30), file.path()));
  for (size_t i = 0; i < 25; ++i) {
    EXPECT_EQ(points[2 * i], measured[2 * i] - 150);
    EXPECT_EQ(points[2 * i + 1], 100 - measured[2 * i + 1]);
  }
  const auto bytes = file.Read();
  ASSERT_EQ(bytes.size(), 208u);
  const int32_t expected[] = {121, 121, 210, 90, 40, 160, 150, 100, 121, 121, 210, 90};
  EXPECT_EQ(std::memcmp(bytes.data(), expected, sizeof expected), 0);
  EXPECT_EQ(std::memcmp(bytes.data() + 48, image.distortionCoefficients, 160), 0);

  ASSERT_TRUE(LoadDistortionParameters(loaded, file.path()));
  EXPECT_EQ(std::memcmp(&loaded.centreX, &image.centreX, 32), 0);
  EXPECT_EQ(std::memcmp(loaded.distortionCoefficients, image.distortionCoefficients, 160), 0);

  // Short files load. Words that they lack stay, those of the second block those of the first;
  // coefficients that they lack are 0.
  constexpr int kWordOfField[] = {2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5};
  for (size_t size = 0; size < bytes.size(); size += 10) {
    file.Write({bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)});
    int32_t words[] = {150, 101, 102, 103, 205, 106, 47, 108};
    std::memcpy(&loaded.centreX, words, sizeof words);
    for (size_t field = 0; field < 12 && 4 * field + 4 <= size; ++field) {
      words[kWordOfField[field]] = expected[field];
    }
    ASSERT_TRUE(LoadDistortionParameters(loaded, file.path()));
    EXPECT_EQ(std::memcmp(&loaded.centreX, words, sizeof words), 0) << size;
    const size_t held = size < 48 ? 0 : (size - 48) / 8;
    for (size_t i = 0; i < 20; ++i) {
      ASSERT_EQ(loaded.distortionCoefficients[i], i < held ? image.distortionCoefficients[i] : 0);
    }
    BuildDistortionMap(loaded);
    ApplyDistortionMap(BestKernels(), loaded);
  }
  EXPECT_FALSE(LoadDistortionParameters(loaded, "no-such-folder/lens"));
  EXPECT_EQ(loaded.distortionCoefficients, nullptr);
  EXPECT_FALSE(LoadDistortionParameters(loaded, nullptr));
  EXPECT_FALSE(ApplyDistortionMap(BestKernels(), loaded));
}

TEST(Distortion, RefusesOrSurvivesWhatMakesNoSense) {
  GreyImage image;
  Fill(image, 50, 40, Content::kNoise);
  std::vector<int32_t> points(2 * 49);
  Random random(4);
  for (int32_t& value : points) value = random.Within(0, 50);
  const auto before = points;
  for (int count : {0, 2, 24, -1, -2, INT_MIN}) {
    EXPECT_FALSE(BuildDistortionModel(image, points.data(), count, Step(5), nullptr)) << count;
  }
  EXPECT_FALSE(BuildDistortionModel(image, nullptr, 25, Step(5), nullptr));
  EXPECT_EQ(points, before);
  EXPECT_EQ(image.distortionCoefficients, nullptr);

  constexpr float kInf = std::numeric_limits<float>::infinity();
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  for (int count : {1, 3, 15, 21, 49}) {  // whatever their number: never outside memory
    for (const GridPitch& pitch : {Step(5),
                                   GridPitch{0, 0, 1, 1},
                                   {1, 1, 0, 0},
                                   {kNan, kInf, 1, 1},
                                   {1e30f, -1e30f, 1, 1},
                                   {-5, -5, 10000, 10000},
                                   {3e4f, 3e4f, 1, 1}}) {
      points = before;
      EXPECT_TRUE(BuildDistortionModel(image, points.data(), count, pitch, nullptr));
      BuildDistortionMap(image);
      ApplyDistortionMap(BestKernels(), image);
    }
  }
  for (int32_t& value : points) value = random.Next() & 1 ? INT_MIN : INT_MAX;
  EXPECT_TRUE(BuildDistortionModel(image, points.data(), 49, Step(5), nullptr));
  BuildDistortionMap(image);
  ApplyDistortionMap(BestKernels(), image);
}

// A map that reaches outside the image it is used on is never read through.
TEST(Distortion, MapsOfLargerImagesReadNothingOutside) {
  GreyImage image;
  Fill(image, 300, 300, Content::kNoise);
  auto points = GridThroughLens(5, 60, 150, 150, 1e-5);
  ASSERT_TRUE(BuildDistortionModel(image, points.data(), 25, Step(60), nullptr));
  BuildDistortionMap(image);
  const int32_t* entry = image.distortionMapRows[0];
  EXPECT_TRUE(entry[1] < 0 || entry[1] >= 300) << "the row is stored as computed";
  EXPECT_EQ(entry[0], 0) << "and its column stays 0";
  image.Create(40, 30);
  EXPECT_TRUE(image.distortionMap) << "calibration survives re-creation";
  EXPECT_TRUE(ApplyDistortionMap(BestKernels(), image));
}

}  // namespace quillon::test
