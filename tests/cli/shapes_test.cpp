// Shapes of blobs and grey values of regions, against their definitions pixel by pixel.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <map>
#include <numbers>
#include <set>

#include "cli/found.h"
#include "kit/errors.h"
#include "support/images.h"

namespace quillon::test {
namespace {

using kit::Json;

using Pixel = std::pair<int, int>;  // row and column

// The groups of bright pixels by flooding, in the order of their first pixels.
std::vector<std::set<Pixel>> Groups(const GreyImage& image) {
  std::vector<std::set<Pixel>> groups;
  std::set<Pixel> seen;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      if (image.rows[y][x] < 128 || seen.contains({y, x})) continue;
      std::set<Pixel>& group = groups.emplace_back();
      std::vector<Pixel> open = {{y, x}};
      while (!open.empty()) {
        const auto [py, px] = open.back();
        open.pop_back();
        const bool isIn = py >= 0 && px >= 0 && py < image.height && px < image.width;
        if (!isIn || image.rows[py][px] < 128 || !seen.insert({py, px}).second) continue;
        group.insert({py, px});
        for (int k = 0; k < 9; ++k) open.push_back({py + k / 3 - 1, px + k % 3 - 1});
      }
    }
  }
  return groups;
}

// Half the sum of cross products around the hull, which goes on from each corner to the one that
// has all others on one side.
double HullArea(const std::set<Pixel>& group) {
  std::set<Pixel> corners;
  for (const auto& [y, x] : group) {
    for (int k = 0; k < 4; ++k) corners.insert({y + k / 2, x + k % 2});
  }
  const Pixel start = *corners.begin();
  Pixel at = start;
  double area = 0;
  do {
    Pixel next = at == start ? *corners.rbegin() : start;
    for (const Pixel& other : corners) {
      const double turn = double(next.second - at.second) * (other.first - at.first) -
                          double(next.first - at.first) * (other.second - at.second);
      const auto length = [&](Pixel p) {
        return std::hypot(p.first - at.first, p.second - at.second);
      };
      if (turn < 0 || (turn == 0 && length(other) > length(next))) next = other;
    }
    area += (double(at.second) * next.first - double(next.second) * at.first) / 2;
    at = next;
  } while (at != start);
  return std::abs(area);
}

