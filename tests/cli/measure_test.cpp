// Measuring: what calipers and fits say of drawn shapes, against the numbers that they were drawn
// from. How well they do with noise is measured by bench/accuracy/measure_accuracy.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>

#include "cli/found.h"
#include "kit/errors.h"
#include "kit/measure/contour.h"
#include "kit/measure/fit.h"
#include "kit/operations/places.h"
#include "kit/recipe/inspector.h"
#include "quillon/image.h"

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
      {"fit-contour-lines",
       {{"box", {left.x, left.y, 8, 50, 30}}},
       1,
       {{"angle", -60}, {"refused", 0}, {"rms", 0}, {"worst", 0.03}}},
      {"fit-contour-lines",
       {{"box", across}, {"size", {15, 22}}, {"min_length", 10}},
       2,
       {{"angle", -60}, {"x", right.x}, {"y", right.y}, {"length", 20}},
       0.7},
      {"fit-contour-lines", {{"box", across}, {"size", {25, 50}}}, 0, {}},
      {"fit-contour-lines", {{"box", across}, {"around", "bright"}}, 0, {}},
      {"fit-contour-circles",
       {{"size", {40, 60}}, {"max_rms", 0.1}},
       1,
       {{"x", 160.25}, {"y", 50.5}, {"diameter", 49}, {"worst", 0.05}},
       0.05},
      {"fit-contour-circles", {{"around", "dark"}}, 0, {}},
      {"fit-contour-circles", {{"level", 201}}, 0, {}},
      {"fit-contour-ellipses",
       {{"box", {110, 140, 90, 60, 0}}, {"around", "bright"}},
       1,
       {{"x", 110}, {"y", 140}, {"width", 60}, {"height", 40}, {"angle", 0}},
       0.05},
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
  EXPECT_LT(kept.form, 0.08);
  Json all = rays;
  all["refuse"] = 1e9;
  EXPECT_GT(Found(image, "fit-circle", all)[0].form, 2);
}

// Calipers that are laid beside a shape are laid again by what they found: rays go out from its
// middle in even directions, parts of a rectangle follow each other along it.
TEST(Measuring, CalipersAreLaidAgainByWhatTheyFound) {
  GreyImage image;
  DrawShapes(image);
  const kit::Pose bar = {60, 50, 30};
  const Point left = bar.At(-5.25, 0);
  const kit::Thing circle = Found(image, "fit-circle", {{"ring", {164, 54, 10, 38}}})[0];
  EXPECT_NEAR(circle.x, 160.25, 0.03);
  EXPECT_NEAR(circle.y, 50.5, 0.03);
  ASSERT_GT(circle.usedPoints.size(), 30u);
  for (const Point& at : circle.usedPoints) {
    const double ray = std::atan2(at.y - circle.y, at.x - circle.x) * 48 / (2 * std::acos(-1.0));
    EXPECT_NEAR(ray, std::round(ray), 0.02);
  }
  const Json aslant = {left.x + 0.5, left.y, 12, 50, 34};
  const kit::Thing line = Found(image, "fit-line", {{"box", aslant}})[0];
  EXPECT_NEAR(line.angle, -60, 0.02);
  ASSERT_EQ(line.usedPoints.size(), 20u);
  for (size_t i = 1; i < 20; ++i) {
    EXPECT_NEAR(kit::Distance(line.usedPoints[i - 1], line.usedPoints[i]), 2.5, 1e-3);
  }
}

