#include <climits>
#include <memory>

#include "quillon/quillon.h"
#include "support/bitmap.h"
#include "support/images.h"

namespace quillon::test {
namespace {

struct RegionDeleter {
  void operator()(RLERegion* region) const { DestroyRLERegion(region); }
};
using RegionPtr = std::unique_ptr<RLERegion, RegionDeleter>;

// A rectangle of inclusive corners, clockwise.
void SetRectangle(RLERegion* region, int left, int top, int right, int bottom) {
  const int points[] = {left, top, right, top, right, bottom, left, bottom};
  IxPointToRegion(region, points, 4);
}

uint8_t BlackOrWhite(char c) { return c == '#' ? 255 : 0; }

// Labels the white pixels of a drawing, last column included.
RegionPtr Label(const std::vector<std::string>& rows) {
  GreyImage image;
  Draw(image, rows, BlackOrWhite);
  RegionPtr region(CreateRLERegion());
  SetRectangle(region.get(), 0, 0, image.width, image.height - 1);
  IxGrayBlobLabel(&image, region.get(), 255, 255);
  return region;
}

std::vector<int> SelectedAreas(const RegionPtr& region) {
  std::vector<BlobFeature> list(static_cast<size_t>(IxGetSelectBlobCount(region.get())) + 1);
  list.back().area = -1;
  IxGetBlobList(region.get(), list.data());
  EXPECT_EQ(list.back().area, -1) << "more records than were announced";
  std::vector<int> areas;
  for (size_t i = 0; i + 1 < list.size(); ++i) areas.push_back(list[i].area);
  return areas;
}

}  // namespace

TEST(Blob, TheLastColumnIsLeftOutUnlessTheRegionGoesBeyond) {
  GreyImage image;
  Fill(image, 12, 5, Content::kFlat);
  const RegionPtr region(CreateRLERegion());
  for (auto [right, area] : {std::pair{10, 55}, {11, 55}, {12, 60}, {500, 60}}) {
    SetRectangle(region.get(), 0, 0, right, 4);
    IxGrayBlobLabel(&image, region.get(), 137, 137);
    ASSERT_EQ(IxGetBlobCount(region.get()), 1);
    EXPECT_EQ(IxGetnBlobArea(region.get(), 0), area) << right;
  }
}

TEST(Blob, FeaturesOfKnownShapes) {
  const RegionPtr region = Label({"#.......####", "............", "..#.#.....#.", "..#.#....#..",
                                  "..###...#...", "............", "......###...", "......###..."});
  struct Case {
    int area;
    float centre[2];
    int bound[4];
    float rectangle[13];
  };
  const Case cases[] = {
      {1, {0, 0}, {0, 0, 0, 0}, {0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
      {4, {9.5, 0}, {8, 11, 0, 0}, {9.5, 0, 3, 0, 0, 8, 0, 11, 0, 8, 0, 11, 0}},
      {7, {3, 22.f / 7}, {2, 4, 2, 4}, {3, 3, 2, 2, 0, 2, 2, 4, 2, 4, 4, 2, 4}},
      {3, {9, 3}, {8, 10, 2, 4}, {9, 3, 2.828427f, 0, -45, 10, 2, 8, 2, 10, 2, 8, 4}},
      {6, {7, 6.5}, {6, 8, 6, 7}, {7, 6.5, 1, 2, 0, 6, 6, 8, 6, 8, 7, 6, 7}},
  };
  ASSERT_EQ(IxGetBlobCount(region.get()), 5);
  for (int n = 0; n < 5; ++n) {
    SCOPED_TRACE(n);
    const Case& c = cases[n];
    EXPECT_EQ(IxGetnBlobArea(region.get(), n), c.area);
    float centre[2], rectangle[13];
    int bound[4];
    IxGetnBlobCenter(region.get(), n, centre);
    IxGetnBlobBound(region.get(), n, bound);
    ASSERT_TRUE(IxGetBlobMinRect(region.get(), n, rectangle));
    for (int i = 0; i < 2; ++i) EXPECT_FLOAT_EQ(centre[i], c.centre[i]);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(bound[i], c.bound[i]);
    for (int i = 0; i < 13; ++i) {
      EXPECT_NEAR(rectangle[i], c.rectangle[i], 1e-6) << i;
    }
  }
}

TEST(Blob, MeansAreThoseOfThePixelsInside) {
  GreyImage grey, smaller;
  ColourImage colour;
  Draw(grey, {"0000", "0120", "0340"}, [](char c) { return static_cast<uint8_t>(40 * (c - '0')); });
  colour.Create(4, 3);
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < 4; ++x) {
      for (int c = 0; c < 3; ++c)
        colour.rows[y][3 * x + c] = static_cast<uint8_t>(grey.rows[y][x] / (c + 1));
    }
  }
  const RegionPtr region(CreateRLERegion());
  EXPECT_EQ(IxGetnRegionGrayMean(&grey, region.get()), 0) << "no region of interest";
  SetRectangle(region.get(), 0, 0, 4, 2);
  IxGrayBlobLabel(&grey, region.get(), 1, 255);
  ASSERT_EQ(IxGetBlobCount(region.get()), 1);
  double means[3];
  EXPECT_EQ(IxGetnBlobGrayMean(&grey, region.get(), 0), 100);
  IxGetnBlobColorMean(&colour, region.get(), 0, means);
  EXPECT_EQ(means[0], (13 + 26 + 40 + 53) / 4.0);
  EXPECT_EQ(means[1], 50);
  EXPECT_EQ(means[2], 100);
  EXPECT_EQ(IxGetnRegionGrayMean(&grey, region.get()), 400 / 15.0) << "column 4 adds area alone";
  IxGetnRegionColorMean(&colour, region.get(), means);
  EXPECT_EQ(means[2], 400 / 15.0);
  smaller.Create(2, 2);
  smaller.rows[1][1] = 100;
  EXPECT_EQ(IxGetnBlobGrayMean(&smaller, region.get(), 0), 25) << "pixels outside add nothing";
}

TEST(Blob, SelectionsNarrowWhatIsSelected) {
  const RegionPtr region = Label({"#.##.###.####", "#....###.....", "#....###....."});
  RLERegion* r = region.get();
  EXPECT_FALSE(IxSelectBlobArea(r, 100, 0)) << "before there are features";
  EXPECT_FALSE(IxReSelectBlob(r));
  EXPECT_EQ(SelectedAreas(region), std::vector<int>{});
  using Areas = std::vector<int>;
  ASSERT_TRUE(IxComputeAllBlobFeature(r));
  EXPECT_EQ(SelectedAreas(region), (Areas{3, 2, 9, 4}));
  EXPECT_TRUE(IxSelectBlobArea(r, 4, 3));
  EXPECT_EQ(SelectedAreas(region), (Areas{3, 4}));
  EXPECT_TRUE(IxLocateBlobCenter(r, 0, 12, 0, 2)) << "restores nothing";
  EXPECT_EQ(SelectedAreas(region), (Areas{3, 4}));
  EXPECT_TRUE(IxReSelectBlob(r));
  EXPECT_TRUE(IxSelectBlobHeight(r, 2, 2));
  EXPECT_EQ(SelectedAreas(region), (Areas{3, 9}));
  EXPECT_TRUE(IxSelectBlobWidth(r, 2, 1));
  EXPECT_EQ(SelectedAreas(region), (Areas{9}));
  EXPECT_TRUE(IxReSelectBlob(r));
  EXPECT_TRUE(IxLocateBlobCenter(r, 6, 11, 0, 0));
  EXPECT_EQ(SelectedAreas(region), (Areas{4})) << "centre column of two pixels loses its half";
  EXPECT_TRUE(IxReSelectBlob(r));
  EXPECT_TRUE(IxSelectBlobArea(r, 3, 4)) << "upper bound first";
  EXPECT_EQ(IxGetSelectBlobCount(r), 0);
  EXPECT_FALSE(IxReSelectBlob(r)) << "an empty selection stays empty";
  EXPECT_TRUE(IxComputeAllBlobFeature(r));
  EXPECT_TRUE(IxSelectBlobArea(r, INT_MAX, INT_MIN));
  EXPECT_EQ(IxGetSelectBlobCount(r), 4);
}

// Records that an earlier, larger labelling left are not handed out beyond what was announced.
TEST(Blob, StaleSelectionsStayWithinTheirCount) {
  const RegionPtr region = Label({"#.#.#.#.#"});
  GreyImage one, five;
  Draw(one, {"#........"}, BlackOrWhite);
  Draw(five, {"#.#.#.#.#"}, BlackOrWhite);
  EXPECT_TRUE(IxComputeAllBlobFeature(region.get()));
  IxGrayBlobLabel(&one, region.get(), 255, 255);
  EXPECT_TRUE(IxComputeAllBlobFeature(region.get()));
  IxGrayBlobLabel(&five, region.get(), 255, 255);
  EXPECT_EQ(SelectedAreas(region), std::vector<int>{1});
}

TEST(Blob, FillUpTakesHolesAndWhatOpensLeftOrDown) {
  GreyImage image, expected;
  Draw(image,
       {"....###.", ".....#..", "####.#..", "#..#.##.", "#..#.#..", "####.##.", "...#....",
        ".#.#...."},
       BlackOrWhite);
  Draw(expected,
       {"....###.", ".....#..", "####.#..", "####.##.", "####.#..", "####.##.", "####....",
        "####...."},
       BlackOrWhite);
  const RegionPtr region(CreateRLERegion());
  ASSERT_TRUE(IxBinaryFillUp(&image, region.get(), 256 + 255)) << "the low 8 bits count";
  EXPECT_SAME_PIXELS(image, expected);
}

TEST(Blob, DisplayTogglesBetweenTwoPictures) {
  GreyImage image;
  Fill(image, 9, 6, Content::kNoise);
  const RegionPtr region(CreateRLERegion());
  EXPECT_EQ(IxGetRegDisplay(region.get()), nullptr) << "nothing assigned";
  EXPECT_FALSE(IxImgAssignToRegion(region.get(), nullptr));
  SetRectangle(region.get(), 2, 1, 6, 3);

  const auto expectDisplay = [&](bool showsImage) {
    const HBITMAP bitmap = IxGetRegDisplay(region.get());
    ASSERT_NE(bitmap, nullptr);
    const uint8_t* bits = BitsOf(bitmap);
    ASSERT_NE(bits, nullptr);
    for (int y = 0; y < 6; ++y) {
      for (int x = 0; x < 9; ++x) {
        const bool line = y >= 1 && y <= 3 && x >= 2 && x < 6;
        const uint8_t grey = image.rows[y][x];
        const uint8_t* pixel = bits + (5 - y) * 28 + 3 * x;
        const uint8_t under = showsImage || line ? grey : 0;
        ASSERT_EQ(pixel[0], under) << x << ", " << y;
        ASSERT_EQ(pixel[1], under);
        ASSERT_EQ(pixel[2], under ^ (line ? 125 : 0));
      }
    }
  };
  for (int assignment = 0; assignment < 2; ++assignment) {
    ASSERT_TRUE(IxImgAssignToRegion(region.get(), &image));
    expectDisplay(true);
    expectDisplay(false);
    Fill(image, 9, 6, Content::kRamp);
  }
}

}  // namespace quillon::test
