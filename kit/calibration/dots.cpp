#include "kit/calibration/dots.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "kit/errors.h"

namespace quillon::kit {
namespace {

// Sums of all grey values above and to the left.
class Sums {
 public:
  explicit Sums(const GreyImage& image)
      : width_(image.width), height_(image.height), sums_(size_t(width_ + 1) * (height_ + 1)) {
    for (int y = 0; y < height_; ++y) {
      int64_t row = 0;
      for (int x = 0; x < width_; ++x) {
        row += image.rows[y][x];
        At(x + 1, y + 1) = At(x + 1, y) + row;
      }
    }
  }
  double MeanAround(int x, int y, int reach) {
    const int left = std::max(x - reach, 0), right = std::min(x + reach + 1, width_);
    const int top = std::max(y - reach, 0), bottom = std::min(y + reach + 1, height_);
    const int64_t sum = At(right, bottom) - At(left, bottom) - At(right, top) + At(left, top);
    return static_cast<double>(sum) / (static_cast<double>(right - left) * (bottom - top));
  }

 private:
  int64_t& At(int x, int y) { return sums_[size_t(y) * size_t(width_ + 1) + size_t(x)]; }
  int width_, height_;
  std::vector<int64_t> sums_;
};

// What differs from its surroundings, in one picture.
struct Spot {
  Point at;
  double area, roundness;
  bool touchesEdge;
};

class Spots {
 public:
  // `sign` is 1 for dark dots, -1 for bright ones.
  Spots(const GreyImage& image, int sign) : image_(image), sign_(sign) {
    // Around a pixel as much of the ground is looked at as a few dots and their gaps take.
    const int reach = std::max(8, std::min(image.width, image.height) / 12);
    Sums sums(image);
    differs_.resize(size_t(image.width) * size_t(image.height));
    for (int y = 0; y < image.height; ++y) {
      for (int x = 0; x < image.width; ++x) {
        constexpr double kLeast = 12;  // grey values
        const double away = sign * (sums.MeanAround(x, y, reach) - image.rows[y][x]);
        differs_[Index(x, y)] = away >= kLeast;
      }
    }
  }

  std::vector<Spot> All() {
    std::vector<Spot> spots;
    for (int y = 0; y < image_.height; ++y) {
      for (int x = 0; x < image_.width; ++x) {
        if (differs_[Index(x, y)]) spots.push_back(Take(x, y));
      }
    }
    return spots;
  }

 private:
  size_t Index(int x, int y) const { return size_t(y) * size_t(image_.width) + size_t(x); }