// A plain form of what a contour is: its points lie where lines between neighbours' centres cross
// the level, each once, the bright neighbour on the right; groups of bright pixels that touch have
// one contour on the outside, and one around each hole.
TEST(Contours, AreAllCrossingsOfTheLevel) {
  std::mt19937 random(3);
  int contours = 0, around = 0;
  for (const auto& size : {std::pair(1, 5), {2, 2}, {9, 1}, {17, 13}, {40, 31}}) {
    const int width = size.first, height = size.second;
    GreyImage image;
    image.Create(width, height);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        image.rows[y][x] = static_cast<unsigned char>(random() % 5 * 50);
      }
    }
    for (const double level : {75.0, 100.0, 180.5}) {
      std::map<std::pair<double, double>, int> expected, found;
      const auto grey = [&](int x, int y) { return double(image.rows[y][x]); };
      const auto cross = [&](int x, int y, int dx, int dy) {
        if (x + dx >= width || y + dy >= height) return;
        const double a = grey(x, y), b = grey(x + dx, y + dy);
        if ((a >= level) == (b >= level)) return;
        const double t = (level - a) / (b - a);
        ++expected[{std::round((x + t * dx) * 1e6), std::round((y + t * dy) * 1e6)}];
      };
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
          cross(x, y, 1, 0);
          cross(x, y, 0, 1);
        }
      }
      Point top = {-1, -1};
      for (const kit::Contour& contour : kit::FindContours(image, level, 0)) {
        ++contours;
        const auto& points = contour.points;
        double highest = 1e9;
        for (size_t i = 0; i < points.size(); ++i) {
          const auto [x, y] = points[i];
          ++found[{std::round(x * 1e6), std::round(y * 1e6)}];
          highest = std::min(highest, y);
          if (i + 1 == points.size() && !contour.isClosed) continue;
          // Through one square of four centres.
          const Point next = points[(i + 1) % points.size()];
          EXPECT_LE(std::floor(std::max(x, next.x) - 1e-9) - std::floor(std::min(x, next.x)), 1);
          EXPECT_LE(kit::Distance(points[i], next), std::sqrt(2.0) + 1e-9);
        }
        EXPECT_GE(highest, top.y);
        top.y = highest;
        const auto atBorder = [&](Point at) {
          return at.x == 0 || at.y == 0 || at.x == width - 1 || at.y == height - 1;
        };
        if (!contour.isClosed) {
          EXPECT_TRUE(atBorder(points.front()) && atBorder(points.back()));
        }
        around += contour.isClosed && contour.IsAroundBright();
      }
      EXPECT_EQ(found, expected) << width << " " << level;
    }
  }
  EXPECT_GT(contours, 200);
  EXPECT_GT(around, 20);
}

// Two bright pixels that touch at a corner, and a ring: one contour around both, two of the ring.
TEST(Contours, GoAroundBrightPixelsThatTouchAtCorners) {
  GreyImage image;
  image.Create(20, 12);
  image.rows[2][2] = image.rows[3][3] = 200;
  for (int y = 4; y < 9; ++y) {
    for (int x = 10; x < 15; ++x) image.rows[y][x] = y > 5 && y < 7 && x > 11 && x < 13 ? 0 : 200;
  }
  std::vector<std::pair<bool, double>> told;
  for (const kit::Contour& contour : kit::FindContours(image, 100, 0)) {
    EXPECT_TRUE(contour.isClosed);
    told.emplace_back(contour.IsAroundBright(), contour.Length());
  }
  const double slant = std::sqrt(0.5);
  const std::vector<std::pair<bool, double>> expected = {
      {true, 8 * slant}, {true, 16 + 4 * slant}, {false, 4 * slant}};
  ASSERT_EQ(told.size(), expected.size());
  for (size_t i = 0; i < told.size(); ++i) {
    EXPECT_EQ(told[i].first, expected[i].first) << i;
    EXPECT_NEAR(told[i].second, expected[i].second, 1e-9) << i;
  }
  // Cut where they leave a box: the pieces hold all points inside, in their order.
  const kit::TurnedBox half = {{12, 2, 0}, 8, 8};
  const auto pieces = kit::CutTo(half, kit::FindContours(image, 100, 0), 0.5);
  ASSERT_EQ(pieces.size(), 2u);
  for (const kit::Contour& piece : pieces) {
    EXPECT_FALSE(piece.isClosed);
    for (const Point& at : piece.points) EXPECT_LE(at.y, 6);
    for (size_t i = 0; i + 1 < piece.points.size(); ++i) {
      EXPECT_LE(kit::Distance(piece.points[i], piece.points[i + 1]), 1);
    }
  }
  EXPECT_EQ(pieces[0].points.size(), 5u + 2 * 3);
  EXPECT_EQ(kit::Thinned(pieces[0], 4).size(), 4u);
  image.Create(500, 500);
  for (int y = 0; y < 500; y += 2) {
    for (int x = 0; x < 500; x += 2) image.rows[y][x] = 200;
  }
  EXPECT_THROW(kit::FindContours(image, 100, 1), kit::Failure);
  EXPECT_EQ(kit::FindContours(image, 100, 10).size(), 0u);
}

