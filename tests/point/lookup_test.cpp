#include <climits>
#include <cstring>
#include <vector>

#include "point/lookup_kernels.h"
#include "support/levels.h"

namespace quillon::test {

// A table without order, so that an entry of a wrong quarter, half or sixteenth shows; every pixel
// value at every place of a block.
TEST(Lookup, FindsEveryEntryAtEveryPlaceAndStaysInItsRow) {
  constexpr int kMax = 600;
  uint8_t table[256], from[kMax];
  Random random(9);
  for (uint8_t& entry : table) entry = static_cast<uint8_t>(random.Next() >> 24);
  ForEachLevel([&](const Kernels& level) {
    for (int first = 0; first < 256; ++first) {
      for (int x = 0; x < kMax; ++x) from[x] = static_cast<uint8_t>(first + 37 * x);
      for (int count : {0, 1, 3, 4, 5, 31, 32, 33, 63, 64, 65, 127, 131, kMax - 1}) {
        uint8_t to[kMax], expected[kMax];
        std::memset(to, 7, kMax);
        std::memset(expected, 7, kMax);
        for (int x = 0; x < count; ++x) expected[x] = table[from[x]];
        level.lookup.LookupRow(from, to, count, table);
        ASSERT_EQ(std::memcmp(to, expected, kMax), 0) << first << ", " << count;
        std::memcpy(to, from, static_cast<size_t>(count));
        level.lookup.LookupRow(to, to, count, table);
        ASSERT_EQ(std::memcmp(to, expected, kMax), 0) << "in place " << first << ", " << count;
      }
    }
  });
}

// Places that run along, turn back, leave the image by little or by far, and lie anywhere: a step
// of each kind may follow any other. Pixels that lead nowhere stay.
TEST(Lookup, MapsShowTheirPixelsWhereverTheyLead) {
  GreyImage image;
  Random random(11);
  const auto below = [&](int n) { return static_cast<int32_t>(random.Next() >> 8) % n; };
  for (const Size& size : {Size{1, 1}, {15, 40}, {16, 3}, {47, 33}, {300, 200}}) {
    Fill(image, size.width, size.height, Content::kNoise);
    for (int wildness : {0, 1, 4, 40}) {  // of a hundred steps
      constexpr int kCount = 531;
      std::vector<int32_t> map;
      int32_t column = 0, row = 0;
      for (int x = 0; x < kCount; ++x) {
        const bool wild = below(100) < wildness, start = x % size.width == 0;
        column = start || wild ? below(size.width + 4) - 2 : column + 1 + (below(9) == 0);
        row = start || wild ? below(size.height + 4) - 2 : row + (below(9) == 0);
        constexpr int32_t kFar[] = {INT_MIN, INT_MAX, -1, 1 << 16};
        if (below(100) * 20 < wildness) column = kFar[below(4)];
        if (below(100) * 20 < wildness) row = kFar[below(4)];
        map.insert(map.end(), {column, row});
        column &= 0xFFFF, row &= 0xFFFF;
      }
      for (int count : {0, 1, 15, 16, 17, 32, kCount}) {
        std::vector<uint8_t> expected(kCount, 7);
        for (int x = 0; x < count; ++x) {
          const int32_t cx = map[2 * x], cy = map[2 * x + 1];
          if (cx < 0 || cx >= size.width || cy < 0 || cy >= size.height) continue;
          expected[x] = image.rows[cy][cx];
        }
        ForEachLevel([&](const Kernels& level) {
          std::vector<uint8_t> to(kCount, 7);
          level.lookup.MappedRow(map.data(), to.data(), count, image.rows, size.width, size.height);
          EXPECT_EQ(to, expected) << size.width << ", " << wildness << ", " << count;
        });
      }
    }
  }
}

}  // namespace quillon::test
