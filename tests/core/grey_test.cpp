#include "core/grey.h"

#include <cstring>

#include "core/grey_kernels.h"
#include "core/grey_reference.h"
#include "support/levels.h"

namespace quillon::test {
TEST(Grey, EveryColourOfTheFixedPointColumns) {
  ColourImage source;
  GreyImage actual, expected;
  source.Create(4096, 4096);
  ASSERT_TRUE(source.bits);
  for (uint32_t colour = 0; colour < 1u << 24; ++colour) {
    std::memcpy(source.bits + 3 * colour, &colour, 3);
  }
  reference::ColorToGrey(source, expected);
  ForEachLevel([&](const Kernels& level) {
    ColorToGrey(level, source, actual);
    EXPECT_SAME_PIXELS(actual, expected);
  });
}

TEST(Grey, DeinterleavesSixteenPixelsInPlace) {
  uint8_t blocks[3][16], expected[3][16];
  for (int i = 0; i < 48; ++i) {
    blocks[i / 16][i % 16] = static_cast<uint8_t>(5 * i);
    expected[i % 3][i / 3] = static_cast<uint8_t>(5 * i);
  }
  ForEachLevel([&](const Kernels& level) {
    uint8_t work[3][16];
    std::memcpy(work, blocks, sizeof work);
    level.grey.DeinterleaveBgr16(work[0], work[1], work[2]);
    EXPECT_EQ(std::memcmp(work, expected, sizeof work), 0);
  });
}

TEST(Grey, SplitsRowsOfEveryWidth) {
  constexpr int kMax = 200;
  uint8_t bgr[3 * kMax];
  Random random(3);
  for (uint8_t& value : bgr) value = static_cast<uint8_t>(random.Next() >> 24);
  ForEachLevel([&](const Kernels& level) {
    for (int count = 0; count <= kMax; ++count) {
      uint8_t planes[3][kMax + 1], expected[3][kMax + 1];
      std::memset(planes, 9, sizeof planes);
      std::memset(expected, 9, sizeof expected);
      for (int i = 0; i < 3 * count; ++i) expected[i % 3][i / 3] = bgr[i];
      level.grey.SplitRow(bgr, planes[0], planes[1], planes[2], count);
      ASSERT_EQ(std::memcmp(planes, expected, sizeof planes), 0) << count;
    }
  });
}

}  // namespace quillon::test
