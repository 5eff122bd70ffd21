#include <cstring>

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

}  // namespace quillon::test
