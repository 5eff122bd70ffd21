#include "kit/calibration/board_grid.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <map>
#include <numbers>
#include <optional>
#include <set>

namespace quillon::kit {
namespace {

using Place = std::pair<int, int>;  // column and row

class Grid {
 public:
  explicit Grid(const std::vector<BoardCandidate>& corners) : corners_(corners) {}

  // Whether the last grid's rows lean by more than a column from one to the next. The neighbour
  // across was hidden then, and another row's corner taken for it, or the board is seen from far
  // aside.
  bool Leans() const { return leans_; }

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
    return p == 0.0 || (p * std::conj(q)).real() < -0.5 * std::sqrt(std::norm(p) * std::norm(q));
  }

  // The seed, and its nearest neighbours: the first in any direction, the second across it on
  // either side, for a seed at the board's border has a neighbour on one side only.
  bool PlaceFirst(size_t seed) {
    isTaken_[seed] = true;
    const Point at = corners_[seed].at;
    const auto first = Nearest(at, 1e9, seed);
    if (!first) return false;
    const Point along = {corners_[*first].at.x - at.x, corners_[*first].at.y - at.y};
    const double step = Length(along);
    std::optional<size_t> second;
    double least = 3 * step;
    int row = 0;  // of the second
    for (size_t i = 0; i < corners_.size(); ++i) {
      if (i == seed || i == *first || !IsOpposite(seed, i)) continue;
      const Point d = {corners_[i].at.x - at.x, corners_[i].at.y - at.y};
      const double length = Length(d);
      // Aside by at least 30 degrees; clockwise of the first as displayed are the rows that follow.
      const double aside = along.x * d.y - along.y * d.x;
      if (std::abs(aside) < 0.5 * step * length || length >= least) continue;
      least = length;
      second = i;
      row = aside > 0 ? 1 : -1;
    }
    if (!second) return false;
    const Point across = {corners_[*second].at.x - at.x, corners_[*second].at.y - at.y};
    leans_ = std::abs(along.x * across.x + along.y * across.y) > step * step;
    placed_ = {{{0, 0}, seed}, {{1, 0}, *first}, {{0, row}, *second}};
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

  const std::vector<BoardCandidate>& corners_;
  std::map<Place, size_t> placed_;
  std::vector<bool> isTaken_;
  bool leans_ = false;
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

std::vector<BoardPoint> LargestGrid(const std::vector<BoardCandidate>& corners, BoardSize size) {
  constexpr size_t kFewest = 9;
  constexpr size_t kSeeds = 40;
  Grid grid(corners);
  std::map<Place, size_t> best;
  size_t most = 0;
  std::vector<bool> isSeen(corners.size());
  size_t tried = 0;
  for (size_t seed = 0; seed < corners.size() && tried < kSeeds; ++seed) {
    if (isSeen[seed]) continue;
    ++tried;
    std::map<Place, size_t> placed = grid.Grow(seed);
    Trim(placed);
    // One that leans has the same corners as the right one of another seed, so it counts half.
    const size_t weight = grid.Leans() ? placed.size() / 2 : placed.size();
    for (const auto& [place, corner] : placed) isSeen[corner] = isSeen[corner] || !grid.Leans();
    if (weight > most) most = weight, best = std::move(placed);
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
      static_cast<int>(std::lround(ArcTangent(along.y, along.x) / (std::numbers::pi / 2)) + 4) % 4;
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
