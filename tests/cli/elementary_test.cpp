// Elementary functions: near those of the C library, and the same digits on every system.
#include "kit/elementary.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <numbers>

namespace quillon::kit {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kPi = std::numbers::pi;

struct Function {
  const char* name;
  double (*ours)(double);
  double (*other)(double);
  double from, to;
  uint64_t digits;  // of the bits of all values, in turn
};

const Function kFunctions[] = {
    {"exp", Exp, [](double x) { return std::exp(x); }, -745, 709, 0xc321f4520e18c227},
    {"log", Log, [](double x) { return std::log(x); }, 1e-300, 50, 0x1ba64d40da1065b},
    {"sin", Sine, [](double x) { return std::sin(x); }, -40, 40, 0x35637cb65035a024},
    {"cos", Cosine, [](double x) { return std::cos(x); }, -2e5, 2e5, 0x53385ebefb89792f},
    {"erf", ErrorFunction, [](double x) { return std::erf(x); }, -7, 7, 0xa72b638991fd71d2},
    {"atan2 of x, 1", [](double x) { return ArcTangent(x, 1); },
     [](double x) { return std::atan2(x, 1); }, -20, 20, 0x2f9913704befe123},
    {"atan2 of x, -3", [](double x) { return ArcTangent(x, -3); },
     [](double x) { return std::atan2(x, -3); }, -20, 20, 0x907f9b306be5e5f},
};

TEST(Elementary, FunctionsAreRightAndHaveTheSameDigitsOnEverySystem) {
  for (const Function& function : kFunctions) {
    SCOPED_TRACE(function.name);
    constexpr int kSteps = 20'000;
    uint64_t digits = 0xcbf29ce484222325;
    for (int i = 0; i <= kSteps; ++i) {
      const double x = function.from + (function.to - function.from) * i / kSteps;
      const double value = function.ours(x), expected = function.other(x);
      ASSERT_NEAR(value, expected, 1e-15 * (1 + std::abs(expected))) << x;
      uint64_t bits;
      std::memcpy(&bits, &value, sizeof bits);
      digits = (digits ^ bits) * 0x100000001b3;
    }
    EXPECT_EQ(digits, function.digits) << std::hex << digits;
  }
}

TEST(Elementary, WhereOthersAreExactTheyAre) {
  const double quarters[][3] = {{0, 1, 0},       {0, -1, kPi},      {-0.0, -1, -kPi},
                                {1, 0, kPi / 2}, {-1, 0, -kPi / 2}, {1, 1, kPi / 4},
                                {0, 0, 0}};
  for (const auto& [y, x, angle] : quarters) EXPECT_EQ(ArcTangent(y, x), angle) << y << ' ' << x;
  EXPECT_EQ(Exp(0), 1);
  EXPECT_EQ(Exp(-1000), 0);
  EXPECT_EQ(Exp(1000), kInfinity);
  EXPECT_EQ(Log(1), 0);
  EXPECT_EQ(Log(0), -kInfinity);
  EXPECT_EQ(Sine(0), 0);
  EXPECT_EQ(Cosine(0), 1);
  EXPECT_EQ(ErrorFunction(-kInfinity), -1);
  for (auto* of : {Exp, Log, Sine, Cosine, ErrorFunction}) EXPECT_TRUE(std::isnan(of(NAN)));
  EXPECT_TRUE(std::isnan(Log(-1)) && std::isnan(Sine(kInfinity)) && std::isnan(ArcTangent(NAN, 1)));
}

}  // namespace
}  // namespace quillon::kit