TEST(Shapes, AreThoseOfTheirDefinitions) {
  GreyImage image;
  image.Create(90, 70);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      const double u = (x - 24) * 0.8 + (y - 20) * 0.6, v = (y - 20) * 0.8 - (x - 24) * 0.6;
      const bool inEllipse = u * u / 225 + v * v / 49 < 1;
      const bool inDisc = std::hypot(x - 65, y - 24) < 15;
      const bool inHook =
          (x > 10 && x < 60 && y > 45 && y < 52) || (x > 10 && x < 18 && y > 44 && y < 66);
      const bool inCorner = x > 84 && y > 64, inPixel = x == 75 && y == 60,
                 inLine = x == 80 && y > 40 && y < 50;
      const bool inFork = y < 12 && (x == 40 || x == 48 || (y == 11 && x > 40 && x < 48));
      const bool isBright =
          inFork || inEllipse || inDisc || inHook || inCorner || inPixel || inLine;
      image.rows[y][x] = static_cast<unsigned char>((isBright ? 170 : 40) + (x * 7 + y * 13) % 31);
    }
  }
  const auto groups = Groups(image);
  const auto shapes = Found(image, "shapes", {{"band", {128, 255}}});
  ASSERT_EQ(shapes.size(), groups.size());
  for (size_t i = 0; i < shapes.size(); ++i) {
    // Labelling numbers blobs in an order of its own.
    const kit::Thing& shape = shapes[i];
    const auto its = std::find_if(groups.begin(), groups.end(), [&](const std::set<Pixel>& group) {
      const auto isIn = [&](const Pixel& p) {
        return p.second >= shape.left && p.second <= shape.right && p.first >= shape.top &&
               p.first <= shape.bottom;
      };
      return double(group.size()) == shape.area && std::all_of(group.begin(), group.end(), isIn);
    });
    ASSERT_NE(its, groups.end()) << i;
    const std::set<Pixel>& group = *its;
    const auto area = double(group.size());
    double x = 0, y = 0, grey = 0, squares = 0, xx = 1.0 / 12, xy = 0, yy = 1.0 / 12;
    std::vector<int> greys, around;
    for (const auto& [py, px] : group) {
      x += px / area;
      y += py / area;
      grey += image.rows[py][px] / area;
      greys.push_back(image.rows[py][px]);
    }
    for (const auto& [py, px] : group) {
      xx += (px - x) * (px - x) / area;
      xy += (px - x) * (py - y) / area;
      yy += (py - y) * (py - y) / area;
      squares += std::pow(image.rows[py][px] - grey, 2) / area;
    }
    double ground = 0;
    for (int py = 0; py < image.height; ++py) {
      for (int px = 0; px < image.width; ++px) {
        const bool isNear = std::any_of(group.begin(), group.end(), [&](const Pixel& p) {
          return std::abs(p.first - py) <= 3 && std::abs(p.second - px) <= 3;
        });
        if (isNear && image.rows[py][px] < 128) around.push_back(image.rows[py][px]);
      }
    }
    for (const int value : around) ground += double(value) / double(around.size());
    std::sort(greys.begin(), greys.end());
    const double turn = std::atan2(2 * xy, xx - yy) / 2;
    const double c = std::cos(turn), s = std::sin(turn);
    const double longer = xx * c * c + 2 * xy * c * s + yy * s * s, shorter = xx + yy - longer;
    const double hull = HullArea(group);
    const std::map<const char*, std::pair<double, double>> both = {
        {"area", {shape.area, area}},
        {"x", {shape.x, x}},
        {"y", {shape.y, y}},
        {"mxx", {shape.mxx, xx}},
        {"mxy", {shape.mxy, xy}},
        {"myy", {shape.myy, yy}},
        {"elongation", {shape.elongation, std::sqrt(longer / shorter)}},
        {"circularity", {shape.circularity, area / (2 * std::numbers::pi * (xx + yy))}},
        {"hull", {shape.hull, hull}},
        {"convexity", {shape.convexity, area / hull}},
        {"mean", {shape.mean, grey}},
        {"median", {shape.median, greys[(greys.size() + 1) / 2 - 1]}},
        {"deviation", {shape.deviation, std::sqrt(squares)}},
        {"contrast", {shape.contrast, grey - ground}}};
    for (const auto& [name, values] : both) {
      EXPECT_NEAR(values.first, values.second, 1e-9 * (1 + std::abs(values.second))) << name << i;
    }
    if (shape.elongation > 1.01) {
      EXPECT_NEAR(std::remainder(shape.axis - turn * 180 / std::numbers::pi, 180), 0, 1e-6) << i;
    }
  }
  // Of the disc and the ellipse, what they were drawn from.
  const auto largest = [&](double at) -> const kit::Thing& {
    return *std::find_if(shapes.begin(), shapes.end(),
                         [&](const kit::Thing& shape) { return std::abs(shape.x - at) < 1; });
  };
  EXPECT_NEAR(largest(65).circularity, 1, 0.01);
  EXPECT_NEAR(largest(24).elongation, 15.0 / 7, 0.05);
  EXPECT_NEAR(largest(24).axis, std::atan2(0.6, 0.8) * 180 / std::numbers::pi, 0.5);
  // What is kept keeps its own shape.
  const auto kept = Found(image, "shapes", {{"band", {128, 255}}, {"max_area", 1}});
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept[0].x, 75);
  EXPECT_EQ(kept[0].elongation, 1);
  EXPECT_EQ(Found(image, "shapes", {{"band", {0, 1}}}).size(), 0u);
}

// By a crossing count to the right of the pixel, and its boundary.
bool InPolygon(const std::vector<std::array<int, 2>>& corners, int x, int y) {
  bool isInside = false;
  for (size_t i = 0; i < corners.size(); ++i) {
    const auto [x0, y0] = corners[i];
    const auto [x1, y1] = corners[(i + 1) % corners.size()];
    const int cross = (x1 - x0) * (y - y0) - (y1 - y0) * (x - x0);
    if (cross == 0 && x >= std::min(x0, x1) && x <= std::max(x0, x1) && y >= std::min(y0, y1) &&
        y <= std::max(y0, y1)) {
      return true;
    }
    const bool isAcross = (y0 > y) != (y1 > y);
    if (isAcross && (cross > 0) == (y1 > y0)) isInside = !isInside;
  }
  return isInside;
}

