#include "cli/drawn_views.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillon::test {

using kit::Point;

void DrawnPicture::Blur(double deviation) {
  const int reach = static_cast<int>(std::ceil(4 * deviation));
  std::vector<double> weights;
  double total = 0;
  for (int k = -reach; k <= reach; ++k) {
    weights.push_back(std::exp(-k * k / (2 * deviation * deviation)));
    total += weights.back();
  }
  const auto walk = [&](int count, int step, size_t first) {
    std::vector<double> line;
    for (int i = 0; i < count; ++i) line.push_back(grey[first + size_t(i) * size_t(step)]);
    for (int i = 0; i < count; ++i) {
      double sum = 0;
      for (int k = -reach; k <= reach; ++k) {
        sum += weights[size_t(k + reach)] * line[size_t(std::clamp(i + k, 0, count - 1))];
      }
      grey[first + size_t(i) * size_t(step)] = sum / total;
    }
  };
  for (int y = 0; y < height; ++y) walk(width, 1, size_t(y) * size_t(width));
  for (int x = 0; x < width; ++x) walk(height, width, size_t(x));
}

void DrawnPicture::To(GreyImage& image, double noise, std::mt19937_64& random) const {
  std::normal_distribution<double> error(0, 1);
  image.Create(width, height);
  auto next = grey.begin();
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double value = *next++ + (noise > 0 ? noise * error(random) : 0);
      image.rows[y][x] = static_cast<unsigned char>(std::lround(std::clamp(value, 0.0, 255.0)));
    }
  }
}

PlaneView::PlaneView(const kit::Lens& lens, const kit::BoardPlace& place, kit::PictureSize size,
                     int parts)
    : size_(size), parts_(parts) {
  const auto project = [&](double column, double row) {
    const Point seen = place.Seen(column, row);
    return lens.Project(seen.x, seen.y);
  };
  places_.reserve(size_t(size.width) * size_t(size.height) * size_t(parts) * size_t(parts));
  for (int y = 0; y < size.height * parts; ++y) {
    double column = 0, row = 0;
    for (int x = 0; x < size.width * parts; ++x) {
      const Point at = {(x + 0.5) / parts - 0.5, (y + 0.5) / parts - 0.5};
      // Newton's method: from the place of the part before, one step is exact to 1e-5 of a pixel.
      for (int round = 0; round < (x == 0 ? 30 : 1); ++round) {
        constexpr double kStep = 1e-5;
        const Point here = project(column, row), right = project(column + kStep, row),
                    below = project(column, row + kStep);
        const double a = (right.x - here.x) / kStep, b = (below.x - here.x) / kStep;
        const double c = (right.y - here.y) / kStep, d = (below.y - here.y) / kStep;
        const double dx = at.x - here.x, dy = at.y - here.y, determinant = a * d - b * c;
        column += (d * dx - b * dy) / determinant;
        row += (a * dy - c * dx) / determinant;
      }
      places_.push_back({column, row});
    }
  }
}

DrawnPicture PlaneView::Draw(const std::function<double(Point)>& grey) const {
  DrawnPicture picture = {size_.width, size_.height, {}};
  picture.grey.resize(size_t(size_.width) * size_t(size_.height));
  auto place = places_.begin();
  for (int y = 0; y < size_.height * parts_; ++y) {
    for (int x = 0; x < size_.width * parts_; ++x) {
      picture.grey[size_t(y / parts_) * size_t(size_.width) + size_t(x / parts_)] +=
          grey(*place++) / (parts_ * parts_);
    }
  }
  return picture;
}

double Chessboard(Point at, int columns, int rows, double softness) {
  const bool isOnBoard = at.x > -1 && at.x < columns && at.y > -1 && at.y < rows;
  if (!isOnBoard) return 1;
  const auto side = [&](double v) {
    return std::clamp(std::sin(std::numbers::pi * v) / (std::numbers::pi * softness), -1.0, 1.0);
  };
  return 0.5 + 0.5 * side(at.x) * side(at.y);
}

double Dots(Point at, int columns, int rows, double radius, double softness) {
  const double column = std::clamp(std::round(at.x), 0.0, columns - 1.0);
  const double row = std::clamp(std::round(at.y), 0.0, rows - 1.0);
  const double outside =
      std::sqrt((at.x - column) * (at.x - column) + (at.y - row) * (at.y - row)) - radius;
  return std::clamp(0.5 + outside / (2 * softness), 0.0, 1.0);
}

}  // namespace quillon::test