TEST(Measuring, LookingWhereNoPixelIsIsAMistake) {
  GreyImage image;
  image.Create(200, 180);
  const auto failure = [&](const char* operation, const Json& arguments) -> std::string {
    try {
      Found(image, operation, arguments);
    } catch (const kit::Failure& caught) {
      return caught.what();
    }
    return "none";
  };
  struct Refusal {
    const char* operation;
    Json arguments;
    std::string failure;
  };
  const std::string nothing = "none", none = " holds no pixel of the picture of 200 x 180";
  const Refusal cases[] = {
      {"edges",
       {{"box", {-500, 0, 30, 20, 0}}},
       "the box, columns -515 to -485 and rows -10 to 10," + none},
      {"edges", {{"box", {-14, 0, 30, 20, 0}}}, nothing},
      {"fit-line",
       {{"box", {100, 215, 20, 60, 90}}},
       "the box, columns 70 to 130 and rows 205 to 225," + none},
      // Beside a corner of the picture, though columns and rows are the picture's.
      {"edge-pairs",
       {{"box", {-20, -20, 100, 20, -45}}},
       "the box, columns -63 to 23 and rows -63 to 23," + none},
      {"edge-pairs", {{"box", {-20, -20, 100, 60, -45}}}, nothing},
      {"fit-circle",
       {{"ring", {230, 50, 5, 20}}},
       "the ring, columns 210 to 250 and rows 30 to 70," + none},
      {"fit-ellipse", {{"ring", {219, 50, 5, 20}}}, nothing},
      // The picture lies in the hole.
      {"fit-circle",
       {{"ring", {100, 90, 140, 160}}},
       "the ring, columns -60 to 260 and rows -70 to 250," + none},
      {"fit-circle", {{"ring", {100, 90, 130, 160}}}, nothing},
      {"blobs",
       {{"center_x", {200, 900}}},
       "'center_x' is 200 to 900, the picture has columns 0 to 199"},
      {"blobs",
       {{"band", {1, 255}}, {"center_y", {-9, -1}}},
       "'center_y' is -9 to -1, the picture has rows 0 to 179"},
      {"blobs", {{"band", {1, 255}}, {"center_x", {199, 900}}, {"center_y", {-9, 0}}}, nothing},
      {"blobs",
       {{"band", {1, 255}}, {"polygon", {{300, 0}, {400, 0}, {400, 50}}}},
       "the polygon holds no pixel of the picture of 200 x 180"},
      {"translate", {{"dx", -200}}, "moved by -200, 0 nothing is left of the picture of 200 x 180"},
      {"translate", {{"dy", 180}}, "moved by 0, 180 nothing is left of the picture of 200 x 180"},
      {"translate", {{"dx", -199}, {"dy", 179}}, nothing},
  };
  for (const Refusal& c : cases) {
    EXPECT_EQ(failure(c.operation, c.arguments), c.failure) << c.operation << c.arguments;
  }
}

// An empty table would be no answer.
TEST(Measuring, NothingFoundSaysSo) {
  GreyImage image;
  image.Create(200, 180);
  int searches = 0;
  for (const kit::Operation& operation : kit::Operations()) {
    Json arguments = Json::object();
    bool readsFiles = false;
    for (const kit::Argument& argument : operation.arguments) {
      using Type = kit::Argument::Type;
      readsFiles = readsFiles || argument.type == Type::kFile || argument.type == Type::kFiles;
      if (argument.type == Type::kBox) arguments[argument.name] = {100, 90, 50, 20, 0};
      if (argument.type == Type::kRing) arguments[argument.name] = {100, 90, 10, 40};
      if (std::string_view(argument.name) == "band") arguments[argument.name] = {1, 255};
    }
    // The statistics of a region are no search: it is where it was put.
    const bool isSearch = !IsPicture(operation.output) && operation.output != kit::Kind::kRegions;
    if (!isSearch || readsFiles) continue;
    ++searches;
    kit::ReadyOperation ready(operation, ReadValues(operation, arguments));
    kit::Content content;
    ready.Run({&image, nullptr}, {}, content);
    EXPECT_TRUE(content.things.empty()) << operation.name;
    const kit::Findings told =
        ready.Tell({"flat.png", {&image, nullptr}, operation.output, content.things});
    EXPECT_TRUE(std::any_of(told.facts.begin(), told.facts.end(), [](const kit::Fact& fact) {
      return fact.key == "found" && fact.value == kit::Cell(int64_t{0});
    })) << operation.name;
  }
  EXPECT_GE(searches, 6);
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
  Points lines;  // an ellipse along two lines would have no end
  for (int i = 0; i < 9; ++i) {
    lines.insert(lines.end(), {{i + 0.2 * (i % 3), 0}, {i + 0.1 * (i % 2), 20}});
  }
  EXPECT_FALSE(kit::FitEllipse(lines, 3));
  EXPECT_FALSE(kit::FitEllipse(lines, kit::kRefuseNone));
}

