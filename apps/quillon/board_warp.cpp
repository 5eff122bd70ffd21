#include "board_warp.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "errors.h"

namespace quillon::app {
namespace {

constexpr double kLeastCorrelation = 0.5;  // of a tile that is found at all
constexpr double kLeastContrast = 15;      // standard deviation of a tile with structure
constexpr int kLeastTile = 16;             // pixels of its level

int MultipleOf3(int value) { return value - value % 3; }

double StandardDeviation(const unsigned char* values, int count) {
  int64_t sum = 0, squares = 0;
  for (int i = 0; i < count; ++i) {
    sum += values[i];
    squares += values[i] * values[i];
  }
  const double mean = static_cast<double>(sum) / count;
  return std::sqrt(std::max(0.0, static_cast<double>(squares) / count - mean * mean));
}

// Leaves of a tile, along one axis, what an other picture of `length` shows wherever the tile is
// tried.
void CutToShown(int& start, int& count, int shift, int range, int length) {
  const int first = std::max(start, range - shift);
  const int end = std::min(start + count, length - range - shift);
  start = first;
  count = end - first;
}

// The correlations at the nine places around a tile's best one.
using Nine = std::array<std::array<double, 3>, 3>;  // [y][x]

// Their paraboloid: how steeply the correlation falls in which direction, and where its top is.
struct Paraboloid {
  double xx, xy, yy;  // curvature, positive where it falls, not negative in any direction
  double x, y;        // the top, from the middle place

  explicit Paraboloid(const Nine& c) {
    const double gx = (c[0][2] + c[1][2] + c[2][2] - c[0][0] - c[1][0] - c[2][0]) / 6;
    const double gy = (c[2][0] + c[2][1] + c[2][2] - c[0][0] - c[0][1] - c[0][2]) / 6;
    const double sides = c[0][0] + c[1][0] + c[2][0] + c[0][2] + c[1][2] + c[2][2];
    const double ends = c[0][0] + c[0][1] + c[0][2] + c[2][0] + c[2][1] + c[2][2];
    const double a = (2 * (c[0][1] + c[1][1] + c[2][1]) - sides) / 3;
    const double b = (2 * (c[1][0] + c[1][1] + c[1][2]) - ends) / 3;
    const double m = (c[0][2] + c[2][0] - c[0][0] - c[2][2]) / 4;
    // Along its principal directions.
    const double angle = 0.5 * std::atan2(2 * m, a - b);
    const double cosine = std::cos(angle), sine = std::sin(angle);
    const double first = a * cosine * cosine + 2 * m * cosine * sine + b * sine * sine;
    const double second = a * sine * sine - 2 * m * cosine * sine + b * cosine * cosine;
    const double along = Top(first, gx * cosine + gy * sine);
    const double across = Top(second, gy * cosine - gx * sine);
    const double p = std::max(first, 0.0), q = std::max(second, 0.0);
    xx = p * cosine * cosine + q * sine * sine;
    yy = p * sine * sine + q * cosine * cosine;
    xy = (p - q) * cosine * sine;
    x = along * cosine - across * sine;
    y = along * sine + across * cosine;
  }

 private:
  static double Top(double curvature, double slope) {
    constexpr double kLevel = 1e-3, kFarthest = 1.5;
    return curvature > kLevel ? std::clamp(slope / curvature, -kFarthest, kFarthest) : 0;
  }
};

// The normal equations of the polynomial's coefficients, x's before y's.
class Equations {
 public:
  explicit Equations(int terms)
      : terms_(terms),
        size_(2 * terms),
        matrix_(static_cast<size_t>(size_ * size_)),
        right_(static_cast<size_t>(size_)) {}

  // A weak wish to stay, which decides where no tile says anything.
  void Hold(const BoardWarp& warp) {
    constexpr double kWeight = 0.01;
    for (int i = 0; i < size_; ++i) {
      At(i, i) += kWeight;
      const auto term = static_cast<size_t>(i % terms_);
      right_[static_cast<size_t>(i)] += kWeight * (i < terms_ ? warp.x : warp.y)[term];
    }
  }

  void Add(const BoardWarp::Terms& terms, const Paraboloid& p, Displacement wanted) {
    for (int i = 0; i < terms_; ++i) {
      const double ti = terms[static_cast<size_t>(i)];
      for (int j = 0; j < terms_; ++j) {
        const double product = ti * terms[static_cast<size_t>(j)];
        At(i, j) += p.xx * product;
        At(i, terms_ + j) += p.xy * product;
        At(terms_ + i, j) += p.xy * product;
        At(terms_ + i, terms_ + j) += p.yy * product;
      }
      right_[static_cast<size_t>(i)] += ti * (p.xx * wanted.x + p.xy * wanted.y);
      right_[static_cast<size_t>(terms_ + i)] += ti * (p.xy * wanted.x + p.yy * wanted.y);
    }
  }

