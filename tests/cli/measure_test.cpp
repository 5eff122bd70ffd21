// Measuring: what calipers and fits say of drawn shapes, against the numbers that they were drawn
// from. How well they do with noise is measured by bench/accuracy/measure_accuracy.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "cli/host.h"
#include "kit/errors.h"
#include "kit/measure/fit.h"
#include "kit/operations/operation.h"
#include "quillon/quillon.h"

namespace quillon::test {
namespace {

using kit::Json;
using kit::Point;

// Bright shapes of 200 on 50, whose outlines are blurred like a lens does it: a bar that is turned
// by 30 degrees, a disc with a notch and an ellipse.
constexpr double kBlur = 1;
double Inside(double x, double y) {
  const kit::Pose bar = {0, 0, -30};
  const Point p = bar.At(x - 60, y - 50);  // the bar's own directions
  const double inBar = std::min(5.25 - std::abs(p.x), 30 - std::abs(p.y));
  const double notch = std::hypot(x - 180, y - 32) - 8;
  const double inDisc = std::min(24.5 - std::hypot(x - 160.25, y - 50.5), notch);
  const double u = (x - 110) / 30, v = (y - 140) / 20;
  const double size = std::hypot(u, v), slope = std::hypot(u / 30, v / 20);
  const double inEllipse = slope > 0 ? (1 - size) * size / slope : 20;
  return std::max({inBar, inDisc, inEllipse});
}

void DrawShapes(GreyImage& image) {
  image.Create(220, 180);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      const double share = std::erfc(-Inside(x, y) / (kBlur * std::sqrt(2.0))) / 2;
      image.rows[y][x] = static_cast<unsigned char>(std::lround(50 + 150 * share));
    }
  }
}

std::vector<kit::Thing> Found(const GreyImage& image, const std::string& operation,
                              const Json& arguments) {
  const kit::Operation& row = *kit::FindOperation(operation);
  kit::ReadyOperation ready(row, ReadValues(row, arguments));
  kit::Content content;
  ready.Run({&image, nullptr}, {}, content);
  return std::move(content.things);
}

struct Case {
  const char* operation;
  Json arguments;
  size_t count;                              // of things
  std::map<std::string, double> quantities;  // of the last of them
  double tolerance = 0.02;
};

// Blur draws round outlines inwards; the shapes above are drawn without that, so what takes it back
// measures a disc of radius r larger by blur^2 / r.
const double kOutwards = kBlur * kBlur / 24.5;

TEST(Measuring, SaysWhatWasDrawn) {
  GreyImage image;
  DrawShapes(image);
  const kit::Pose bar = {60, 50, 30};
  const Point left = bar.At(-5.25, 0), right = bar.At(5.25, 0);
  const Json across = {60, 50, 30, 20, 30}, disc = {160, 50, 15, 33};
  const std::vector<Case> cases = {
      {"edges",
       {{"box", across}},
       2,
       {{"x", right.x}, {"y", right.y}, {"position", 20.25}, {"strength", -150}, {"angle", 30}}},
      {"edges", {{"box", across}, {"sign", "rising"}}, 1, {{"x", left.x}, {"y", left.y}}},
      {"edges", {{"box", across}, {"select", "first"}}, 1, {{"strength", 150}}, 1},
      {"edges", {{"box", across}, {"select", "last"}, {"smoothing", 2}}, 1, {{"x", right.x}}},
      {"edges", {{"box", across}, {"min_strength", 160}}, 0, {}},
      {"edges", {{"box", {-500, 0, 30, 20, 0}}}, 0, {}},
      {"edge-pairs", {{"box", across}}, 1, {{"x", 60}, {"y", 50}, {"width", 10.5}}},
      {"edge-pairs", {{"box", across}, {"sign", "falling"}}, 0, {}},
      // Turned about, so that it lies the other way up: the same line.
      {"fit-line",
       {{"box", {left.x, left.y, 8, 50, 30}}},
       1,
       {{"angle", -60}, {"x", left.x}, {"length", 47.5}, {"used", 20}, {"refused", 0}, {"rms", 0}}},
      {"fit-line", {{"box", {left.x, left.y, 8, 50, 210}}}, 1, {{"angle", -60}, {"y", left.y}}},
      {"fit-circle",
       {{"ring", disc}, {"sign", "falling"}, {"select", "last"}, {"rays", 72}},
       1,
       {{"x", 160.25}, {"y", 50.5}, {"diameter", 49 + kOutwards}, {"worst", 0.03}},
       0.03},
      {"fit-ellipse",
       {{"ring", {110, 140, 12, 38}}, {"rays", 90}},
       1,
       {{"x", 110}, {"y", 140}, {"width", 60.04}, {"height", 40.04}, {"angle", 0}},
       0.15},
  };
  for (const Case& test : cases) {
    const auto things = Found(image, test.operation, test.arguments);
    ASSERT_EQ(things.size(), test.count) << test.operation << test.arguments;
    for (const auto& [name, expected] : test.quantities) {
      const auto& all = kit::Quantities();
      const auto quantity =
          std::find_if(all.begin(), all.end(), [&](const auto& row) { return row.name == name; });
      ASSERT_NE(quantity, all.end()) << name;
      EXPECT_NEAR(things.back().*quantity->member, expected, test.tolerance)
          << test.operation << test.arguments << name;
    }
  }
  // A third of the rays end in the notch; they are refused, and without that they spoil the circle.
  const Json rays = {{"ring", disc}, {"sign", "falling"}, {"select", "last"}, {"rays", 72}};
  const kit::Thing kept = Found(image, "fit-circle", rays)[0];
  EXPECT_GT(kept.refused, 5);
  EXPECT_EQ(kept.refused + kept.used, 72);
  EXPECT_LT(kept.form, 0.06);
  Json all = rays;
  all["refuse"] = 1e9;
  EXPECT_GT(Found(image, "fit-circle", all)[0].form, 2);
}

TEST(Measuring, PointsThatBelongToNothingGiveNothing) {
  using Points = std::vector<Point>;
  const Points one = {{1, 1}}, same(9, Point{2, 2}), row = {{0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 4}};
  EXPECT_FALSE(kit::FitLine(one, 3));
  EXPECT_FALSE(kit::FitLine(same, 3));
  EXPECT_TRUE(kit::FitLine(row, 3));
  for (const Points& points : {one, same, row}) {
    EXPECT_FALSE(kit::FitCircle(points, 3)) << points.size();
    EXPECT_FALSE(kit::FitEllipse(points, 3)) << points.size();
  }
}

}  // namespace
}  // namespace quillon::test
