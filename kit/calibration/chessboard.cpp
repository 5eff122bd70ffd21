#include "kit/calibration/chessboard.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <numbers>
#include <optional>

#include "kit/elementary.h"
#include "kit/errors.h"

namespace quillon::kit {
namespace {

// ---- a picture of floating grey values ----------------------------------------------------------

struct Plane {
  int width, height;
  std::vector<float> grey;

  float At(int x, int y) const { return grey[static_cast<size_t>(y) * width + x]; }
  // Between four pixels; the place lies inside by a pixel at least.
  double Between(double x, double y) const {
    const int left = static_cast<int>(x), top = static_cast<int>(y);
    const double fx = x - left, fy = y - top;
    return (1 - fy) * ((1 - fx) * At(left, top) + fx * At(left + 1, top)) +
           fy * ((1 - fx) * At(left, top + 1) + fx * At(left + 1, top + 1));
  }
  bool Holds(Point at, double margin) const {
    return at.x >= margin && at.y >= margin && at.x < width - 1 - margin &&
           at.y < height - 1 - margin;
  }
};

Plane ToPlane(const GreyImage& image) {
  Plane plane = {image.width, image.height, {}};
  plane.grey.reserve(static_cast<size_t>(image.width) * image.height);
  for (int y = 0; y < image.height; ++y) {
    plane.grey.insert(plane.grey.end(), image.rows[y], image.rows[y] + image.width);
  }
  return plane;
}

// By a Gaussian, rows and columns in turn; edges are continued.
Plane Smoothed(const Plane& plane, double deviation) {
  const int reach = static_cast<int>(std::ceil(3 * deviation));
  std::vector<float> weights;
  float total = 0;
  for (int k = -reach; k <= reach; ++k) {
    weights.push_back(static_cast<float>(Exp(-k * k / (2 * deviation * deviation))));
    total += weights.back();
  }
  for (float& weight : weights) weight /= total;
  Plane rows = plane, result = plane;
  const auto walk = [&](const Plane& from, Plane& to, int dx, int dy) {
    for (int y = 0; y < plane.height; ++y) {
      for (int x = 0; x < plane.width; ++x) {
        float sum = 0;
        for (int k = 0; k <= 2 * reach; ++k) {
          sum += weights[static_cast<size_t>(k)] *
                 from.At(std::clamp(x + (k - reach) * dx, 0, plane.width - 1),
                         std::clamp(y + (k - reach) * dy, 0, plane.height - 1));
        }
        to.grey[static_cast<size_t>(y) * plane.width + x] = sum;
      }
    }
  };
  walk(plane, rows, 1, 0);
  walk(rows, result, 0, 1);
  return result;
}

// ---- corners ------------------------------------------------------------------------------------

struct Corner {
  Point at;
  double strength;               // of the saddle
  std::complex<double> pattern;  // how bright twice around: its size, and half of it its direction
};

// How the grey values on a circle go twice around, and whether little else goes on there.
std::optional<std::complex<double>> TwiceAround(const Plane& plane, Point at, double radius) {
  constexpr size_t kSamples = 32;
  static const auto kDirections = [] {
    std::array<std::complex<double>, kSamples> directions;
    for (size_t i = 0; i < kSamples; ++i) {
      const auto [sine, cosine] = SineCosineOf(2 * std::numbers::pi * double(i) / kSamples);
      directions[i] = {cosine, sine};
    }
    return directions;
  }();
  if (!plane.Holds(at, radius + 1)) return {};
  double mean = 0, energy = 0;
  double grey[kSamples];
  for (size_t i = 0; i < kSamples; ++i) {
    const auto& direction = kDirections[i];
    grey[i] = plane.Between(at.x + radius * direction.real(), at.y + radius * direction.imag());
    mean += grey[i] / kSamples;
  }
  std::complex<double> twice = 0;
  for (size_t i = 0; i < kSamples; ++i) {
    twice += (grey[i] - mean) * kDirections[2 * i % kSamples] / (kSamples / 2.0);
    energy += (grey[i] - mean) * (grey[i] - mean) / (kSamples / 2.0);
  }
  // Of a square wave four fifths of the energy are in its first harmonic; noise and the slant of a
  // board leave less.
  constexpr double kLeastShare = 0.6, kLeastSwing = 8;
  if (std::norm(twice) < kLeastShare * energy || std::norm(twice) < kLeastSwing * kLeastSwing)
    return {};
  return twice;
}

// The place to which gradients around point at right angles, from a start near it.
std::optional<Point> Refined(const Plane& plane, Point start) {
  constexpr int kHalf = 5, kRounds = 40;
  constexpr double kSettled = 0.001, kFarthest = kHalf;
  double weights[kHalf + 1];  // by the distance along an axis
  for (int d = 0; d <= kHalf; ++d) weights[d] = Exp(-d * d / double(kHalf * kHalf));
  Point at = start;
  for (int round = 0; round < kRounds; ++round) {
    if (!plane.Holds(at, kHalf + 2)) return {};
    double xx = 0, xy = 0, yy = 0, bx = 0, by = 0;
    for (int dy = -kHalf; dy <= kHalf; ++dy) {
      for (int dx = -kHalf; dx <= kHalf; ++dx) {
        const double x = at.x + dx, y = at.y + dy;
        const double weight = weights[std::abs(dx)] * weights[std::abs(dy)];
        const double gx = (plane.Between(x + 1, y) - plane.Between(x - 1, y)) / 2;
        const double gy = (plane.Between(x, y + 1) - plane.Between(x, y - 1)) / 2;
        xx += weight * gx * gx;
        xy += weight * gx * gy;
        yy += weight * gy * gy;
        bx += weight * (gx * gx * dx + gx * gy * dy);
        by += weight * (gx * gy * dx + gy * gy * dy);
      }
    }
    const double determinant = xx * yy - xy * xy;
    if (!(determinant > 1e-9 * (xx + yy) * (xx + yy))) return {};
    const Point step = {(yy * bx - xy * by) / determinant, (xx * by - xy * bx) / determinant};
    at = {at.x + step.x, at.y + step.y};
    if (Distance(at, start) > kFarthest) return {};
    if (Length(step) < kSettled) break;
  }
  return at;
}

// Where the smoothed picture is level in both directions: Newton's method.
std::optional<Point> Saddle(const Plane& smooth, Point start) {
  constexpr int kRounds = 5;
  constexpr double kFarthest = 3;
  Point at = start;
  for (int round = 0; round < kRounds; ++round) {
    if (!smooth.Holds(at, 3)) return {};
    const auto grey = [&](double dx, double dy) { return smooth.Between(at.x + dx, at.y + dy); };
    const double x = (grey(1, 0) - grey(-1, 0)) / 2, y = (grey(0, 1) - grey(0, -1)) / 2;
    const double xx = grey(1, 0) - 2 * grey(0, 0) + grey(-1, 0);
    const double yy = grey(0, 1) - 2 * grey(0, 0) + grey(0, -1);
    const double xy = (grey(1, 1) - grey(-1, 1) - grey(1, -1) + grey(-1, -1)) / 4;
    const double determinant = xx * yy - xy * xy;
    if (!(determinant < 0)) return {};
    at = {at.x - (yy * x - xy * y) / determinant, at.y - (xx * y - xy * x) / determinant};
    if (Distance(at, start) > kFarthest) return {};
  }
  return at;
}

// By the gradients where edges are sharp. Where they are soft all around, gradients lead astray,
// and the saddle tells the place.
std::optional<Point> PlaceOf(const Plane& plane, const Plane& smooth, Point start) {
  constexpr double kAstray = 0.5;
  const auto saddle = Saddle(smooth, start);
  if (!saddle) return {};
  const auto refined = Refined(plane, start);
  const bool agrees = refined && Distance(*refined, *saddle) < kAstray;
  return agrees ? refined : saddle;
}

std::vector<Corner> Corners(const GreyImage& image) {
  constexpr double kSmoothing = 1.5, kRadius = 5;
  constexpr int kApart = 3, kMost = 3000;
  const Plane plane = ToPlane(image), smooth = Smoothed(plane, kSmoothing);
  Plane saddles = {plane.width, plane.height, std::vector<float>(plane.grey.size())};
  for (int y = 2; y < plane.height - 2; ++y) {
    for (int x = 2; x < plane.width - 2; ++x) {
      const float middle = 2 * smooth.At(x, y);
      const float xx = smooth.At(x + 1, y) - middle + smooth.At(x - 1, y);
      const float yy = smooth.At(x, y + 1) - middle + smooth.At(x, y - 1);
      const float xy = (smooth.At(x + 1, y + 1) - smooth.At(x - 1, y + 1) -
                        smooth.At(x + 1, y - 1) + smooth.At(x - 1, y - 1)) /
                       4;
      saddles.grey[static_cast<size_t>(y) * plane.width + x] = std::max(xy * xy - xx * yy, 0.0F);
    }
  }
  std::vector<Corner> found;
  for (int y = kApart; y < plane.height - kApart; ++y) {
    for (int x = kApart; x < plane.width - kApart; ++x) {
      const float here = saddles.At(x, y);
      constexpr float kLeast = 1;
      bool isPeak = here > kLeast;
      for (int dy = -kApart; isPeak && dy <= kApart; ++dy) {
        for (int dx = -kApart; isPeak && dx <= kApart; ++dx) {
          const float there = saddles.At(x + dx, y + dy);
          isPeak = there < here || (there == here && (dy > 0 || (dy == 0 && dx >= 0)));
        }
      }
      if (isPeak) found.push_back({{double(x), double(y)}, here, 0});
    }
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const Corner& a, const Corner& b) { return a.strength > b.strength; });
  if (found.size() > kMost) found.resize(kMost);
  std::vector<Corner> corners;
  for (const Corner& candidate : found) {
    if (!TwiceAround(smooth, candidate.at, kRadius)) continue;
    const auto at = PlaceOf(plane, smooth, candidate.at);
    if (!at) continue;
    const auto pattern = TwiceAround(smooth, *at, kRadius);
    if (!pattern) continue;
    const auto isSame = [&](const Corner& other) { return Distance(other.at, *at) < kApart; };
    if (std::any_of(corners.begin(), corners.end(), isSame)) continue;
    corners.push_back({*at, candidate.strength, *pattern});
  }
  return corners;
}

}  // namespace

std::vector<BoardPoint> FindChessboard(const GreyImage& image, BoardSize size) try {
  std::vector<BoardCandidate> candidates;
  for (const Corner& corner : Corners(image)) candidates.push_back({corner.at, corner.pattern});
  return LargestGrid(candidates, size);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the corners of a board");
}

}  // namespace quillon::kit
