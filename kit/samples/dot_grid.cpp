#include "kit/samples/dot_grid.h"

#include <algorithm>
#include <cmath>

#include "kit/errors.h"

namespace quillon::kit {
namespace {

constexpr double kDotRadius = 13, kBarrel = 1.6e-7;  // per square pixel
constexpr int kPaper = 225, kInk = 35;

// Where the lens shows a point of the target, both relative to the optical axis.
Point Bend(Point p) {
  const double shrink = 1 - kBarrel * (p.x * p.x + p.y * p.y);
  return {p.x * shrink, p.y * shrink};
}

// The light falls off towards the corners.
double Light(Point p) { return 1 - 2.5e-7 * (p.x * p.x + p.y * p.y); }

}  // namespace

void DrawDotGrid(int width, int height, GreyImage& image, std::vector<Point>& centres) try {
  image.Create(width, height);
  if (!image.bits) throw OutOfMemory("a drawn grid");
  const Point axis = {(width - 1) / 2.0, (height - 1) / 2.0};
  const auto shade = [&](int x, int y, double grey) {
    return static_cast<unsigned char>(std::lround(grey * Light({x - axis.x, y - axis.y})));
  };
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) image.rows[y][x] = shade(x, y, kPaper);
  }

  centres.clear();
  const double first = -kGridStep * (kGridSide - 1) / 2;
  for (int row = 0; row < kGridSide; ++row) {
    for (int column = 0; column < kGridSide; ++column) {
      const Point bent = Bend({first + kGridStep * column, first + kGridStep * row});
      const Point centre = {axis.x + bent.x, axis.y + bent.y};
      centres.push_back(centre);
      const int reach = static_cast<int>(kDotRadius) + 2;
      const int left = static_cast<int>(centre.x) - reach, top = static_cast<int>(centre.y) - reach;
      for (int y = std::max(top, 0); y <= std::min(top + 2 * reach + 1, height - 1); ++y) {
        for (int x = std::max(left, 0); x <= std::min(left + 2 * reach + 1, width - 1); ++x) {
          const double outside = Length(x - centre.x, y - centre.y) - kDotRadius;
          const double paper = std::clamp(outside + 0.5, 0.0, 1.0);  // the share of the pixel
          if (paper < 1) image.rows[y][x] = shade(x, y, kInk + (kPaper - kInk) * paper);
        }
      }
    }
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a drawn grid");
}

}  // namespace quillon::kit
