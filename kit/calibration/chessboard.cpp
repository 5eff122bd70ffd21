#include "kit/calibration/chessboard.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <complex>
#include <map>
#include <numbers>
#include <optional>
#include <set>

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
    weights.push_back(static_cast<float>(std::exp(-k * k / (2 * deviation * deviation))));
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
  constexpr int kSamples = 32;
  if (!plane.Holds(at, radius + 1)) return {};
  double mean = 0, energy = 0;
  double grey[kSamples];
  for (int i = 0; i < kSamples; ++i) {
    const double angle = 2 * std::numbers::pi * i / kSamples;
    grey[i] = plane.Between(at.x + radius * std::cos(angle), at.y + radius * std::sin(angle));
    mean += grey[i] / kSamples;
  }
  std::complex<double> twice = 0;
  for (int i = 0; i < kSamples; ++i) {
    const double angle = 4 * std::numbers::pi * i / kSamples;
    twice += (grey[i] - mean) * std::complex(std::cos(angle), std::sin(angle)) / (kSamples / 2.0);
    energy += (grey[i] - mean) * (grey[i] - mean) / (kSamples / 2.0);
  }
  // Of a square wave four fifths of the energy are in its first harmonic; noise and the slant of a
  // board leave less.
  constexpr double kLeastShare = 0.6, kLeastSwing = 8;
  if (std::norm(twice) < kLeastShare * energy || std::abs(twice) < kLeastSwing) return {};
  return twice;
}

