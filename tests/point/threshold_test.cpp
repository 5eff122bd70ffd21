#include "point/threshold.h"

#include <climits>
#include <cstring>
#include <memory>

#include "point/threshold_kernels.h"
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
  ForEachLevel([](const Kernels& level) {
    ForEachImage([&](const GreyImage& image) {
      EXPECT_EQ(ComputeOtsuThreshold(level, image), reference::Otsu(image));
    });
    GreyImage image;
    for (int width : {1021, 1024}) {  // large enough to be counted in pairs
      Fill(image, width, 300, Content::kNoise);
      for (int y = 0; y < 100; ++y) std::memset(image.rows[y], 30, static_cast<size_t>(width));
      EXPECT_EQ(ComputeOtsuThreshold(level, image), reference::Otsu(image));
    }
    Fill(image, 40, 10, Content::kFlat);
    EXPECT_EQ(ComputeOtsuThreshold(level, image), 0);
    for (int y = 0; y < 10; ++y) {
      for (int x = 0; x < 40; ++x) image.rows[y][x] = x < 20 ? 10 : 200;
    }
    EXPECT_EQ(ComputeOtsuThreshold(level, image), 10) << "the lowest of 190 equal maxima";
  });
}

// Rows of less than a vector, and of more than is sieved at once; streams that fill alike, and one
// that takes all.
TEST(Threshold, LevelsAreCountedAsOneByOne) {
  constexpr Size kSizes[] = {{1, 1},     {63, 200}, {64, 3},    {65, 900}, {127, 129},
                             {513, 256}, {4096, 5}, {4110, 11}, {4160, 7}, {9001, 5}};
  ForEachLevel([&](const Kernels& level) {
    if (!level.threshold.CountLevels) return;
    for (const auto [width, height] : kSizes) {
      for (const Content content : {Content::kNoise, Content::kBinary, Content::kFlat}) {
        GreyImage image;
        Fill(image, width, height, content);
        std::vector<uint32_t> expected(kGreyLevels, 7);
        Histogram actual;
        std::fill_n(actual, kGreyLevels, 7);
        for (int y = 0; y < height; ++y) {
          for (int x = 0; x < width; ++x) ++expected[image.rows[y][x]];
        }
        const auto sieve = std::make_unique<LevelSieve>();
        level.threshold.CountLevels(image.rows, width, height, *sieve, actual);
        ASSERT_EQ(std::vector(std::begin(actual), std::end(actual)), expected)
            << width << " x " << height;
      }
    }
  });
}

// Above 8,388,607 pixels of level 255 the weight times the count leaves 32 bits and wraps.
TEST(Threshold, OtsuWrapsItsProductsOnLargeImages) {
  GreyImage image;
  image.Create(4096, 2560);
  ASSERT_TRUE(image.bits);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) image.rows[y][x] = y < 400 ? 60 : 255;
  }
  EXPECT_EQ(ComputeOtsuThreshold(BestKernels(), image), reference::Otsu(image));
}

}  // namespace quillon::test