// In the directions of the bar, which the first step finds.
TEST(Measuring, PlacesFollowAndMeasurementsMakeOthers) {
  GreyImage image;
  DrawShapes(image);
  const std::string text = R"json({"name": "r", "mm_per_pixel": 0.5, "steps": [
    {"name": "bar", "operation": "edge-pairs", "input": "image", "box": [60, 50, 30, 20, 30]},
    {"name": "sides", "operation": "edges", "input": "image", "follow": "bar", "box": [0, 3, 24, 8, 0]},
    {"name": "left", "operation": "fit-line", "input": "image", "follow": "bar", "box": [-5, 0, 8, 40, 0]},
    {"name": "end", "operation": "fit-line", "input": "image", "follow": "bar", "box": [0, -30, 8, 8, 90]},
    {"name": "slanted", "operation": "edges", "input": "image", "box": [60, 50, 40, 4, 75], "select": "first"},
    {"name": "none", "operation": "fit-circle", "input": "image", "follow": "bar", "ring": [0, 80, 2, 9]},
    {"name": "right", "operation": "fit-line", "input": "image", "follow": ["left", "end"], "box": [30, -10.5, 8, 40, 90]},
    {"name": "spot", "operation": "blobs", "input": "image", "follow": "bar", "band": [126, 255],
     "polygon": [[-9, 22], [9, 22], [9, 45], [-9, 45]]}],
    "measurements": [
    {"name": "first", "input": "sides", "value": "position"},
    {"name": "last", "input": "sides", "value": "position", "which": "largest", "unit": "mm"},
    {"name": "width", "value": "last - first * 0.5mm / 1px", "min": 5.2, "max": 5.3},
    {"name": "angle", "input": ["left", "end"], "value": "angle-between", "min": 89.5},
    {"name": "slant", "input": ["left", "slanted"], "value": "angle-between"},
    {"name": "away", "input": ["bar", "left"], "value": "distance-from-line", "unit": "mm"},
    {"name": "corner", "input": ["left", "end"], "value": "crossing-x"},
    {"name": "holes", "input": "none", "value": "count"},
    {"name": "hole", "input": "none", "value": "diameter", "which": "largest"},
    {"name": "across", "input": ["right", "left"], "value": "distance-from-line"},
    {"name": "parallel", "input": ["right", "left"], "value": "parallelism"},
    {"name": "square", "input": ["left", "end"], "value": "perpendicularity", "unit": "mm"},
    {"name": "aslant", "input": ["left", "slanted"], "value": "parallelism"},
    {"name": "over 100 mm", "value": "100mm * tan(slant)"},
    {"name": "spot", "input": "spot", "value": "area"},
    {"name": "twice", "value": "2 * hole"},
    {"name": "nothing", "value": "first / (holes * 1px)"}]})json";
  const kit::recipe::Recipe recipe = kit::recipe::MakeRecipe(text);
  kit::recipe::Inspector inspector(recipe, {});
  const auto record = inspector.Inspect(image);
  ASSERT_EQ(record.error, "");
  EXPECT_EQ(NameOf(record.verdict), std::string("pass"));
  const double corner = kit::Pose{60, 50, 30}.At(-5.25, -30).x;
  const double area = 10.5 * 8.5;  // the polygon's boundary belongs to it
  const std::optional<double> expected[] = {
      6.75, 8.625, 5.25, 90, 45, 2.625, corner, 0, {}, 10.5, 0, 0, 38 * std::sqrt(0.5),
      100,  area,  {},   {}};
  for (size_t i = 0; i < std::size(expected); ++i) {
    const std::string& name = recipe.measurements[i].name;
    ASSERT_EQ(record.values[i].has_value(), expected[i].has_value()) << name;
    if (!expected[i]) continue;
    const std::map<std::string, double> loose = {
        {"angle", 0.6}, {"spot", 5}, {"square", 0.3}, {"over 100 mm", 1}};
    const double tolerance = loose.contains(name) ? loose.at(name) : 0.1;
    EXPECT_NEAR(*record.values[i], *expected[i], tolerance) << name;
  }
}

