#include "arith/arithmetic.h"

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>

#include "arith/arithmetic_reference.h"
#include "support/levels.h"

namespace quillon::test {
namespace {

std::vector<PairRule> AllRules() {
  std::vector<PairRule> rules;
  for (int i = 0; i < kPairRules; ++i) rules.push_back(static_cast<PairRule>(i));
  return rules;
}

// Into a fresh image, a stale one, one of another size, and in place; padding of a result that was
// re-created is zero, padding of an image changed in place stays.
template <class Apply>
void ExpectMapped(const GreyImage& source, const GreyImage& expected, const Apply& apply) {
  GreyImage actual;
  apply(source, actual);
  ASSERT_EQ(Bytes(actual), Bytes(expected)) << Difference(actual, expected);
  FillStale(actual, source.width, source.height);
  apply(source, actual);
  ASSERT_EQ(Bytes(actual), Bytes(expected)) << "stale: " << Difference(actual, expected);
  FillStale(actual, source.width + 3, source.height);
  apply(source, actual);
  ASSERT_EQ(Bytes(actual), Bytes(expected)) << "of another size before";
  Restore(source, actual);
  apply(actual, actual);
  ASSERT_SAME_PIXELS(actual, expected) << "in place";
  FillPadding(actual, 0);
  ASSERT_EQ(Bytes(actual), Bytes(expected)) << "in place";
}

}  // namespace

TEST(Arithmetic, EveryPairOfPixels) {
  GreyImage a, b, actual, expected;
  a.Create(256, 256);
  b.Create(256, 256);
  for (int y = 0; y < 256; ++y) {
    for (int x = 0; x < 256; ++x) {
      a.rows[y][x] = static_cast<uint8_t>(x);
      b.rows[y][x] = static_cast<uint8_t>(y);
    }
  }
  ForEachLevel([&](const Kernels& level) {
    for (PairRule rule : AllRules()) {
      reference::Combine(rule, a, b, expected);
      CombinePixels(level, rule, a, b, actual);
      EXPECT_SAME_PIXELS(actual, expected) << "rule " << static_cast<int>(rule);
    }
  });
}

TEST(Arithmetic, ShiftsAndInversionMatchTheirRules) {
  GreyImage expected;
  ForEachLevelAndImage([&](const Kernels& level, const GreyImage& source) {
    for (int bits : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 31, 32, INT_MAX}) {
      SCOPED_TRACE(bits);
      reference::Map(source, expected, [=](int p) { return bits > 7 ? 0 : p << bits & 255; });
      ExpectMapped(source, expected, [&](const GreyImage& from, GreyImage& to) {
        ShiftPixelsLeft(level, from, to, bits);
      });
      reference::Map(source, expected, [=](int p) { return bits > 7 ? 0 : p >> bits; });
      ExpectMapped(source, expected, [&](const GreyImage& from, GreyImage& to) {
        ShiftPixelsRight(level, from, to, bits);
      });
    }
    reference::Map(source, expected, [](int p) { return 255 - p; });
    ExpectMapped(source, expected,
                 [&](const GreyImage& from, GreyImage& to) { InvertPixels(level, from, to); });
  });
}

TEST(Arithmetic, GainAndOffsetMatchTheirRuleForAnyNumbers) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  constexpr double kNumbers[] = {
      0,     1,     -1,     0.5,    1.7,    2.55, -0.0,    128,    -100,        254.9,
      255.5, 1e300, -1e300, 5e-324, 1e9,    -1e9, 0.1,     3e9,    kInfinity,   -kInfinity,
      kNan,  1.37,  -1.37,  -21.5,  63.999, 64,   14999.9, -15000, 254.99999999};
  // Images are made once: under an emulator of Windows that takes longer than everything else. The
  // small ones go through a table, the large ones through a line in whole numbers where one exists.
  for (const Size& size : {Size{77, 3}, Size{256, 64}, Size{259, 65}}) {
    GreyImage source, actual, expected;
    Fill(source, size.width, size.height, Content::kRamp);
    for (int x = 0; x < size.width; ++x) source.rows[1][x] = static_cast<uint8_t>(x);
    FillStale(actual, size.width, size.height);
    expected.Create(size.width, size.height);
    for (double gain : kNumbers) {
      for (double offset : kNumbers) {
        SCOPED_TRACE(testing::Message() << gain << ", " << offset << ", " << size.width);
        uint8_t entries[256];
        for (int p = 0; p < 256; ++p) {
          entries[p] = static_cast<uint8_t>(reference::GainOffset(p, gain, offset));
        }
        for (int y = 0; y < size.height; ++y) {
          for (int x = 0; x < size.width; ++x) expected.rows[y][x] = entries[source.rows[y][x]];
        }
        ForEachLevel([&](const Kernels& level) {
          ApplyGainOffset(level, source, actual, gain, offset);
          ASSERT_EQ(Bytes(actual), Bytes(expected)) << Difference(actual, expected);
          std::memcpy(actual.bits, source.bits, static_cast<size_t>(source.imageSize));
          ApplyGainOffset(level, actual, actual, gain, offset);
          ASSERT_SAME_PIXELS(actual, expected) << "in place";
        });
        if (testing::Test::HasFatalFailure()) return;
      }
    }
  }
}

}  // namespace quillon::test
