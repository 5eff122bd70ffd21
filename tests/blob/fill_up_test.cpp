#include "blob/fill_up_reference.h"
#include "blob/labelling.h"
#include "blob/regions.h"
#include "support/levels.h"

namespace quillon::test {
// From isolated holes to mazes. Rows of alternating pixels have more runs than any other.
TEST(FillUp, FillsMazesOfEveryDensity) {
  const RegionPtr region = NewRegion();
  GreyImage actual, expected;
  for (int density = 0; density <= 256; density += 16) {
    Fill(actual, 229, 140, Content::kNoise, static_cast<uint32_t>(density));
    for (int i = 0; i < actual.imageSize; ++i) actual.bits[i] = actual.bits[i] < density ? 9 : 40;
    if (density == 0) {
      for (int x = 0; x < actual.width; x += 2) actual.rows[70][x] = 9;
    }
    expected.CopyFrom(&actual);
    ASSERT_TRUE(FillUpHoles(BestKernels(), *region, actual, 9));
    reference::FillHoles(expected, 9);
    ASSERT_EQ(Bytes(actual), Bytes(expected)) << density << ": " << Difference(actual, expected);
  }
}

TEST(FillUp, RowsBelowAFullTableStay) {
  const RegionPtr region = NewRegion();
  GreyImage image;
  image.Create(1201, 601);  // white, with single black pixels: every one a hole
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) image.rows[y][x] = x % 2 == 1 && y % 2 == 1 ? 0 : 255;
  }
  ASSERT_TRUE(FillUpHoles(BestKernels(), *region, image, 255));
  // 600 holes every other row; the border's label is one of the 50,000.
  int firstLeft = -1;
  for (int i = 0; i < 300 * 600 && firstLeft < 0; ++i) {
    if (image.rows[2 * (i / 600) + 1][2 * (i % 600) + 1] == 0) firstLeft = i;
  }
  EXPECT_EQ(firstLeft, kMaxLabels - 1);
  EXPECT_EQ(image.rows[599][1], 0);
}

// Fill-up borrows the tables: what is asked about the blobs of before gives no sense, but no harm.
TEST(FillUp, LeavesCountsAlone) {
  const RegionPtr region = NewRegion();
  GreyImage image;
  Fill(image, 60, 40, Content::kBinary);
  SetRuns(*region, WholeImage(image, 1));
  LabelGrayBlobs(BestKernels(), *region, image, 255, 255);
  const int labels = region->labelCount, blobs = region->blobCount, index = region->blobIndex[1];
  ASSERT_GT(blobs, 5);
  ASSERT_TRUE(FillUpHoles(BestKernels(), *region, image, 255));
  EXPECT_EQ(region->labelCount, labels);
  EXPECT_EQ(region->blobCount, blobs);
  EXPECT_EQ(region->blobIndex[1], index);
}

}  // namespace quillon::test