TEST(Measuring, FramesLieWhereThingsCross) {
  struct Crossed {
    kit::Thing first;
    kit::Kind firstKind;
    kit::Thing second;
    kit::Kind secondKind;
    std::optional<std::array<double, 3>> expected;  // x, y, degrees
  };
  constexpr kit::Kind kLines = kit::Kind::kLines, kEdges = kit::Kind::kEdges,
                      kCircles = kit::Kind::kCircles;
  const auto thing = [](double x, double y, double angle) {
    return kit::Thing{.x = x, .y = y, .angle = angle};
  };
  const double diagonal = 50 / std::sqrt(2.0);
  const Crossed cases[] = {
      {thing(40, 7, 0), kLines, thing(10, 90, -90), kLines, {{10, 7, 0}}},
      // The same line lies on the other side of the second one: x runs the other way.
      {thing(-40, 7, 0), kLines, thing(10, 90, -90), kLines, {{10, 7, 180}}},
      {thing(20 + diagonal, 30 - diagonal, -45),
       kLines,
       thing(20, 0, -90),
       kLines,
       {{20, 30, -45}}},
      // Edges lie at right angles to the direction in which they are looked for.
      {thing(10, 0, 0), kEdges, thing(0, 20, 90), kEdges, {{10, 20, -90}}},
      {thing(10, 40, 0), kEdges, thing(0, 20, 0), kLines, {{10, 20, 90}}},
      {thing(3, 4, 0), kCircles, thing(3, 14, 0), kCircles, {{3, 4, 90}}},
      {thing(3, 4, 0), kCircles, thing(3, 4, 0), kCircles, {}},
      {thing(3, 4, 30), kLines, thing(5, 9, 30), kLines, {}},
      {kit::NothingFound(), kLines, thing(5, 9, 30), kLines, {}},
  };
  for (const Crossed& c : cases) {
    const auto frame = kit::FrameOf(c.first, c.firstKind, c.second, c.secondKind);
    ASSERT_EQ(frame.has_value(), c.expected.has_value()) << c.first.x;
    if (!frame) continue;
    EXPECT_EQ(frame->scale, 1);
    EXPECT_NEAR(frame->pose.x, (*c.expected)[0], 1e-9) << c.first.x;
    EXPECT_NEAR(frame->pose.y, (*c.expected)[1], 1e-9) << c.first.x;
    EXPECT_NEAR(std::remainder(frame->pose.degrees - (*c.expected)[2], 360), 0, 1e-9) << c.first.x;
  }
}

