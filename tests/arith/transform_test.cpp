#include <climits>
#include <cmath>
#include <numbers>

#include "arith/rotation.h"
#include "arith/scaling.h"
#include "arith/transform_reference.h"
#include "arith/translation.h"
#include "core/angle.h"
#include "quillon/quillon.h"
#include "support/levels.h"

namespace quillon::test {
namespace {

constexpr Sampling kSamplings[] = {Sampling::kNearest, Sampling::kBilinear};

// Into a stale image and in place.
template <class Apply>
void ExpectTransformed(const GreyImage& source, const GreyImage& expected, const Apply& apply) {
  GreyImage actual;
  FillStale(actual, expected.width, expected.height);
  apply(source, actual);
  ASSERT_EQ(Bytes(actual), Bytes(expected)) << Difference(actual, expected);
  actual.CopyFrom(&source);
  apply(actual, actual);
  ASSERT_SAME_PIXELS(actual, expected) << "in place";
}

}  // namespace

TEST(Transform, ScalingTakesTheNearestPixel) {
  constexpr double kScales[][2] = {{0.5, 0.5}, {2, 2},      {1, 1},       {0.7, 1.3},
                                   {1.3, 0.7}, {3, 0.34},   {0.31, 2.99}, {0.2465, 1.0},
                                   {0.12, 5},  {7.77, 0.2}, {1.001, 1},   {0.999, 1}};
  GreyImage expected, wide;
  const auto check = [&](const Kernels& level, const GreyImage& source) {
    for (const auto& scales : kScales) {
      const double scaleX = scales[0], scaleY = scales[1];
      SCOPED_TRACE(testing::Message() << scaleX << ", " << scaleY);
      reference::Scale(source, expected, scaleX, scaleY);
      if (!expected.bits) continue;
      ExpectTransformed(source, expected, [&](const GreyImage& from, GreyImage& to) {
        ScaleImage(level, from, to, scaleX, scaleY);
      });
    }
  };
  ForEachLevelAndImage(check);
  for (int width : {256, 300, 1001}) {
    Fill(wide, width, 3, Content::kNoise);
    ForEachLevel([&](const Kernels& level) { check(level, wide); });
  }
}

TEST(Transform, TranslationMovesAndClears) {
  GreyImage expected;
  ForEachImage([&](const GreyImage& source) {
    for (int dx : {0, 1, -1, 5, -7, 40, INT_MAX, INT_MIN}) {
      for (int dy : {0, 1, -1, 3, -4, 33, INT_MAX, INT_MIN}) {
        SCOPED_TRACE(testing::Message() << dx << ", " << dy);
        reference::Translate(source, expected, dx, dy);
        ExpectTransformed(source, expected, [&](const GreyImage& from, GreyImage& to) {
          TranslateImage(from, to, dx, dy);
        });
      }
    }
  });
}

// Rows without padding move several at a time.
TEST(Transform, TranslationOfLargeImagesMovesAndClears) {
  GreyImage source, expected;
  for (const Size& size : {Size{1024, 100}, Size{1023, 100}, Size{40000, 3}}) {
    Fill(source, size.width, size.height, Content::kNoise);
    for (int dx : {0, 13, -9, 1024}) {
      for (int dy : {0, 7, -41, 99}) {
        SCOPED_TRACE(testing::Message() << size.width << ": " << dx << ", " << dy);
        reference::Translate(source, expected, dx, dy);
        ExpectTransformed(source, expected, [&](const GreyImage& from, GreyImage& to) {
          TranslateImage(from, to, dx, dy);
        });
      }
    }
  }
}

TEST(Transform, RotationsMatchTheirFormula) {
  GreyImage expected;
  ForEachLevelAndImage([&](const Kernels& level, const GreyImage& source) {
    for (double angle : {0.0, -0.0, 1e-7, 0.4, -3.0, 17.3, 45.0, 60.0, 90.0, 90.0000001, 133.0,
                         180.0, -90.0, 271.5, 1e17}) {
      for (Sampling sampling : kSamplings) {
        SCOPED_TRACE(testing::Message() << angle << ", sampling " << static_cast<int>(sampling));
        reference::Rotate(sampling, source, expected, angle);
        ExpectTransformed(source, expected, [&](const GreyImage& from, GreyImage& to) {
          RotateImage(level, sampling, from, to, angle);
        });
      }
    }
  });
}

// Images wider than a strip, and some just large enough or too small for a window of 16 x 12
// pixels, with angles whose sums come close to halves and integers.
TEST(Transform, RotationsOfSquaresMatchTheirFormula) {
  GreyImage source, actual, expected;
  for (const Size& size : {Size{700, 530}, Size{1031, 64}, Size{64, 1031}, Size{16, 12},
                           Size{16, 11}, Size{15, 40}, Size{17, 13}, Size{23, 65}, Size{258, 31}}) {
    for (Content content : {Content::kNoise, Content::kExtremes}) {
      Fill(source, size.width, size.height, content);
      for (double angle : {0.01, 5.0, 30.0, 36.86989764584402, 45.0, 53.13010235415598, 88.0, 90.0,
                           135.0, 180.0, 200.0, 270.0, -45.0}) {
        for (Sampling sampling : kSamplings) {
          reference::Rotate(sampling, source, expected, angle);
          ForEachLevel([&](const Kernels& level) {
            RotateImage(level, sampling, source, actual, angle);
            EXPECT_SAME_PIXELS(actual, expected)
                << size.width << ", " << angle << ", sampling " << static_cast<int>(sampling);
          });
        }
      }
    }
  }
}

TEST(Transform, PositiveAnglesTurnClockwise) {
  GreyImage source, actual, expected;
  const auto value = [](char c) { return static_cast<uint8_t>(c); };
  Draw(source, {"abc", "def", "ghi"}, value);
  for (Sampling sampling : kSamplings) {
    Draw(expected, {"gda", "heb", "ifc"}, value);
    RotateImage(BestKernels(), sampling, source, actual, 90);
    EXPECT_SAME_PIXELS(actual, expected);
    Draw(expected, {"cfi", "beh", "adg"}, value);
    RotateImage(BestKernels(), sampling, source, actual, -450);
    EXPECT_SAME_PIXELS(actual, expected);
  }
}

TEST(Transform, DirectionsAgreeWithTheLibraryAndAreExactInQuarters) {
  for (int i = -4000; i <= 4000; ++i) {
    const double degrees = i * 0.1037, radians = degrees * std::numbers::pi / 180;
    const Direction d = DirectionOf(degrees);
    EXPECT_NEAR(d.cosine, std::cos(radians), 2e-15) << degrees;
    EXPECT_NEAR(d.sine, std::sin(radians), 2e-15) << degrees;
    EXPECT_NEAR(d.cosine * d.cosine + d.sine * d.sine, 1, 5e-16) << degrees;
  }
  constexpr double kCosines[] = {1, 0, -1, 0};
  for (int quarter = -9; quarter <= 9; ++quarter) {
    const Direction d = DirectionOf(90.0 * quarter);
    EXPECT_EQ(d.cosine, kCosines[quarter & 3]) << quarter;
    EXPECT_EQ(d.sine, kCosines[(quarter + 3) & 3]) << quarter;
  }
}

// 9 * 0.0555 and 4 * 0.12 are just below a half, 9 * 3640.8 just above 32767.5.
TEST(Transform, ScalesThatGiveNoSideChangeNothing) {
  GreyImage source, result;
  Fill(source, 9, 4, Content::kNoise);
  Fill(result, 7, 5, Content::kNoise);
  const auto before = Bytes(result);
  for (double scale : {1e300, 0.0555, 3640.9}) IxImageScaling(&source, &result, scale, 1);
  IxImageScaling(&source, &result, 1, 0.12);
  EXPECT_EQ(Bytes(result), before);
  IxImageScaling(&source, &result, 3640.8, 0.13);
  EXPECT_EQ(result.width, 32767);
  EXPECT_EQ(result.height, 1);
}

}  // namespace quillon::test
