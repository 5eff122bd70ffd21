#include "calib/flat_field.h"

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>

#include "calib/flat_field_reference.h"
#include "quillon/quillon.h"
#include "support/levels.h"
#include "support/temporary_file.h"

namespace quillon::test {
namespace {

const std::string kNowhere = "no-such-folder/no-such-file";

}  // namespace

TEST(FlatField, CorrectsTheRegionByTheTruncatedProduct) {
  GreyImage actual, expected;
  ForEachLevelAndImage([&](const Kernels& level, const GreyImage& source) {
    for (const FlatFieldRegion& region : {FlatFieldRegion{0, source.width, 0, source.height},
                                          {1, source.width - 1, 1, 3},
                                          {-5, 3, -7, 2},
                                          {source.width - 1, INT_MAX, 0, INT_MAX},
                                          {INT_MIN, INT_MAX, INT_MIN, INT_MAX},
                                          {5, 5, 0, 4},
                                          {0, 4, 3, 3},
                                          {INT_MAX, INT_MIN, INT_MAX, INT_MIN}}) {
      for (int target : {-3, 0, 1, 100, 255, 999}) {
        Restore(source, actual);
        EXPECT_FALSE(BuildFlatFieldTable(actual, target, region, kNowhere.c_str()));
        ASSERT_TRUE(actual.flatFieldTable) << "the gains stay without a file";
        Restore(source, expected);
        free(expected.flatFieldTable);
        expected.flatFieldTable = static_cast<double*>(malloc(2048));
        std::memcpy(expected.flatFieldTable, actual.flatFieldTable, 2048);
        reference::ApplyFlatField(expected, region);
        ApplyFlatField(level, actual, region);
        ASSERT_EQ(Bytes(actual), Bytes(expected)) << target << ": " << Difference(actual, expected);
      }
    }
  });
}

// The double product falls one short of the target for 2,989 of the pairs.
TEST(FlatField, EveryPairOfTargetAndLevel) {
  GreyImage image;
  image.Create(256, 1);
  int exact = 0, oneShort = 0;
  for (int target = 1; target <= 255; ++target) {
    for (int p = 0; p < 256; ++p) image.rows[0][p] = static_cast<uint8_t>(p);
    BuildFlatFieldTable(image, target, {}, nullptr);
    EXPECT_TRUE(std::isinf(image.flatFieldTable[0]));
    ApplyFlatField(BestKernels(), image, {0, 256, 0, 1});
    EXPECT_EQ(image.rows[0][0], 0) << "black stays black";
    for (int p = 1; p < 256; ++p) {
      exact += image.rows[0][p] == target;
      oneShort += image.rows[0][p] == target - 1;
    }
  }
  EXPECT_EQ(oneShort, 2989);
  EXPECT_EQ(exact, 65025 - 2989);
}

TEST(FlatField, FilesHoldHeaderAndGainsAndLoadBack) {
  TemporaryFile file("gains");
  GreyImage image, loaded;
  ASSERT_TRUE(BuildFlatFieldTable(image, 180, {10, 110, 20, 70}, file.path()));
  const std::vector<char> bytes = file.Read();
  ASSERT_EQ(bytes.size(), 2072u);
  int32_t header[6];
  std::memcpy(header, bytes.data(), sizeof header);
  const int32_t expected[] = {50, 100, 20, 70, 10, 110};
  EXPECT_EQ(std::memcmp(header, expected, sizeof header), 0);
  EXPECT_EQ(std::memcmp(bytes.data() + 24, image.flatFieldTable, 2048), 0);

  FlatFieldRegion region = {};
  ASSERT_TRUE(LoadFlatFieldTable(loaded, region, file.path()));
  EXPECT_EQ(region.xStart, 10);
  EXPECT_EQ(region.xEnd, 110);
  EXPECT_EQ(region.yStart, 20);
  EXPECT_EQ(region.yEnd, 70);
  EXPECT_EQ(std::memcmp(loaded.flatFieldTable, image.flatFieldTable, 2048), 0);

  // Short files load. Words that they lack stay, gains that they lack are 0.
  for (size_t size : {0u, 11u, 17u, 24u, 100u, 2071u}) {
    file.Write({bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)});
    int words[4] = {-1, -2, -3, -4};
    ASSERT_TRUE(IxFFCParaLoad(&loaded, words, file.path())) << size;
    EXPECT_EQ(words[0], size >= 20 ? 10 : -1) << size;
    EXPECT_EQ(words[1], size >= 24 ? 110 : -2) << size;
    EXPECT_EQ(words[2], size >= 12 ? 20 : -3) << size;
    EXPECT_EQ(words[3], size >= 16 ? 70 : -4) << size;
    for (size_t i = 0; i < 256; ++i) {
      const bool there = 24 + 8 * (i + 1) <= size;
      ASSERT_EQ(std::memcmp(&loaded.flatFieldTable[i],
                            there ? bytes.data() + 24 + 8 * i : std::string(8, '\0').data(), 8),
                0)
          << size << ", entry " << i;
    }
  }
  for (const char* name : {static_cast<const char*>(nullptr), kNowhere.c_str()}) {
    EXPECT_FALSE(LoadFlatFieldTable(loaded, region, name));
    EXPECT_EQ(loaded.flatFieldTable, nullptr) << "a failed load leaves no gains";
  }
  free(image.flatFieldTable);  // an object without pixels releases nothing by itself
  image.flatFieldTable = nullptr;
}

TEST(FlatField, GainsThatAreNotNumbersGiveBlack) {
  GreyImage image;
  Fill(image, 40, 3, Content::kNoise);
  BuildFlatFieldTable(image, 100, {}, nullptr);
  for (int i = 0; i < 256; ++i) {
    image.flatFieldTable[i] = i % 3 == 0   ? std::numeric_limits<double>::quiet_NaN()
                              : i % 3 == 1 ? -std::numeric_limits<double>::infinity()
                                           : 1e300;
  }
  GreyImage expected;
  Restore(image, expected);
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < 40; ++x) expected.rows[y][x] = expected.rows[y][x] % 3 == 2 ? 255 : 0;
  }
  ApplyFlatField(BestKernels(), image, {0, 40, 0, 3});
  EXPECT_SAME_PIXELS(image, expected);
}

}  // namespace quillon::test