// The place to which gradients around point at right angles, from a start near it.
std::optional<Point> Refined(const Plane& plane, Point start) {
  constexpr int kHalf = 5, kRounds = 40;
  constexpr double kSettled = 0.001, kFarthest = kHalf;
  Point at = start;
  for (int round = 0; round < kRounds; ++round) {
    if (!plane.Holds(at, kHalf + 2)) return {};
    double xx = 0, xy = 0, yy = 0, bx = 0, by = 0;
    for (int dy = -kHalf; dy <= kHalf; ++dy) {
      for (int dx = -kHalf; dx <= kHalf; ++dx) {
        const double x = at.x + dx, y = at.y + dy;
        const double weight = std::exp(-(dx * dx + dy * dy) / double(kHalf * kHalf));
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

// ---- the grid -----------------------------------------------------------------------------------

using Place = std::pair<int, int>;  // column and row

class Grid {
 public:
  explicit Grid(const std::vector<Corner>& corners) : corners_(corners) {}

  // Begins at a corner and goes on wherever a next one is found.
  std::map<Place, size_t> Grow(size_t seed) {
    placed_.clear();
    isTaken_.assign(corners_.size(), false);
    if (!PlaceFirst(seed)) return {};
    for (bool grows = true; grows;) {
      grows = false;
      const auto placed = placed_;
      for (const auto& [place, corner] : placed) {
        for (const auto& [dx, dy] : {Place(1, 0), Place(-1, 0), Place(0, 1), Place(0, -1)}) {
          const Place next = {place.first + dx, place.second + dy};
          if (!placed_.contains(next)) grows = Extend(place, {dx, dy}) || grows;
        }
      }
    }
    return placed_;
  }

 private:
  // The corner nearest to a place, within a distance, that is bright the other way round than
  // `from`.
  std::optional<size_t> Nearest(Point at, double within, size_t from) const {
    std::optional<size_t> nearest;
    for (size_t i = 0; i < corners_.size(); ++i) {
      const double distance = Distance(corners_[i].at, at);
      if (isTaken_[i] || i == from || distance > within || !IsOpposite(from, i)) continue;
      within = distance;
      nearest = i;
    }
    return nearest;
  }

  bool IsOpposite(size_t a, size_t b) const {
    const std::complex<double> p = corners_[a].pattern, q = corners_[b].pattern;
    return (p * std::conj(q)).real() < -0.5 * std::abs(p) * std::abs(q);
  }

  // The seed, and its nearest neighbours: the first in any direction, the second across it.
  bool PlaceFirst(size_t seed) {
    isTaken_[seed] = true;
    const Point at = corners_[seed].at;
    const auto first = Nearest(at, 1e9, seed);
    if (!first) return false;
    const Point along = {corners_[*first].at.x - at.x, corners_[*first].at.y - at.y};
    const double step = Length(along);
    std::optional<size_t> second;
    double least = 3 * step;
    for (size_t i = 0; i < corners_.size(); ++i) {
      if (i == seed || i == *first || !IsOpposite(seed, i)) continue;
      const Point d = {corners_[i].at.x - at.x, corners_[i].at.y - at.y};
      const double length = Length(d);
      // To the right of the first as displayed, and clearly aside.
      const double aside = along.x * d.y - along.y * d.x;
      if (aside < 0.5 * step * length || length >= least) continue;
      least = length;
      second = i;
    }
    if (!second) return false;
    placed_ = {{{0, 0}, seed}, {{1, 0}, *first}, {{0, 1}, *second}};
    isTaken_[*first] = isTaken_[*second] = true;
    return true;
  }

  std::optional<Point> At(Place place) const {
    const auto found = placed_.find(place);
    return found == placed_.end() ? std::nullopt : std::optional(corners_[found->second].at);
  }

  // The next corner in a direction: as far again as the last step, or as the step beside it.
  bool Extend(Place place, Place direction) {
    const auto [dx, dy] = direction;
    const Point here = *At(place);
    std::optional<Point> step;
    const auto take = [&](Place from, Place to) {
      const auto a = At(from), b = At(to);
      if (!step && a && b) step = Point{b->x - a->x, b->y - a->y};
    };
    const auto [x, y] = place;
    take({x - dx, y - dy}, place);
    for (const int side : {1, -1}) {
      take({x + side * dy, y + side * dx}, {x + side * dy + dx, y + side * dx + dy});
    }
    if (!step) return false;
    const double length = Length(*step);
    constexpr double kTolerance = 0.35;
    const auto next =
        Nearest({here.x + step->x, here.y + step->y}, kTolerance * length, placed_.at(place));
    if (!next) return false;
    placed_[{x + dx, y + dy}] = *next;
    isTaken_[*next] = true;
    return true;
  }

  const std::vector<Corner>& corners_;
  std::map<Place, size_t> placed_;
  std::vector<bool> isTaken_;
};

// Takes off what hangs on by one neighbour alone: corners of other things beside the board.
void Trim(std::map<Place, size_t>& placed) {
  for (bool trims = true; trims;) {
    trims = false;
    for (auto entry = placed.begin(); entry != placed.end();) {
      const auto& at = entry->first;
      const auto has = [&](int dx, int dy) {
        return placed.contains({at.first + dx, at.second + dy});
      };
      const bool inRow = has(1, 0) || has(-1, 0), inColumn = has(0, 1) || has(0, -1);
      if (inRow && inColumn) {
        ++entry;
      } else {
        entry = placed.erase(entry);
        trims = true;
      }
    }
  }
}

// The part of the board's size that holds the most corners: what else is seen around the board may
// go on like a grid for a square or two.
std::map<Place, size_t> Window(const std::map<Place, size_t>& placed, BoardSize size) {
  std::map<Place, size_t> best;
  for (const auto& [columns, rows] :
       {Place(size.columns, size.rows), Place(size.rows, size.columns)}) {
    std::set<int> lefts, tops;
    for (const auto& [place, corner] : placed) lefts.insert(place.first), tops.insert(place.second);
    for (const int left : lefts) {
      for (const int top : tops) {
        std::map<Place, size_t> inside;
        for (const auto& [place, corner] : placed) {
          const auto [x, y] = place;
          if (x >= left && x < left + columns && y >= top && y < top + rows) {
            inside.emplace(place, corner);
          }
        }
        if (inside.size() > best.size()) best = std::move(inside);
      }
    }
  }
  return best;
}

}  // namespace

std::vector<BoardPoint> FindChessboard(const GreyImage& image, BoardSize size) {
  constexpr size_t kFewest = 9;
  constexpr size_t kSeeds = 40;
  const std::vector<Corner> corners = Corners(image);
  Grid grid(corners);
  std::map<Place, size_t> best;
  std::vector<bool> isSeen(corners.size());
  size_t tried = 0;
  for (size_t seed = 0; seed < corners.size() && tried < kSeeds; ++seed) {
    if (isSeen[seed]) continue;
    ++tried;
    std::map<Place, size_t> placed = grid.Grow(seed);
    Trim(placed);
    for (const auto& [place, corner] : placed) isSeen[corner] = true;
    if (placed.size() > best.size()) best = placed;
  }
  best = Window(best, size);
  if (best.size() < kFewest) return {};
  int left = INT_MAX, top = INT_MAX, right = INT_MIN, bottom = INT_MIN;
  for (const auto& [place, corner] : best) {
    left = std::min(left, place.first);
    right = std::max(right, place.first);
    top = std::min(top, place.second);
    bottom = std::max(bottom, place.second);
  }
  // Columns run to the right where the board lies upright: turned by the quarter turn that brings
  // them nearest to that.
  Point along = {0, 0};
  for (const auto& [place, corner] : best) {
    const auto next = best.find({place.first + 1, place.second});
    if (next == best.end()) continue;
    along.x += corners[next->second].at.x - corners[corner].at.x;
    along.y += corners[next->second].at.y - corners[corner].at.y;
  }
  const int turns =
      static_cast<int>(std::lround(std::atan2(along.y, along.x) / (std::numbers::pi / 2)) + 4) % 4;
  std::vector<BoardPoint> points;
  for (const auto& [place, corner] : best) {
    const int x = place.first - left, y = place.second - top;
    const int width = right - left, height = bottom - top;
    const Place turned[] = {{x, y}, {height - y, x}, {width - x, height - y}, {y, width - x}};
    const auto [column, row] = turned[turns];
    points.push_back({corners[corner].at, column, row});
  }
  std::sort(points.begin(), points.end(), [](const BoardPoint& a, const BoardPoint& b) {
    return std::pair(a.row, a.column) < std::pair(b.row, b.column);
  });
  return points;
}

}  // namespace quillon::kit