// The circle itself, not the box around it, and every edge point as what it was taken for.
TEST(Measuring, ReportsShowWhatWasFittedToWhat) {
  GreyImage image;
  DrawShapes(image);
  const kit::Operation& operation = *kit::FindOperation("fit-circle");
  kit::ReadyOperation ready(operation, ReadValues(operation, {{"ring", {160, 50, 15, 33}},
                                                              {"sign", "falling"},
                                                              {"select", "last"}}));
  kit::Content content;
  ready.Run({&image, nullptr}, {}, content);
  ASSERT_EQ(content.things.size(), 1u);
  const kit::Thing& circle = content.things[0];
  kit::Report report = ready.Page("a.png");
  ready.Draw({"a.png", {&image, nullptr}, operation.output, content.things}, 0, report);
  std::map<std::string, size_t> points;
  for (const kit::Drawing& drawing : report.pictures.back().Drawings()) {
    const std::string& layer = report.layers[size_t(drawing.mark.layer)].name;
    points[layer] += drawing.points.size();
    for (const Point& at : drawing.points) {
      const double radius = kit::Distance(at, {circle.x, circle.y});
      const double away = std::abs(radius - circle.diameter / 2);
      if (layer == "Refused") {
        EXPECT_GT(away, circle.rms);
      } else if (layer == "Outline" || layer == "Edge points") {
        EXPECT_LT(away, 1e-9 + (layer == "Outline" ? 0 : circle.worst));
      }
    }
  }
  EXPECT_GT(circle.refused, 2);
  EXPECT_EQ(points["Edge points"], size_t(circle.used));
  EXPECT_EQ(points["Refused"], size_t(circle.refused));
  EXPECT_GT(points["Outline"], 20u);
}

// Looked for at three frames, of which the second does not exist: things keep their places, and the
// page shows where was looked.
TEST(Measuring, RegionsAreDrawnWhereTheyCameToLie) {
  GreyImage image;
  image.Create(80, 60);
  for (int y = 20; y < 24; ++y) std::fill_n(image.rows[y] + 50, 5, static_cast<unsigned char>(200));
  const std::optional<kit::Frame> frames[] = {kit::Frame{{52, 22, 90}, 2}, std::nullopt,
                                              kit::Frame{{20, 40, 0}, 1}};
  struct Placed {
    const char* operation;
    Json arguments;
    std::vector<std::vector<Point>> outlines;
  };
  const Placed cases[] = {
      {"blobs",
       {{"band", {128, 255}}, {"polygon", {{-4, -3}, {4, -3}, {4, 3}}}},
       {{{58, 14}, {58, 30}, {46, 30}}, {{16, 37}, {24, 37}, {24, 43}}}},
      {"edges",
       {{"box", {1, 0, 10, 6, 0}}, {"select", "first"}},
       {{{58, 14}, {58, 34}, {46, 34}, {46, 14}}, {{16, 37}, {26, 37}, {26, 43}, {16, 43}}}},
  };
  for (const Placed& c : cases) {
    const kit::Operation& operation = *kit::FindOperation(c.operation);
    kit::ReadyOperation ready(operation, ReadValues(operation, c.arguments));
    kit::Content content;
    ready.RunAt(frames, {&image, nullptr}, {}, content);
    ASSERT_EQ(content.things.size(), 3u) << c.operation;
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(content.things[size_t(i)].number, i);
      EXPECT_EQ(IsThere(content.things[size_t(i)]), i == 0) << c.operation << i;
    }
    kit::Report report = ready.Page("a.png");
    ready.Draw({"a.png", {&image, nullptr}, operation.output, content.things}, 0, report);
    ASSERT_EQ(report.layers.back().name, "Region");
    std::vector<std::vector<Point>> drawn;
    for (const kit::Drawing& drawing : report.pictures.back().Drawings()) {
      EXPECT_LT(drawing.mark.row, 1) << "what was not found is drawn";
      const bool isRegion = drawing.mark.layer == static_cast<int>(report.layers.size()) - 1;
      if (isRegion) drawn.push_back(drawing.points);
    }
    ASSERT_EQ(drawn.size(), c.outlines.size());
    for (size_t i = 0; i < drawn.size(); ++i) {
      ASSERT_EQ(drawn[i].size(), c.outlines[i].size());
      for (size_t k = 0; k < drawn[i].size(); ++k) {
        EXPECT_NEAR(drawn[i][k].x, c.outlines[i][k].x, 1e-9) << c.operation << i << k;
        EXPECT_NEAR(drawn[i][k].y, c.outlines[i][k].y, 1e-9) << c.operation << i << k;
      }
    }
    // A place that comes to lie too far away is no place.
    const std::optional<kit::Frame> away[] = {kit::Frame{{40'000, 0, 0}, 1}};
    EXPECT_THROW(ready.RunAt(away, {&image, nullptr}, {}, content), kit::Failure) << c.operation;
  }
}

}  // namespace
}  // namespace quillon::test
