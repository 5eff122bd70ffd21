// Where the places of a good board lie in the picture of another board of its kind: shifted, a
// little turned, a little stretched, and here and there a little more than elsewhere.
//
// The displacement is a polynomial of second degree in x and y, and upon it a net of nodes that
// follows what is left. Both are fitted to what tiles of the board say. A tile knows its place by a
// paraboloid, steep across edges and level along them: so a tile of parallel lines speaks only for
// the direction it knows something about.
#pragma once

#include <algorithm>
#include <array>
#include <span>
#include <vector>

namespace quillon::kit {

struct Displacement {
  double x, y;
};

// What one tile says.
struct TileView {
  double x, y;          // its middle, on the good board
  double xx, xy, yy;    // how steeply agreement falls: curvatures, never negative in any direction
  Displacement wanted;  // where it is best
};

class BoardWarp {
 public:
  static constexpr int kTerms = 6;  // 1, u, v, u^2, uv, v^2 with u, v from -1 to 1 over the board
  static constexpr int kMostNodes = 64;  // a side

  BoardWarp(int width, int height) : width_(width), height_(height) {}

  // The place (x, y) of the good board lies at (x, y) + At(x, y) in the other picture.
  Displacement At(double x, double y) const;
  // The same along one row.
  class Row;
  Row RowAt(double y) const;

  void Shift(Displacement all);

  // Fits the first `terms` coefficients to all views.
  void FitPolynomial(int terms, std::span<const TileView> views);

  // Fits the nodes of a net to the view of each, row by row, as far as there is one (curvatures
  // are 0 where not). Springs hold nodes together.
  void FitNet(int nodesX, int nodesY, std::span<const TileView> views);

 private:
  using Terms = std::array<double, kTerms>;

  Terms TermsAt(double x, double y) const;

  int width_, height_;
  Terms x_ = {}, y_ = {};  // coefficients, in pixels
  int nodesX_ = 0, nodesY_ = 0;
  std::vector<Displacement> nodes_;  // in the middles of equal rectangles
};

class BoardWarp::Row {
 public:
  Displacement At(double x) const {
    const double u = 2 * x / width_ - 1;
    Displacement d = {x_[0] + u * (x_[1] + u * x_[2]), y_[0] + u * (y_[1] + u * y_[2])};
    if (nodes_ > 0) {
      const double at = std::clamp(x * nodes_ / width_ - 0.5, 0.0, nodes_ - 1.0);
      const int left = static_cast<int>(at);
      const double part = at - left;
      const Displacement& a = net_[static_cast<size_t>(left)];
      const Displacement& b = net_[static_cast<size_t>(std::min(left + 1, nodes_ - 1))];
      d.x += a.x + part * (b.x - a.x);
      d.y += a.y + part * (b.y - a.y);
    }
    return d;
  }

 private:
  friend class BoardWarp;
  Row(const BoardWarp& warp, double y);

  double width_;
  std::array<double, 3> x_, y_;  // coefficients of the powers of u
  int nodes_;
  std::array<Displacement, kMostNodes> net_;  // only the first nodes_ are set
};

inline BoardWarp::Row BoardWarp::RowAt(double y) const { return {*this, y}; }
inline Displacement BoardWarp::At(double x, double y) const { return RowAt(y).At(x); }

}  // namespace quillon::kit
