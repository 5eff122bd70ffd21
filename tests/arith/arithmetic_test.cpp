#include "arith/arithmetic.h"

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>

#include "arith/arithmetic_reference.h"
#include "quillon/quillon.h"
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

TEST(Arithmetic, PairsMatchTheirRules) {
  GreyImage b, actual, expected;
  ForEachLevelAndImage([&](const Kernels& level, const GreyImage& a) {
    Fill(b, a.width, a.height, Content::kExtremes, 5);
    if (a.width > 2) b.rows[0][a.width - 1] = a.rows[0][a.width - 1];
    for (PairRule rule : AllRules()) {
      SCOPED_TRACE(static_cast<int>(rule));
      reference::Combine(rule, a, b, expected);
      ExpectMapped(a, expected, [&](const GreyImage& source, GreyImage& result) {
        CombinePixels(level, rule, source, b, result);
      });
      Restore(b, actual);
      CombinePixels(level, rule, a, actual, actual);
      ASSERT_SAME_PIXELS(actual, expected) << "into the second image";
      Restore(a, actual);
      reference::Combine(rule, a, a, expected);
      CombinePixels(level, rule, actual, actual, actual);
      ASSERT_SAME_PIXELS(actual, expected) << "all three the same";
    }
  });
}

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

TEST(Arithmetic, ExportsApplyTheirRules) {
  GreyImage a, b, actual, expected;
  Fill(a, 21, 6, Content::kNoise);
  Fill(b, 21, 6, Content::kExtremes, 5);
  using Export = void(const GreyImage*, const GreyImage*, GreyImage*);
  Export* const exports[] = {IxImageAdd,        IxImageSub,        IxImageMul,
                             IxImageDiv,        IxImageBirwiseAND, IxImageBirwiseOR,
                             IxImageBirwiseXOR, IxImageEqual,      IxImageNOTEqual};
  for (int i = 0; i < kPairRules; ++i) {
    reference::Combine(static_cast<PairRule>(i), a, b, expected);
    exports[i](&a, &b, &actual);
    EXPECT_SAME_PIXELS(actual, expected) << i;
  }
  reference::Map(a, expected, [](int p) { return p << 3 & 255; });
  IxImageShiftLeft(&a, &actual, 3);
  EXPECT_SAME_PIXELS(actual, expected);
  reference::Map(a, expected, [](int p) { return p >> 3; });
  IxImageShiftRight(&a, &actual, 3);
  EXPECT_SAME_PIXELS(actual, expected);
  reference::Map(a, expected, [](int p) { return 255 - p; });
  IxImageInvert(&a, &actual);
  EXPECT_SAME_PIXELS(actual, expected);
  reference::Map(a, expected, [](int p) { return reference::GainOffset(p, 1.25, -20.5); });
  IxImageGainOffset(&a, &actual, 1.25, -20.5);
  EXPECT_SAME_PIXELS(actual, expected);
}

// Each call below must leave the result as it was.
TEST(Arithmetic, BadInputChangesNothing) {
  GreyImage a, b, wider, empty, result;
  ColourImage colour;
  Fill(a, 9, 4, Content::kNoise);
  Fill(b, 9, 4, Content::kRamp);
  Fill(wider, 10, 4, Content::kRamp);
  Fill(colour, 9, 4, Content::kNoise);
  Fill(result, 7, 5, Content::kNoise);
  auto* colourAsGrey = reinterpret_cast<GreyImage*>(&colour);
  const auto before = Bytes(result), colourBefore = Bytes(colour);
  for (const auto& pair : {IxImageAdd, IxImageDiv, IxImageNOTEqual}) {
    pair(nullptr, &b, &result);
    pair(&a, nullptr, &result);
    pair(&a, &b, nullptr);
    pair(&empty, &empty, &result);
    pair(&a, &empty, &result);
    pair(&a, &wider, &result);
    pair(&a, colourAsGrey, &result);
    pair(colourAsGrey, &b, &result);
    pair(&a, &b, colourAsGrey);
  }
  const auto maps = {
      +[](const GreyImage* from, GreyImage* to) { IxImageShiftLeft(from, to, 1); },
      +[](const GreyImage* from, GreyImage* to) { IxImageShiftRight(from, to, 1); },
      +[](const GreyImage* from, GreyImage* to) { IxImageInvert(from, to); },
      +[](const GreyImage* from, GreyImage* to) { IxImageGainOffset(from, to, 2, 3); }};
  for (const auto& map : maps) {
    map(nullptr, &result);
    map(&a, nullptr);
    map(&empty, &result);
    map(colourAsGrey, &result);
    map(&a, colourAsGrey);
  }
  IxImageShiftLeft(&a, &result, -1);
  IxImageShiftRight(&a, &result, INT_MIN);
  EXPECT_EQ(Bytes(result), before);
  EXPECT_EQ(Bytes(colour), colourBefore);
  EXPECT_EQ(result.width, 7);
}

}  // namespace quillon::test
