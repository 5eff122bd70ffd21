#include "filters/smoothing.h"

#include <climits>

#include "filters/smoothing_reference.h"
#include "filters/windows.h"
#include "quillon/quillon.h"

namespace quillon::test {
// White images reach the largest sums; the sizes lie on both sides of every change of method.
TEST(Smoothing, LargeMeansMatchTheirDefinition) {
  GreyImage source, expected;
  for (int size : {11, 13, 15, 17, 31, 63, 65, 101, 103, 125, 127, 129, 131, 255, 257, 259}) {
    for (Size more : {Size{0, 0}, {1, 1}, {2, 4}, {15, 2}, {31, 1}, {64, 3}, {131, 5}}) {
      if (size > 131 && more.width > 2) continue;
      for (Content content : kContents) {
        Fill(source, size + more.width, size + more.height, content);
        if (content == Content::kFlat) {
          for (int i = 0; i < source.imageSize; ++i) source.bits[i] = 255;
        }
        reference::Mean(source, size, expected);
        ForEachLevel([&](const Kernels& level) {
          ASSERT_NO_FATAL_FAILURE(ExpectEverywhere(
              source, expected,
              [&](const GreyImage& from, GreyImage& to) { MeanSmoothing(level, from, to, size); }))
              << size << " in " << source.width << " x " << source.height;
        });
      }
    }
  }
}

// Sums of more than 32 bits: 4225 x 4225 x 255 is 4.55e9.
TEST(Smoothing, MeansOfVeryLargeWindowsDoNotOverflow) {
  GreyImage source, result;
  constexpr int kSize = 4225;
  source.Create(kSize + 1, kSize + 1);
  ASSERT_TRUE(source.bits);
  for (int i = 0; i < source.imageSize; ++i) source.bits[i] = 255;
  ForEachLevel([&](const Kernels& level) {
    MeanSmoothing(level, source, result, kSize);
    EXPECT_SAME_PIXELS(result, source);
  });
}

TEST(Smoothing, OddSizesBeyondTheImageCopyAndOthersDoNothing) {
  GreyImage source, result, stale;
  Fill(source, 20, 10, Content::kNoise);
  FillStale(stale, 7, 7);
  for (int size : {INT_MIN, INT_MIN + 1, -3, -1, 0, 2, 4, 20, INT_MAX - 1}) {
    result.CopyFrom(&stale);
    IxMeanSmoothing(&source, &result, size);
    EXPECT_SAME_PIXELS(result, stale) << size;
  }
  for (int size : {1, 11, 21, 65537, INT_MAX}) {
    result.CopyFrom(&stale);
    IxMeanSmoothing(&source, &result, size);
    EXPECT_SAME_PIXELS(result, source) << size;
  }
}

}  // namespace quillon::test
