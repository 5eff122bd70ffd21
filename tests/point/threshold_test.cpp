#include "point/threshold.h"

#include <climits>
#include <cstring>

#include "support/levels.h"

namespace quillon::test {
namespace reference {

// Columns before the last width % 8 see the low 8 bits of a bound.
template <class Rule>
void Binarise(GreyImage& image, const Rule& passes) {
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      const bool tail = x >= image.width / 8 * 8;
      image.rows[y][x] = passes(image.rows[y][x], tail) ? 255 : 0;
    }
  }
}

void Threshold(GreyImage& image, int t) {
  Binarise(image, [&](int p, bool tail) { return p > (tail ? t : t & 255); });
}

void DoubleThreshold(GreyImage& image, int low, int high) {
  const int lower = std::min(low, high);
  Binarise(image, [&](int p, bool tail) {
    return p > (tail ? lower : lower & 255) && p < (tail ? high : high & 255);
  });
}

// The criterion with all sums formed afresh for every level.
int Otsu(const GreyImage& image) {
  uint32_t counts[256] = {};
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) ++counts[image.rows[y][x]];
  }
  double n = 0, m = 0;
  for (int i = 0; i < 256; ++i) {
    n += counts[i];
    m += static_cast<int32_t>((i + 1u) * counts[i]);
  }
  double best = 0;
  int result = 0;
  for (int t = 0; t < 256; ++t) {
    double w0 = 0, m0 = 0;
    for (int i = 0; i <= t; ++i) {
      w0 += counts[i];
      m0 += static_cast<int32_t>((i + 1u) * counts[i]);
    }
    const double mean0 = w0 == 0 ? 0 : m0 / w0;
    const double w1 = n - w0;
    const double mean1 = w1 == 0 ? 0 : (m - m0) / w1;
    const double sigma = (mean0 - mean1) * (mean0 - mean1) * w1 * w0;
    if (t == 0 || sigma > best) {
      best = sigma;
      result = t;
    }
  }
  return result;
}

}  // namespace reference

TEST(Threshold, FixedAndBandMatchTheirRulesForEveryBound) {
  constexpr int kBounds[] = {INT_MIN, -300, -256, -5,  -1,  0,   1,
                             100,     137,  254,  255, 256, 300, INT_MAX};
  GreyImage actual, expected;
  ForEachLevelAndImage([&](const Kernels& level, const GreyImage& source) {
    for (int low : kBounds) {
      actual.CopyFrom(&source);
      expected.CopyFrom(&source);
      ApplyThreshold(level, actual, low);
      reference::Threshold(expected, low);
      ASSERT_EQ(Bytes(actual), Bytes(expected)) << low << ": " << Difference(actual, expected);
      for (int high : kBounds) {
        actual.CopyFrom(&source);
        expected.CopyFrom(&source);
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