TEST(Regions, AreThePixelsInThem) {
  GreyImage image;
  image.Create(60, 50);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      image.rows[y][x] = static_cast<unsigned char>((x * x + 3 * y * y + 5 * x * y) % 251);
    }
  }
  struct Part {
    Json arguments;
    std::function<bool(int x, int y)> isInside;
    std::array<double, 5> around;  // as a turned rectangle
  };
  std::vector<Part> parts = {
      {Json::object(), [](int, int) { return true; }, {29.5, 24.5, 60, 50, 0}}};
  for (const std::array<double, 5>& box : std::vector<std::array<double, 5>>{
           {30, 25, 21, 11, 0}, {30, 25, 21, 11, 33}, {2, 3, 30, 8, -120}, {59, 49, 1, 1, 0}}) {
    const double a = box[4] * std::numbers::pi / 180;
    parts.push_back({{{"box", box}},
                     [=](int x, int y) {
                       const double u = (x - box[0]) * std::cos(a) + (y - box[1]) * std::sin(a);
                       const double v = (y - box[1]) * std::cos(a) - (x - box[0]) * std::sin(a);
                       return std::abs(u) <= box[2] / 2 && std::abs(v) <= box[3] / 2;
                     },
                     box});
  }
  for (const std::array<double, 4>& ring :
       std::vector<std::array<double, 4>>{{30, 25, 5, 13}, {55.5, 2, 3, 30}}) {
    parts.push_back({{{"ring", ring}},
                     [=](int x, int y) {
                       const double away = std::hypot(x - ring[0], y - ring[1]);
                       return away >= ring[2] && away <= ring[3];
                     },
                     {ring[0], ring[1], 2 * ring[3], 2 * ring[3], 0}});
  }
  using Corners = std::vector<std::array<int, 2>>;
  const std::pair<Corners, std::array<double, 5>> polygons[] = {
      {{{10, 5}, {40, 5}, {40, 30}, {10, 30}}, {25, 17.5, 30, 25, 0}},
      {{{5, 40}, {30, 3}, {57, 44}, {30, 22}}, {31, 23.5, 52, 41, 0}},  // bent inwards
      {{{5, 5}, {50, 40}, {50, 5}, {5, 40}}, {27.5, 22.5, 45, 35, 0}},  // crosses itself
      {{{-20, -7}, {80, 20}, {30, 70}}, {30, 31.5, 100, 77, 0}},        // out of the picture
      {{{7, 7}, {7, 7}, {7, 7}}, {7, 7, 0, 0, 0}},                      // a pixel
      {{{3, 9}, {21, 15}, {9, 11}, {50, 11}, {50, 20}}, {26.5, 14.5, 47, 11, 0}}};
  for (const auto& [corners, around] : polygons) {
    const Corners kept = corners;
    parts.push_back(
        {{{"polygon", kept}}, [kept](int x, int y) { return InPolygon(kept, x, y); }, around});
  }
  for (const Part& part : parts) {
    std::vector<int> greys;
    for (int y = 0; y < image.height; ++y) {
      for (int x = 0; x < image.width; ++x) {
        if (part.isInside(x, y)) greys.push_back(image.rows[y][x]);
      }
    }
    ASSERT_FALSE(greys.empty()) << part.arguments;
    std::sort(greys.begin(), greys.end());
    Json arguments = part.arguments;
    arguments["percentiles"] = {10, 75};
    const auto found = Found(image, "statistics", arguments);
    ASSERT_EQ(found.size(), 1u);
    const auto count = double(greys.size());
    double mean = 0, squares = 0;
    for (const int grey : greys) mean += grey / count;
    for (const int grey : greys) squares += (grey - mean) * (grey - mean) / count;
    const auto share = [&](double of) { return greys[size_t(std::ceil(of * count)) - 1]; };
    const kit::Thing& region = found[0];
    EXPECT_EQ(region.area, count) << part.arguments;
    EXPECT_NEAR(region.mean, mean, 1e-9);
    EXPECT_NEAR(region.deviation, std::sqrt(squares), 1e-9);
    EXPECT_EQ(region.median, share(0.5));
    EXPECT_EQ(region.low, share(0.1));
    EXPECT_EQ(region.high, share(0.75));
    EXPECT_EQ(region.darkest, greys.front());
    EXPECT_EQ(region.brightest, greys.back());
    EXPECT_EQ((std::array{region.x, region.y, region.width, region.height, region.angle}),
              part.around)
        << part.arguments;
  }
  EXPECT_THROW(Found(image, "statistics", {{"box", {90, 25, 20, 10, 0}}}), kit::Failure);
  EXPECT_THROW(Found(image, "statistics", {{"polygon", {{90, 25}, {99, 25}, {99, 30}}}}),
               kit::Failure);
  EXPECT_THROW(Found(image, "statistics", {{"box", {9, 9, 9, 9, 0}}, {"ring", {9, 9, 1, 2}}}),
               kit::Failure);
}

}  // namespace
}  // namespace quillon::test
