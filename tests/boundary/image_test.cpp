#include <cstring>

#include "quillon/quillon.h"
#include "support/images.h"

namespace quillon::test {

TEST(Image, GeometryFollowsTheStrideRule) {
  struct Case {
    int width, height, greyStride, colourStride;
  };
  for (const Case& c : {Case{1, 1, 4, 4}, {3, 2, 4, 12}, {5, 7, 8, 16}, {640, 480, 640, 1920}}) {
    GreyImage grey;
    ColourImage colour;
    grey.Create(c.width, c.height);
    colour.Create(c.width, c.height);
    EXPECT_EQ(grey.stride, c.greyStride);
    EXPECT_EQ(grey.imageSize, c.greyStride * c.height);
    EXPECT_EQ(grey.paletteEntries, 256);
    EXPECT_EQ(colour.stride, c.colourStride);
    EXPECT_EQ(colour.imageSize, c.colourStride * c.height);
    EXPECT_EQ(colour.bytesPerPixel, 3);
    for (int y = 0; y < c.height; ++y) {
      ASSERT_EQ(grey.rows[y], grey.bits + (c.height - 1 - y) * c.greyStride);
    }
    for (int i = 0; i < grey.imageSize; ++i) ASSERT_EQ(grey.bits[i], 0) << "fresh memory is zero";
  }
}

TEST(Image, ImpossibleSizesLeaveItEmpty) {
  GreyImage image;
  EXPECT_EQ(image.bpp, 8) << "before anything was created";
  for (auto [width, height] : {std::pair{0, 5},
                               {5, 0},
                               {-1, 5},
                               {5, -1},
                               {INT32_MAX, 1},
                               {65536, 65536},
                               {INT32_MIN, INT32_MIN}}) {
    image.Create(4, 4);
    ASSERT_TRUE(image.bits);
    image.Create(width, height);
    EXPECT_EQ(image.bitmap, nullptr) << width << " x " << height;
    EXPECT_EQ(image.rows, nullptr);
    EXPECT_EQ(image.bpp, 8);
  }
  image.CopyFrom(nullptr);
  EXPECT_EQ(image.bitmap, nullptr);
}

TEST(Image, CopyTakesAllBytesAndKeepsCalibration) {
  GreyImage source, copy;
  Fill(source, 13, 9, Content::kNoise);
  copy.Create(2, 2);
  copy.flatFieldTable = static_cast<double*>(malloc(2048));
  const double* table = copy.flatFieldTable;
  copy.CopyFrom(&source);
  EXPECT_EQ(Bytes(copy), Bytes(source));
  copy.Create(5, 5);
  EXPECT_EQ(copy.flatFieldTable, table);
  copy.Destroy();
  EXPECT_EQ(copy.flatFieldTable, nullptr);
  EXPECT_EQ(copy.bitmap, nullptr);
}

// A result that keeps its store must look like one that did not.
TEST(Image, ResultsDoNotDependOnWhatTheDestinationHeld) {
  ColourImage source;
  Fill(source, 21, 5, Content::kNoise);
  GreyImage fresh, stale;
  FillStale(stale, 21, 5);
  IxColorToGray(&source, &fresh);
  IxColorToGray(&source, &stale);
  EXPECT_EQ(Bytes(fresh), Bytes(stale));
}

TEST(Image, ExportsTestDepthsAndIgnoreWhatIsMissing) {
  GreyImage grey, empty, untouched;
  ColourImage colour;
  Fill(grey, 9, 4, Content::kNoise);
  Fill(untouched, 9, 4, Content::kNoise);
  Fill(colour, 9, 4, Content::kNoise);
  auto* colourAsGrey = reinterpret_cast<GreyImage*>(&colour);
  const auto colourBytes = Bytes(colour);

  IxColorToGray(nullptr, &grey);
  IxColorToGray(&colour, nullptr);
  IxColorToGray(&colour, colourAsGrey);                                // destination not 8
  IxColorToGray(reinterpret_cast<const ColourImage*>(&grey), &empty);  // source not above 8
  IxThreshold(nullptr, 1);
  IxThreshold(&empty, 1);
  IxThreshold(colourAsGrey, 1);
  IxDoubleThreshold(nullptr, 1, 2);
  IxDoubleThreshold(colourAsGrey, 1, 2);
  IxOtsuThreshold(nullptr);
  IxOtsuThreshold(colourAsGrey);
  EXPECT_EQ(Bytes(colour), colourBytes);
  EXPECT_EQ(Bytes(grey), Bytes(untouched));
  EXPECT_EQ(empty.bits, nullptr);
}

}  // namespace quillon::test
