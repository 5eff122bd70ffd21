#include <cmath>
#include <cstring>

#include "color/colour_convert.h"
#include "color/colour_formulas.h"
#include "color/colour_reference.h"
#include "color/colour_tables.h"
#include "support/levels.h"

namespace quillon::test {
namespace {

struct Tables {
  Tables() : bytes(3 * size_t{kColours}, 0xEE) {}
  uint8_t* operator[](int k) { return bytes.data() + k * size_t{kColours}; }
  std::vector<uint8_t> bytes;
};

// The formulas once more, straight from their definition, for every colour.
template <class Formula>
Tables Plain(const Formula& formula) {
  Tables tables;
  for (uint32_t i = 0; i < kColours; ++i) {
    uint8_t entry[3];
    formula(i & 255, i >> 8 & 255, i >> 16, entry);
    for (int k = 0; k < 3; ++k) tables[k][i] = entry[k];
  }
  return tables;
}

void ExpectSame(Tables& actual, Tables& expected) {
  for (int k = 0; k < 3; ++k) {
    size_t differ = 0, first = 0;
    for (size_t i = kColours; i-- > 0;) {
      if (actual[k][i] != expected[k][i]) ++differ, first = i;
    }
    EXPECT_EQ(differ, 0u) << "channel " << k << ", first at colour " << std::hex << first << ": "
                          << int{actual[k][first]} << " instead of " << int{expected[k][first]};
  }
}

}  // namespace

TEST(ColourTables, EveryEntryOfBothSpacesIsThatOfTheFormulas) {
  Tables hsi = Plain(reference::Hsi), lab = Plain(reference::Lab);
  Tables tables;
  BuildHsiTables(tables[0], tables[1], tables[2]);
  ExpectSame(tables, hsi);
  ForEachLevel([&](const Kernels& level) {
    BuildLabTables(level, tables[0], tables[1], tables[2]);
    ExpectSame(tables, lab);
  });
  for (uint32_t v = 0; v < 256; ++v) {
    const uint32_t grey = v * 0x010101;
    EXPECT_EQ(hsi[0][grey], 0) << "hue of grey " << v;
    EXPECT_EQ(hsi[1][grey], 0) << "saturation of grey " << v;
  }
  EXPECT_EQ(lab[0][0], 0);
  EXPECT_EQ(lab[1][0], 119);
  EXPECT_EQ(lab[2][0], 136);
}

TEST(ColourConversion, ReadsThreeTablesAPixelAndCopiesChannels) {
  Tables tables;
  Random random(8);
  for (uint8_t& entry : tables.bytes) entry = static_cast<uint8_t>(random.Next() >> 24);
  ColourImage source, actual, expected;
  GreyImage channel, expectedChannel;
  ForEachLevel([&](const Kernels& level) {
    for (const Size& size : Sizes()) {
      Fill(source, size.width, size.height, Content::kNoise);
      expected.Create(size.width, size.height);
      for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
          const uint8_t* p = source.rows[y] + 3 * x;
          const size_t i = p[0] + 256 * p[1] + 65536 * p[2];
          for (int k = 0; k < 3; ++k) expected.rows[y][3 * x + k] = tables[k][i];
        }
      }
      FillStale(actual, size.width, size.height);
      ConvertByColourTables(level, source, actual, tables[0], tables[1], tables[2]);
      ASSERT_EQ(Bytes(actual), Bytes(expected)) << Difference(actual, expected);
      ConvertByColourTables(level, source, source, tables[0], tables[1], tables[2]);
      ASSERT_SAME_PIXELS(source, expected) << "in place";

      for (int k = -1; k <= 3; ++k) {
        expectedChannel.Create(size.width, size.height);
        for (int y = 0; y < size.height; ++y) {
          for (int x = 0; x < size.width; ++x) {
            expectedChannel.rows[y][x] = k < 0 || k > 2 ? 0 : expected.rows[y][3 * x + k];
          }
        }
        FillStale(channel, size.width, size.height);
        CopyChannel(level, expected, channel, k);
        ASSERT_EQ(Bytes(channel), Bytes(expectedChannel)) << "channel " << k;
      }
    }
  });
}

}  // namespace quillon::test
