#include "pyramid/pyramid.h"

#include <utility>

#include "pyramid/pyramid_reference.h"
#include "support/levels.h"

namespace quillon::test {
// Widths around every block of every level, and exact multiples of none.
const std::vector<Size> kPyramidSizes = {
    {1, 1},   {2, 2},    {3, 5},    {15, 16},  {16, 15},  {16, 16},  {17, 17},   {31, 33},
    {32, 32}, {33, 64},  {47, 16},  {63, 64},  {64, 63},  {64, 64},  {65, 130},  {96, 33},
    {97, 64}, {127, 65}, {128, 64}, {129, 67}, {191, 64}, {255, 40}, {258, 128}, {515, 70}};

TEST(Pyramid, EveryLevelHoldsTheBlockMeans) {
  GreyImage source, actual, expected;
  ForEachLevel([&](const Kernels& kernels) {
    for (const Size& size : kPyramidSizes) {
      for (Content content : kContents) {
        Fill(source, size.width, size.height, content);
        for (int level = 1; level <= kMaxPyramidLevel; ++level) {
          FillStale(actual, size.width, size.height);
          FillStale(expected, size.width, size.height);
          reference::Reduce(source, level, expected);
          ReduceByBlockMean(kernels, level, source.rows, size.width, size.height, actual.rows);
          // All bytes: nothing beside the level is touched.
          ASSERT_EQ(Bytes(actual), Bytes(expected))
              << size.width << " x " << size.height << " level " << level << ": "
              << Difference(actual, expected);
        }
      }
    }
  });
}

TEST(Pyramid, CoarsestLevelKeepsEnoughPixels) {
  // The first count of each level and the last of the one before: n = (count + 32) / 64.
  for (auto [pixels, level] : {std::pair{0u, 0},
                               {64u, 0},
                               {223u, 0},
                               {224u, 1},
                               {225u, 1},
                               {991u, 1},
                               {992u, 2},
                               {4063u, 2},
                               {4064u, 3},
                               {6000u, 3},
                               {16351u, 3},
                               {16352u, 4},
                               {65503u, 4},
                               {65504u, 5},
                               {262111u, 5},
                               {262112u, 6},
                               {262144u, 6},
                               {4294967295u, 6}}) {
    EXPECT_EQ(CoarsestLevel(pixels), level) << pixels;
  }
}

}  // namespace quillon::test
