#include <cstring>
#include <utility>
#include <vector>

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

// Width, height, depth, stride, bytes per pixel, palette entries, image size.
template <class Pixel>
std::vector<int> Geometry(const CImage<Pixel>& image) {
  return {image.width,         image.height,         image.bpp,      image.stride,
          image.bytesPerPixel, image.paletteEntries, image.imageSize};
}

template <class Pixel>
bool HasNothing(const CImage<Pixel>& image) {
  return !image.bitmap && !image.bits && !image.rows;
}

TEST(Image, GeometryIsAsAskedWhereThereIsNoStore) {
  GreyImage image, copy;
  EXPECT_EQ(image.bpp, 8) << "before anything was created";
  for (const std::vector<int>& expected : {std::vector{0, 5, 8, 0, 1, 256, 0},
                                           {5, 0, 8, 8, 1, 256, 0},
                                           {-1, 5, 8, 0, 1, 256, 0},
                                           {5, -1, 8, 8, 1, 256, -8},
                                           {65536, 32768, 8, 65536, 1, 256, INT32_MIN}}) {
    for (GreyImage* object : {&image, &copy}) {
      object->Create(4, 4);
      ASSERT_TRUE(object->bits);
    }
    image.Create(expected[0], expected[1]);
    copy.CopyFrom(&image);
    for (const GreyImage* object : {&image, &copy}) {
      EXPECT_EQ(Geometry(*object), expected);
      EXPECT_TRUE(HasNothing(*object)) << expected[0] << " x " << expected[1];
    }
  }
  ColourImage colour;
  for (auto [width, height] :
       {std::pair{INT32_MAX, 1}, {INT32_MAX, INT32_MAX}, {INT32_MIN, INT32_MIN}}) {
    image.Create(width, height);
    colour.Create(width, height);
    EXPECT_TRUE(HasNothing(image) && HasNothing(colour)) << width << " x " << height;
    EXPECT_TRUE(image.width == width && image.height == height);
  }
  image.Create(4, 4);
  image.CopyFrom(nullptr);
  EXPECT_TRUE(HasNothing(image));
  copy.Create(3, 2);
  copy.Destroy();
  EXPECT_TRUE(HasNothing(copy));
  EXPECT_EQ(Geometry(copy), (std::vector{3, 2, 8, 4, 1, 256, 8})) << "only the pixels are released";
}

// A colour image has 24 bits a pixel, whatever is asked or reported.
TEST(Image, DepthOfColourIsFixed) {
  const std::vector<int> expected = {5, 3, 24, 16, 3, 0, 48};
  for (int depth : {8, 1, 24, 32, 0, -3}) {
    ColourImage image, copy;
    image.AllocateBitmap(depth, 5, 3);
    ASSERT_TRUE(image.bits);
    EXPECT_EQ(Geometry(image), expected) << depth;
    for (int i = 0; i < image.imageSize; ++i) image.bits[i] = static_cast<uint8_t>(i);
    image.bpp = depth;
    copy.CopyFrom(&image);
    EXPECT_EQ(Geometry(copy), expected) << depth;
    EXPECT_EQ(Bytes(copy), Bytes(image));
  }
  GreyImage grey, copy;
  CreateOfDepth(grey, 24, 5, 3);
  EXPECT_EQ(Geometry(grey), expected) << "a grey image takes any depth";
  Fill(grey, 5, 3, Content::kNoise);
  grey.bpp = 24;  // reports more than it holds
  copy.CopyFrom(&grey);
  EXPECT_EQ(Geometry(copy)[2], 24);
  EXPECT_EQ(memcmp(copy.bits, grey.bits, static_cast<size_t>(grey.imageSize)), 0);
}

TEST(Image, TheMemoryContextEndsWithItsBitmap) {
  GreyImage image, source;
  source.Create(2, 2);
  const HDC context = reinterpret_cast<HDC>(&image);
  image.memoryDC = context;
  image.Create(3, 3);
  EXPECT_EQ(image.memoryDC, context) << "there was no bitmap";
  image.CopyFrom(&source);
  EXPECT_EQ(image.memoryDC, context) << "a copy leaves it";
  image.Create(3, 3);
  EXPECT_EQ(image.memoryDC, nullptr);
}

// A host's own operations in the slots of an image.
class CountedContexts : public GreyImage {
 public:
  HDC GetMemoryDC() override { return ++got, GreyImage::GetMemoryDC(); }
  void ReleaseMemoryDC() override { ++released, GreyImage::ReleaseMemoryDC(); }
  int got = 0, released = 0;
};

TEST(Image, DrawingCallsTheOperationsOfTheTable) {
  CountedContexts image;
  image.Create(4, 4);
  GreyImage& drawn = image;
  constexpr unsigned long kCopy = 0x00CC0020;
  EXPECT_EQ(drawn.Draw(nullptr, 0, 0, 4, 4, 0, 0, kCopy), 1);
  EXPECT_EQ(image.got, 1);
  EXPECT_EQ(image.released, 1);
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

}  // namespace quillon::test