  // The connected pixels around this one that differ too. They are taken out of the picture of
  // differences, so that no spot is found twice.
  Spot Take(int x, int y) {
    std::vector<std::pair<int, int>> pixels = {{x, y}};
    differs_[Index(x, y)] = false;
    int left = x, right = x, top = y, bottom = y;
    for (size_t i = 0; i < pixels.size(); ++i) {
      const auto [px, py] = pixels[i];
      left = std::min(left, px), right = std::max(right, px);
      top = std::min(top, py), bottom = std::max(bottom, py);
      constexpr int kSides[4][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
      for (const auto& [dx, dy] : kSides) {
        const int nx = px + dx, ny = py + dy;
        if (nx < 0 || ny < 0 || nx >= image_.width || ny >= image_.height) continue;
        if (!differs_[Index(nx, ny)]) continue;
        differs_[Index(nx, ny)] = false;
        pixels.push_back({nx, ny});
      }
    }
    Spot spot = {{0, 0}, static_cast<double>(pixels.size()), 0, false};
    spot.touchesEdge =
        left == 0 || top == 0 || right == image_.width - 1 || bottom == image_.height - 1;
    for (const auto& [px, py] : pixels) spot.at.x += px / spot.area, spot.at.y += py / spot.area;
    double xx = 1.0 / 12, yy = 1.0 / 12, xy = 0;
    for (const auto& [px, py] : pixels) {
      const double dx = px - spot.at.x, dy = py - spot.at.y;
      xx += dx * dx / spot.area;
      yy += dy * dy / spot.area;
      xy += dx * dy / spot.area;
    }
    // 1 for every ellipse, however slanted the board is, 0.955 for the squares of a chessboard: the
    // area over that of the ellipse with the same moments.
    const double spread = std::sqrt(std::max(xx * yy - xy * xy, 1e-12));
    spot.roundness = spot.area / (4 * std::numbers::pi * spread);
    spot.at = Centre(left, top, right, bottom);
    return spot;
  }

  // Weighted by how far each pixel is from the ground, which may slope: the plane through the grey
  // values at the corners of a box two pixels wider.
  Point Centre(int left, int top, int right, int bottom) const {
    constexpr int kWider = 2;
    left = std::max(left - kWider, 0), right = std::min(right + kWider, image_.width - 1);
    top = std::max(top - kWider, 0), bottom = std::min(bottom + kWider, image_.height - 1);
    double edge[4] = {};  // means of the left, right, top and bottom sides
    for (int y = top; y <= bottom; ++y) {
      edge[0] += image_.rows[y][left] / double(bottom - top + 1);
      edge[1] += image_.rows[y][right] / double(bottom - top + 1);
    }
    for (int x = left; x <= right; ++x) {
      edge[2] += image_.rows[top][x] / double(right - left + 1);
      edge[3] += image_.rows[bottom][x] / double(right - left + 1);
    }
    const double middle = (edge[0] + edge[1] + edge[2] + edge[3]) / 4;
    const double across = (edge[1] - edge[0]) / (right - left),
                 down = (edge[3] - edge[2]) / (bottom - top);
    const double cx = (left + right) / 2.0, cy = (top + bottom) / 2.0;
    double sum = 0, x = 0, y = 0;
    for (int py = top; py <= bottom; ++py) {
      for (int px = left; px <= right; ++px) {
        const double ground = middle + across * (px - cx) + down * (py - cy);
        const double weight = std::max(sign_ * (ground - image_.rows[py][px]), 0.0);
        sum += weight;
        x += weight * px;
        y += weight * py;
      }
    }
    return sum > 0 ? Point{x / sum, y / sum} : Point{cx, cy};
  }

  const GreyImage& image_;
  int sign_;
  std::vector<bool> differs_;
};

std::vector<BoardCandidate> Dots(const GreyImage& image, int sign) {
  constexpr double kLeastArea = 9, kLeastRoundness = 0.97, kOtherSize = 3;
  constexpr size_t kMost = 5000;
  std::vector<Spot> spots = Spots(image, sign).All();
  std::erase_if(spots, [](const Spot& spot) {
    return spot.touchesEdge || spot.area < kLeastArea || spot.roundness < kLeastRoundness;
  });
  if (spots.empty()) return {};
  std::vector<double> areas;
  areas.reserve(spots.size());
  for (const Spot& spot : spots) areas.push_back(spot.area);
  const auto half = areas.begin() + static_cast<std::ptrdiff_t>(areas.size() / 2);
  std::nth_element(areas.begin(), half, areas.end());
  const double usual = *half;
  std::erase_if(spots, [&](const Spot& spot) {
    return spot.area > kOtherSize * usual || spot.area * kOtherSize < usual;
  });
  std::stable_sort(spots.begin(), spots.end(),
                   [](const Spot& a, const Spot& b) { return a.roundness > b.roundness; });
  if (spots.size() > kMost) spots.resize(kMost);
  std::vector<BoardCandidate> dots;
  dots.reserve(spots.size());
  for (const Spot& spot : spots) dots.push_back({spot.at});
  return dots;
}

}  // namespace

std::vector<BoardPoint> FindDots(const GreyImage& image, BoardSize size) try {
  std::vector<BoardPoint> dark = LargestGrid(Dots(image, 1), size);
  std::vector<BoardPoint> bright = LargestGrid(Dots(image, -1), size);
  return bright.size() > dark.size() ? bright : dark;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the dots of a board");
}

}  // namespace quillon::kit
