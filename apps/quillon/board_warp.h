// Where the places of a good board lie in the picture of another board of its kind: shifted, a
// little turned, a little stretched.
//
// The displacement is a polynomial of second degree in x and y. It comes from correlating tiles of
// the good board with the other one, coarse tiles on reduced pictures first. The correlations
// around a tile's best place form a paraboloid, steep across edges and level along them; the
// polynomial maximises the sum of all paraboloids, so that a tile of parallel lines speaks only for
// the direction it knows something about.
#pragma once

#include <array>
#include <memory>
#include <span>

#include "quillon/quillon.h"

namespace quillon::app {

struct Displacement {
  double x, y;
};

class BoardWarp {
 public:
  static constexpr int kTerms = 6;  // 1, X, Y, X^2, XY, Y^2 with X, Y from -1 to 1 over the board
  using Terms = std::array<double, kTerms>;

  BoardWarp(int width, int height) : width_(width), height_(height) {}

  // The place (x, y) of the good board lies at (x, y) + At(x, y) in the other picture.
  Displacement At(double px, double py) const;
  // For one y, a polynomial in x.
  class Row;
  Row RowAt(double py) const;

  Terms TermsAt(double px, double py) const;

  Terms x = {}, y = {};  // coefficients, in pixels

 private:
  int width_, height_;
};

class BoardWarp::Row {
 public:
  Displacement At(double px) const {
    const double u = 2 * px / width_ - 1;
    return {x_[0] + u * (x_[1] + u * x_[2]), y_[0] + u * (y_[1] + u * y_[2])};
  }

 private:
  friend class BoardWarp;
  Row(const BoardWarp& warp, double v)
      : width_(warp.width_), x_(Powers(warp.x, v)), y_(Powers(warp.y, v)) {}
  static std::array<double, 3> Powers(const Terms& t, double v) {
    return {t[0] + v * (t[2] + v * t[5]), t[1] + v * t[4], t[3]};
  }

  double width_;
  std::array<double, 3> x_, y_;  // of the powers of u
};

inline Displacement BoardWarp::At(double px, double py) const { return RowAt(py).At(px); }
inline BoardWarp::Row BoardWarp::RowAt(double py) const { return {*this, 2 * py / height_ - 1}; }

// A picture reduced by 2, 4, 8 ...; a small one at full size as well.
class ReducedBoard {
 public:
  static constexpr int kLeastSide = 64;  // of the coarsest level, and so of a board

  // Throws Failure when memory is short.
  void Make(const GreyImage& board);
  const GreyImage& Level(int reductions) const { return levels_[static_cast<size_t>(reductions)]; }
  int Coarsest() const { return coarsest_; }
  int Finest() const { return finest_; }
  int Width() const { return width_; }
  int Height() const { return height_; }

 private:
  static constexpr int kMostReductions = 6;
  // Half the resolution is enough: paraboloids tell places to a tenth of a pixel.
  static constexpr int kFullSizeBelow = 320;

  std::array<GreyImage, kMostReductions + 1> levels_;
  GreyImage smoothed_;
  int finest_ = 0, coarsest_ = 0, width_ = 0, height_ = 0;
};

struct Registration {
  BoardWarp warp;
  double correlation;   // mean over the tiles that agree
  int tiles, agreeing;  // with structure; of these, found in the other picture

  // A board of another kind agrees here and there by chance.
  bool Succeeded() const { return agreeing > 0 && 2 * agreeing >= tiles; }
};

// Correlates by the library's template matching; one at a time.
class Registrar {
 public:
  Registrar();
  // Both of the same size.
  Registration Register(const ReducedBoard& good, const ReducedBoard& other);

 private:
  struct Step {
    int reductions, tilesASide, range;  // range: pixels of that level to each side
    int terms;                          // of the polynomial, the first ones
  };
  struct Tile {
    int left, top, width, height;
  };

  void Refine(const Step& step, const ReducedBoard& good, const ReducedBoard& other,
              Registration& result);
  void FindWhole(const ReducedBoard& good, const ReducedBoard& other, Registration& result);
  void Cut(const GreyImage& board, const Tile& tile, int dx, int dy);
  bool Teach(const GreyImage& good, const Tile& tile);
  double Score(const GreyImage& other, const Tile& tile, int dx, int dy);

  struct ReleaseTool {
    void operator()(NccTool* tool) const { IxDestroyNCCModel(tool); }
  };
  std::unique_ptr<NccTool, ReleaseTool> tool_;
  ColourImage window_;
};

}  // namespace quillon::app
