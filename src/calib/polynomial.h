// The bivariate cubic that maps ideal grid positions to measured ones.
#pragma once

#include <array>
#include <cstddef>

namespace quillon {

constexpr int kCubicTerms = 10;

// 1, u, v, u^2, v^2, u v, u v^2, u^2 v, u^3, v^3
inline std::array<double, kCubicTerms> CubicTerms(double u, double v) {
  return {1, u, v, u * u, v * v, u * v, u * v * v, u * u * v, u * u * u, v * v * v};
}

// Least squares of the ten terms against two targets, one point at a time. Points are reduced by
// rotations to a triangle as they come, which squares no condition number as normal equations do,
// and takes no memory for the points (G. Golub, C. Van Loan, "Matrix Computations", section 5.2).
class CubicFit {
 public:
  // Coordinates are divided by these scales, so that all terms are of one size.
  CubicFit(double uScale, double vScale) : uScale_(uScale), vScale_(vScale) {}

  void Add(double u, double v, double targetX, double targetY);

  // Coefficients [term][x or y]. Where the points leave some undetermined, those of least norm.
  std::array<std::array<double, 2>, kCubicTerms> Solve() const;

 private:
  static constexpr int kColumns = kCubicTerms + 2;  // and the two targets
  double uScale_, vScale_;
  std::array<std::array<double, kColumns>, kCubicTerms> triangle_ = {};
};

}  // namespace quillon
