#include "calib/polynomial.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace quillon {
namespace {

using Vector = std::array<double, kCubicTerms>;

// Rows upper[0 ... rank) of an upper triangle with its columns in the order of `terms`, and the two
// right-hand sides turned with them.
struct Pivoted {
  std::array<Vector, kCubicTerms> upper;
  std::array<std::array<double, 2>, kCubicTerms> sides;
  std::array<int, kCubicTerms> terms;
  int rank;
};

double LengthBelow(const Pivoted& p, int column, int row) {
  double sum = 0;
  for (int i = row; i < kCubicTerms; ++i) sum += p.upper[i][column] * p.upper[i][column];
  return std::sqrt(sum);
}

// Reflects rows `step` ... so that column `step` ends there.
void Reflect(Pivoted& p, int step, double length) {
  Vector normal = {};
  for (int i = step; i < kCubicTerms; ++i) normal[i] = p.upper[i][step];
  normal[step] += normal[step] < 0 ? -length : length;
  double square = 0;
  for (int i = step; i < kCubicTerms; ++i) square += normal[i] * normal[i];
  const auto reflect = [&](auto& matrix, int column) {
    double dot = 0;
    for (int i = step; i < kCubicTerms; ++i) dot += normal[i] * matrix[i][column];
    for (int i = step; i < kCubicTerms; ++i) matrix[i][column] -= 2 * dot / square * normal[i];
  };
  for (int j = step; j < kCubicTerms; ++j) reflect(p.upper, j);
  for (int j = 0; j < 2; ++j) reflect(p.sides, j);
}

// Makes the triangle anew, with the longest of the remaining columns first at every step. The rank
// is the number of steps until nothing but rounding is left.
void Pivot(Pivoted& p) {
  constexpr double kNothing = 1e-11;  // of the longest column; full grids stay above 1e-3
  std::iota(p.terms.begin(), p.terms.end(), 0);
  double longest = 0;
  for (p.rank = 0; p.rank < kCubicTerms; ++p.rank) {
    int best = p.rank;
    for (int j = p.rank + 1; j < kCubicTerms; ++j) {
      if (LengthBelow(p, j, p.rank) > LengthBelow(p, best, p.rank)) best = j;
    }
    for (auto& row : p.upper) std::swap(row[p.rank], row[best]);
    std::swap(p.terms[p.rank], p.terms[best]);
    const double length = LengthBelow(p, p.rank, p.rank);
    longest = std::max(longest, length);
    if (!(length > kNothing * longest)) return;
    Reflect(p, p.rank, length);
  }
}

// x with upper x = side, over the first rank columns; the other unknowns are 0.
Vector BackSubstitute(const Pivoted& p, const Vector& side) {
  Vector x = {};
  for (int i = p.rank - 1; i >= 0; --i) {
    double rest = side[i];
    for (int j = i + 1; j < p.rank; ++j) rest -= p.upper[i][j] * x[p.terms[j]];
    x[p.terms[i]] = rest / p.upper[i][i];
  }
  return x;
}

double Dot(const Vector& a, const Vector& b) {
  return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}

void Subtract(Vector& a, double factor, const Vector& b) {
  for (int i = 0; i < kCubicTerms; ++i) a[i] -= factor * b[i];
}

}  // namespace

void CubicFit::Add(double u, double v, double targetX, double targetY) {
  const auto terms = CubicTerms(u / uScale_, v / vScale_);
  std::array<double, kColumns> row;
  std::copy(terms.begin(), terms.end(), row.begin());
  row[kCubicTerms] = targetX;
  row[kCubicTerms + 1] = targetY;
  for (int i = 0; i < kCubicTerms; ++i) {
    if (row[i] == 0) continue;
    auto& pivot = triangle_[i];
    const double length = std::sqrt(pivot[i] * pivot[i] + row[i] * row[i]);
    const double c = pivot[i] / length, s = row[i] / length;
    for (int j = i; j < kColumns; ++j) {
      const double upper = pivot[j], lower = row[j];
      pivot[j] = c * upper + s * lower;
      row[j] = c * lower - s * upper;
    }
  }
}

std::array<std::array<double, 2>, kCubicTerms> CubicFit::Solve() const {
  Pivoted p = {};
  for (int i = 0; i < kCubicTerms; ++i) {
    std::copy_n(triangle_[i].begin(), kCubicTerms, p.upper[i].begin());
    std::copy_n(triangle_[i].begin() + kCubicTerms, 2, p.sides[i].begin());
  }
  Pivot(p);

  // Terms of the scaled coordinates back to terms of u and v.
  const auto scales = CubicTerms(1 / uScale_, 1 / vScale_);
  const auto unscale = [&](Vector& x) {
    for (int i = 0; i < kCubicTerms; ++i) x[i] *= scales[i];
  };

  // Combinations of terms that are 0 at all points, so that any multiple of them fits as well: one
  // for every column beyond the rank.
  std::array<Vector, kCubicTerms> unseen;
  int unseenCount = 0;
  for (int j = p.rank; j < kCubicTerms; ++j) {
    Vector side = {};
    for (int i = 0; i < p.rank; ++i) side[i] = -p.upper[i][j];
    Vector combination = BackSubstitute(p, side);
    combination[p.terms[j]] = 1;
    unscale(combination);
    for (int k = 0; k < unseenCount; ++k)
      Subtract(combination, Dot(combination, unseen[k]), unseen[k]);
    const double length = std::sqrt(Dot(combination, combination));
    for (double& value : combination) value /= length;
    unseen[unseenCount++] = combination;
  }

  std::array<std::array<double, 2>, kCubicTerms> coefficients = {};
  for (int target = 0; target < 2; ++target) {
    Vector side = {};
    for (int i = 0; i < kCubicTerms; ++i) side[i] = p.sides[i][target];
    Vector x = BackSubstitute(p, side);
    unscale(x);
    for (int k = 0; k < unseenCount; ++k) Subtract(x, Dot(x, unseen[k]), unseen[k]);
    for (int i = 0; i < kCubicTerms; ++i) coefficients[i][target] = x[i];
  }
  return coefficients;
}

}  // namespace quillon
