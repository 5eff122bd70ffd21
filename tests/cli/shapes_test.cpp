// Shapes of blobs and grey values of regions, against their definitions pixel by pixel.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
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

TEST(Regions, AreThePixelsOfTheTurnedRectangle) {
  GreyImage image;
  image.Create(60, 50);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      image.rows[y][x] = static_cast<unsigned char>((x * x + 3 * y * y + 5 * x * y) % 251);
    }
  }
  const double boxes[][5] = {
      {30, 25, 21, 11, 0}, {30, 25, 21, 11, 33}, {2, 3, 30, 8, -120}, {59, 49, 1, 1, 0}};
  for (const auto& [bx, by, width, height, degrees] : boxes) {
    std::vector<int> greys;
    const double a = degrees * std::numbers::pi / 180;
    for (int y = 0; y < image.height; ++y) {
      for (int x = 0; x < image.width; ++x) {
        const double u = (x - bx) * std::cos(a) + (y - by) * std::sin(a);
        const double v = (y - by) * std::cos(a) - (x - bx) * std::sin(a);
        if (std::abs(u) <= width / 2 && std::abs(v) <= height / 2)
          greys.push_back(image.rows[y][x]);
      }
    }
    std::sort(greys.begin(), greys.end());
    const auto found =
        Found(image, "statistics",
              {{"box", {bx, by, width, height, degrees}}, {"percentiles", {10, 75}}});
    ASSERT_EQ(found.size(), 1u);
    const auto count = double(greys.size());
    double mean = 0, squares = 0;
    for (const int grey : greys) mean += grey / count;
    for (const int grey : greys) squares += (grey - mean) * (grey - mean) / count;
    const auto share = [&](double part) { return greys[size_t(std::ceil(part * count)) - 1]; };
    const kit::Thing& region = found[0];
    EXPECT_EQ(region.area, count);
    EXPECT_NEAR(region.mean, mean, 1e-9);
    EXPECT_NEAR(region.deviation, std::sqrt(squares), 1e-9);
    EXPECT_EQ(region.median, share(0.5));
    EXPECT_EQ(region.low, share(0.1));
    EXPECT_EQ(region.high, share(0.75));
    EXPECT_EQ(region.darkest, greys.front());
    EXPECT_EQ(region.brightest, greys.back());
  }
  EXPECT_THROW(Found(image, "statistics", {{"box", {90, 25, 20, 10, 0}}}), kit::Failure);
}

}  // namespace
}  // namespace quillon::test
