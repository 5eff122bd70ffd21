#include "point/threshold.h"

#include <climits>
#include <cstring>

#include "point/threshold_reference.h"
#include "support/levels.h"

namespace quillon::test {
TEST(Threshold, FixedAndBandMatchTheirRulesForEveryBound) {
  constexpr int kBounds[] = {INT_MIN, -300, -256, -5,  -1,  0,   1,
                             100,     137,  254,  255, 256, 300, INT_MAX};
  GreyImage actual, expected;
  ForEachLevelAndImage([&](const Kernels& level, const GreyImage& source) {
    for (int low : kBounds) {
      Restore(source, actual);
      Restore(source, expected);
      ApplyThreshold(level, actual, low);
      reference::Threshold(expected, low);
      ASSERT_EQ(Bytes(actual), Bytes(expected)) << low << ": " << Difference(actual, expected);
      for (int high : kBounds) {
        Restore(source, actual);
        Restore(source, expected);
        ApplyDoubleThreshold(level, actual, low, high);
        reference::DoubleThreshold(expected, low, high);
        ASSERT_EQ(Bytes(actual), Bytes(expected))
            << low << ", " << high << ": " << Difference(actual, expected);
      }
    }
  });
}

TEST(Threshold, OtsuIsTheExhaustiveChoice) {
  ForEachImage([](const GreyImage& image) {
    EXPECT_EQ(ComputeOtsuThreshold(image), reference::Otsu(image));
  });
  GreyImage image;
  for (int width : {1021, 1024}) {  // large enough to be counted in pairs
    Fill(image, width, 300, Content::kNoise);
    for (int y = 0; y < 100; ++y) std::memset(image.rows[y], 30, static_cast<size_t>(width));
    EXPECT_EQ(ComputeOtsuThreshold(image), reference::Otsu(image));
  }
  Fill(image, 40, 10, Content::kFlat);
  EXPECT_EQ(ComputeOtsuThreshold(image), 0);
  for (int y = 0; y < 10; ++y) {
    for (int x = 0; x < 40; ++x) image.rows[y][x] = x < 20 ? 10 : 200;
  }
  EXPECT_EQ(ComputeOtsuThreshold(image), 10) << "the lowest of 190 equal maxima";
}

// Above 8,388,607 pixels of level 255 the weight times the count leaves 32 bits and wraps.
TEST(Threshold, OtsuWrapsItsProductsOnLargeImages) {
  GreyImage image;
  image.Create(4096, 2560);
  ASSERT_TRUE(image.bits);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) image.rows[y][x] = y < 400 ? 60 : 255;
  }
  EXPECT_EQ(ComputeOtsuThreshold(image), reference::Otsu(image));
}

}  // namespace quillon::test
