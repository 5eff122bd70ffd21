#include "kit/boards/board_warp.h"

#include <cmath>

namespace quillon::kit {
namespace {

// The normal equations of the polynomial's coefficients, x's before y's.
class Equations {
 public:
  explicit Equations(int terms)
      : terms_(terms),
        size_(2 * terms),
        matrix_(static_cast<size_t>(size_) * static_cast<size_t>(size_)),
        right_(static_cast<size_t>(size_)) {}

  // A weak wish that coefficient i keep its value, which decides where no tile says anything.
  void Hold(int i, double value) {
    constexpr double kWeight = 0.01;
    At(i, i) += kWeight;
    Right(i) += kWeight * value;
  }

  void Add(std::span<const double> terms, const TileView& view) {
    const Displacement& w = view.wanted;
    for (int i = 0; i < terms_; ++i) {
      const double ti = terms[static_cast<size_t>(i)];
      for (int j = 0; j < terms_; ++j) {
        const double product = ti * terms[static_cast<size_t>(j)];
        At(i, j) += view.xx * product;
        At(i, terms_ + j) += view.xy * product;
        At(terms_ + i, j) += view.xy * product;
        At(terms_ + i, terms_ + j) += view.yy * product;
      }
      Right(i) += ti * (view.xx * w.x + view.xy * w.y);
      Right(terms_ + i) += ti * (view.xy * w.x + view.yy * w.y);
    }
  }

  // Gauss's elimination; the held matrix is positive definite, so no pivot is 0. Afterwards
  // Right(i) is coefficient i.
  void Solve() {
    for (int k = 0; k < size_; ++k) {
      for (int i = k + 1; i < size_; ++i) {
        const double factor = At(i, k) / At(k, k);
        for (int j = k; j < size_; ++j) At(i, j) -= factor * At(k, j);
        Right(i) -= factor * Right(k);
      }
    }
    for (int i = size_ - 1; i >= 0; --i) {
      for (int j = i + 1; j < size_; ++j) Right(i) -= At(i, j) * Right(j);
      Right(i) /= At(i, i);
    }
  }

  double& Right(int i) { return right_[static_cast<size_t>(i)]; }

 private:
  double& At(int row, int column) {
    const int index = row * size_ + column;
    return matrix_[static_cast<size_t>(index)];
  }

  int terms_, size_;
  std::vector<double> matrix_, right_;
};

}  // namespace

BoardWarp::Row::Row(const BoardWarp& warp, double y) : width_(warp.width_), nodes_(warp.nodesX_) {
  const double v = 2 * y / warp.height_ - 1;
  const auto powers = [v](const Terms& t) -> std::array<double, 3> {
    return {t[0] + v * (t[2] + v * t[5]), t[1] + v * t[4], t[3]};
  };
  x_ = powers(warp.x_);
  y_ = powers(warp.y_);
  if (nodes_ == 0) return;
  const double at = std::clamp(y * warp.nodesY_ / warp.height_ - 0.5, 0.0, warp.nodesY_ - 1.0);
  const int top = static_cast<int>(at);
  const double part = at - top;
  const Displacement* a = warp.nodes_.data() + top * nodes_;
  const Displacement* b = warp.nodes_.data() + std::min(top + 1, warp.nodesY_ - 1) * nodes_;
  for (int i = 0; i < nodes_; ++i) {
    net_[static_cast<size_t>(i)] = {a[i].x + part * (b[i].x - a[i].x),
                                    a[i].y + part * (b[i].y - a[i].y)};
  }
}

BoardWarp::Terms BoardWarp::TermsAt(double x, double y) const {
  const double u = 2 * x / width_ - 1, v = 2 * y / height_ - 1;
  return {1, u, v, u * u, u * v, v * v};
}

void BoardWarp::Shift(Displacement all) {
  x_[0] += all.x;
  y_[0] += all.y;
}

void BoardWarp::FitPolynomial(int terms, std::span<const TileView> views) {
  Equations equations(terms);
  for (int i = 0; i < terms; ++i) {
    equations.Hold(i, x_[static_cast<size_t>(i)]);
    equations.Hold(terms + i, y_[static_cast<size_t>(i)]);
  }
  for (const TileView& view : views) equations.Add(TermsAt(view.x, view.y), view);
  equations.Solve();
  for (int i = 0; i < terms; ++i) {
    x_[static_cast<size_t>(i)] = equations.Right(i);
    y_[static_cast<size_t>(i)] = equations.Right(terms + i);
  }
}

void BoardWarp::FitNet(int nodesX, int nodesY, std::span<const TileView> views) {
  constexpr int kSweeps = 30;
  // Loose enough to follow lines that wobble within 100 pixels, tight enough to ignore a defect.
  constexpr double kSpring = 0.01;
  constexpr double kHold = 0.002;
  // How far the views want to be from where the polynomial already puts them.
  std::vector<Displacement> wanted;
  nodesX_ = nodesY_ = 0;
  for (const TileView& view : views) {
    const Displacement d = At(view.x, view.y);
    wanted.push_back({view.wanted.x - d.x, view.wanted.y - d.y});
  }
  nodesX_ = nodesX;
  nodesY_ = nodesY;
  nodes_.assign(views.size(), {0, 0});
  // Gauss and Seidel's iteration: each node in turn goes where its view and its neighbours' pull
  // balance.
  for (int sweep = 0; sweep < kSweeps; ++sweep) {
    for (int row = 0; row < nodesY; ++row) {
      for (int column = 0; column < nodesX; ++column) {
        const int n = row * nodesX + column;
        const TileView& view = views[static_cast<size_t>(n)];
        const Displacement& w = wanted[static_cast<size_t>(n)];
        double springs = 0, pullX = 0, pullY = 0;
        const auto neighbour = [&](bool there, int at) {
          if (!there) return;
          springs += kSpring;
          pullX += kSpring * nodes_[static_cast<size_t>(at)].x;
          pullY += kSpring * nodes_[static_cast<size_t>(at)].y;
        };
        neighbour(column > 0, n - 1);
        neighbour(column + 1 < nodesX, n + 1);
        neighbour(row > 0, n - nodesX);
        neighbour(row + 1 < nodesY, n + nodesX);
        const double xx = view.xx + springs + kHold, yy = view.yy + springs + kHold;
        const double x = view.xx * w.x + view.xy * w.y + pullX;
        const double y = view.xy * w.x + view.yy * w.y + pullY;
        const double determinant = xx * yy - view.xy * view.xy;
        nodes_[static_cast<size_t>(n)] = {(x * yy - y * view.xy) / determinant,
                                          (y * xx - x * view.xy) / determinant};
      }
    }
  }
}

}  // namespace quillon::kit