  // Gauss's elimination; the held matrix is positive definite, so no pivot is 0.
  void Solve(BoardWarp& warp) {
    for (int k = 0; k < size_; ++k) {
      for (int i = k + 1; i < size_; ++i) {
        const double factor = At(i, k) / At(k, k);
        for (int j = k; j < size_; ++j) At(i, j) -= factor * At(k, j);
        right_[static_cast<size_t>(i)] -= factor * right_[static_cast<size_t>(k)];
      }
    }
    for (int i = size_ - 1; i >= 0; --i) {
      double sum = right_[static_cast<size_t>(i)];
      for (int j = i + 1; j < size_; ++j) sum -= At(i, j) * right_[static_cast<size_t>(j)];
      right_[static_cast<size_t>(i)] = sum / At(i, i);
    }
    for (int i = 0; i < size_; ++i) {
      (i < terms_ ? warp.x : warp.y)[static_cast<size_t>(i % terms_)] =
          right_[static_cast<size_t>(i)];
    }
  }

 private:
  double& At(int row, int column) { return matrix_[static_cast<size_t>(row * size_ + column)]; }

  int terms_, size_;
  std::vector<double> matrix_, right_;
};

}  // namespace

BoardWarp::Terms BoardWarp::TermsAt(double px, double py) const {
  const double u = 2 * px / width_ - 1, v = 2 * py / height_ - 1;
  return {1, u, v, u * u, u * v, v * v};
}

void ReducedBoard::Make(const GreyImage& board) {
  const int side = std::min(board.width, board.height);
  coarsest_ = 0;
  while (coarsest_ < kMostReductions && side >> (coarsest_ + 1) >= kLeastSide) ++coarsest_;
  finest_ = side < kFullSizeBelow ? 0 : 1;
  if (finest_ == 0) levels_[0].CopyFrom(&board);
  for (int i = 1; i <= coarsest_; ++i) {
    IxMeanSmoothing3x3(i == 1 ? &board : &levels_[static_cast<size_t>(i) - 1], &smoothed_);
    IxImageScaling(&smoothed_, &levels_[static_cast<size_t>(i)], 0.5, 0.5);
  }
  width_ = board.width;
  height_ = board.height;
  if (!Level(coarsest_).bits) throw Failure("no memory for reduced pictures of a board");
}

Registrar::Registrar() : tool_(IxCreateNCCTool()) {
  if (!tool_) throw Failure("no memory for correlating boards");
}

// Brings the pixels of a tile into the window, row after row. Correlation pools the planes of a
// colour image and does not ask where a pixel lies: so the window is one long row, three grey
// pixels to a colour, for which the library is fastest.
void Registrar::Cut(const GreyImage& board, const Tile& tile, int dx, int dy) {
  unsigned char* to = window_.rows[0];
  for (int y = 0; y < tile.height; ++y, to += tile.width) {
    std::memcpy(to, board.rows[tile.top + dy + y] + tile.left + dx,
                static_cast<size_t>(tile.width));
  }
}

// False where there is nothing to recognise. The width is a multiple of 3.
bool Registrar::Teach(const GreyImage& good, const Tile& tile) {
  if (tile.width < 1 || tile.height < 1) return false;
  const int colours = tile.width / 3 * tile.height;
  if (window_.width != colours) window_.Create(colours, 1);
  if (!window_.bits) throw Failure("no memory for correlating boards");
  Cut(good, tile, 0, 0);
  return StandardDeviation(window_.rows[0], tile.width * tile.height) >= kLeastContrast &&
         IxCreateNCCMatchColorModel_ROI(&window_, tool_.get());
}

// The correlation with the taught tile when it is moved.
double Registrar::Score(const GreyImage& other, const Tile& tile, int dx, int dy) {
  Cut(other, tile, dx, dy);
  return IxFindNCCMatchColorModel_ROI(&window_, tool_.get());
}

// The shift of the whole board, on the coarsest level.
void Registrar::FindWhole(const ReducedBoard& good, const ReducedBoard& other,
                          Registration& result) {
  constexpr int kRange = 4;
  const int reductions = good.Coarsest();
  const GreyImage& from = good.Level(reductions);
  const Tile tile = {kRange, kRange, MultipleOf3(from.width - 2 * kRange),
                     from.height - 2 * kRange};
  if (!Teach(from, tile)) return;
  double best = -1;
  for (int dy = -kRange; dy <= kRange; ++dy) {
    for (int dx = -kRange; dx <= kRange; ++dx) {
      const double score = Score(other.Level(reductions), tile, dx, dy);
      if (score <= best) continue;
      best = score;
      result.warp.x[0] = dx * (1 << reductions);
      result.warp.y[0] = dy * (1 << reductions);
    }
  }
}

void Registrar::Refine(const Step& step, const ReducedBoard& good, const ReducedBoard& other,
                       Registration& result) {
  const GreyImage& from = good.Level(step.reductions);
  const GreyImage& to = other.Level(step.reductions);
  const double scale = 1 << step.reductions;
  const int side = std::min(from.width, from.height);
  const int tilesASide = std::clamp(side / kLeastTile, 1, step.tilesASide);
  const int range = step.range, places = 2 * range + 1;
  Equations equations(step.terms);
  equations.Hold(result.warp);
  std::vector<double> scores(static_cast<size_t>(places * places));
  const auto at = [&](int dx, int dy) -> double& {
    return scores[static_cast<size_t>((dy + range) * places + dx + range)];
  };
  result.tiles = result.agreeing = 0;
  result.correlation = 0;
  for (int tileY = 0; tileY < tilesASide; ++tileY) {
    for (int tileX = 0; tileX < tilesASide; ++tileX) {
      Tile tile = {from.width * tileX / tilesASide, from.height * tileY / tilesASide,
                   from.width / tilesASide, from.height / tilesASide};
      const double x = (tile.left + tile.width / 2.0) * scale;
      const double y = (tile.top + tile.height / 2.0) * scale;
      const Displacement expected = result.warp.At(x, y);
      const int startX = static_cast<int>(std::lround(expected.x / scale));
      const int startY = static_cast<int>(std::lround(expected.y / scale));
      CutToShown(tile.left, tile.width, startX, range, to.width);
      CutToShown(tile.top, tile.height, startY, range, to.height);
      tile.width = MultipleOf3(tile.width);
      if (tile.width < kLeastTile / 2 || tile.height < kLeastTile / 2 || !Teach(from, tile)) {
        continue;
      }
      ++result.tiles;
      int bestX = 0, bestY = 0;
      for (int dy = -range; dy <= range; ++dy) {
        for (int dx = -range; dx <= range; ++dx) {
          at(dx, dy) = Score(to, tile, startX + dx, startY + dy);
          if (at(dx, dy) > at(bestX, bestY)) bestX = dx, bestY = dy;
        }
      }
      if (at(bestX, bestY) < kLeastCorrelation) continue;
      ++result.agreeing;
      result.correlation += at(bestX, bestY);
      bestX = std::clamp(bestX, 1 - range, range - 1);
      bestY = std::clamp(bestY, 1 - range, range - 1);
      Nine nine;
      for (int j = 0; j < 3; ++j) {
        for (int i = 0; i < 3; ++i) {
          nine[static_cast<size_t>(j)][static_cast<size_t>(i)] = at(bestX + i - 1, bestY + j - 1);
        }
      }
      const Paraboloid paraboloid(nine);
      equations.Add(
          result.warp.TermsAt(x, y), paraboloid,
          {(startX + bestX + paraboloid.x) * scale, (startY + bestY + paraboloid.y) * scale});
    }
  }
  if (result.agreeing > 0) result.correlation /= result.agreeing;
  equations.Solve(result.warp);
}

Registration Registrar::Register(const ReducedBoard& good, const ReducedBoard& other) {
  constexpr int kLinear = 3, kQuadratic = BoardWarp::kTerms;
  Registration result = {
      .warp = BoardWarp(good.Width(), good.Height()), .correlation = 0, .tiles = 0, .agreeing = 0};
  const int coarsest = good.Coarsest(), finest = good.Finest();
  FindWhole(good, other, result);
  Refine({std::max(coarsest - 1, finest), 3, 2, kLinear}, good, other, result);
  for (int i = coarsest - 2; i > finest; --i) Refine({i, 5, 1, kQuadratic}, good, other, result);
  Refine({finest, 5, 1, kQuadratic}, good, other, result);
  Refine({finest, 8, 1, kQuadratic}, good, other, result);
  return result;
}

}  // namespace quillon::app
