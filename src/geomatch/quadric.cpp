#include "geomatch/quadric.h"

#include <algorithm>
#include <cmath>

namespace quillon {
namespace {

// u and v in pixels, w in `degrees`.
struct Peak {
  double at[3];
  double value;
};

// Around a saddle two opposite points are equally good: the first stays, whatever the last bits
// say.
constexpr double kClearly = 1e-9;

// A determinant of 0, but for rounding, beside entries of size 1.
constexpr double kNoDeterminant = 1e-10;

// Moves the peak to the best point of the grid within `reach` steps of it, if one is better.
void SearchGrid(const GeoQuadric& quadric, const double (&steps)[3], const int (&reach)[3],
                Peak& peak) {
  const Peak centre = peak;
  double p[3];
  const auto inBox = [](double x) { return x >= -1 && x <= 1; };
  for (int k = -reach[2]; k <= reach[2]; ++k) {
    p[2] = centre.at[2] + k * steps[2];
    if (!inBox(p[2])) continue;
    for (int j = -reach[1]; j <= reach[1]; ++j) {
      p[1] = centre.at[1] + j * steps[1];
      if (!inBox(p[1])) continue;
      for (int i = -reach[0]; i <= reach[0]; ++i) {
        p[0] = centre.at[0] + i * steps[0];
        if (!inBox(p[0])) continue;
        const double value = quadric.Value(p[0], p[1], p[2]);
        if (value > peak.value + kClearly) peak = {{p[0], p[1], p[2]}, value};
      }
    }
  }
}

double Determinant(const double (&m)[3][3]) {
  return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
         m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
         m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

// Where the gradient vanishes, by Cramer's rule; false when there is no such point.
bool StationaryPoint(const GeoQuadric& q, double (&point)[3]) {
  const double matrix[3][3] = {{2 * q.square[0], q.cross[0], q.cross[1]},
                               {q.cross[0], 2 * q.square[1], q.cross[2]},
                               {q.cross[1], q.cross[2], 2 * q.square[2]}};
  const double determinant = Determinant(matrix);
  double largest = 0;
  for (const auto& row : matrix) {
    for (double entry : row) largest = std::max(largest, std::abs(entry));
  }
  if (std::abs(determinant) <= kNoDeterminant * largest * largest * largest) return false;
  for (int column = 0; column < 3; ++column) {
    double replaced[3][3];
    for (int row = 0; row < 3; ++row) {
      for (int i = 0; i < 3; ++i) replaced[row][i] = i == column ? -q.linear[row] : matrix[row][i];
    }
    point[column] = Determinant(replaced) / determinant;
  }
  return true;
}

}  // namespace

double GeoQuadric::Value(double u, double v, double w) const {
  return constant + linear[0] * u + linear[1] * v + linear[2] * w + square[0] * u * u +
         square[1] * v * v + square[2] * w * w + cross[0] * u * v + cross[1] * u * w +
         cross[2] * v * w;
}

// On the full 3 x 3 x 3 grid the functions 1, u, v, w, uv, uw, vw and u^2 - 2/3, v^2 - 2/3,
// w^2 - 2/3 are orthogonal: every coefficient is a projection. Their sums of squares are 27, 18, 12
// and 6.
GeoQuadric FitGeoQuadric(const double (&scores)[3][3][3]) {
  GeoQuadric q = {};
  for (int w = -1; w <= 1; ++w) {
    for (int v = -1; v <= 1; ++v) {
      for (int u = -1; u <= 1; ++u) {
        const double score = scores[w + 1][v + 1][u + 1];
        const double p[3] = {double(u), double(v), double(w)};
        q.constant += score / 27;
        for (int i = 0; i < 3; ++i) {
          q.linear[i] += score * p[i] / 18;
          q.square[i] += score * (p[i] * p[i] - 2.0 / 3) / 6;
        }
        q.cross[0] += score * u * v / 12;
        q.cross[1] += score * u * w / 12;
        q.cross[2] += score * v * w / 12;
      }
    }
  }
  q.constant -= (q.square[0] + q.square[1] + q.square[2]) * 2 / 3;
  return q;
}

double SolveGeoQuadric(const GeoQuadric& quadric, double degrees) {
  constexpr double kCoarse = 0.2, kMiddle = 0.1, kFine = 0.02;
  Peak peak = {{0, 0, 0}, quadric.Value(0, 0, 0)};
  const auto search = [&](double step, int pixels, int angles) {
    SearchGrid(quadric, {step, step, step / degrees}, {pixels, pixels, angles}, peak);
  };
  double point[3];
  if (StationaryPoint(quadric, point)) {
    for (int i = 0; i < 3; ++i) peak.at[i] = std::clamp(point[i], -1.0, 1.0);
    peak.value = quadric.Value(peak.at[0], peak.at[1], peak.at[2]);
  } else {
    search(kCoarse, 5, static_cast<int>(degrees / kCoarse));
  }
  search(kMiddle, 2, 2);
  search(kFine, 5, 5);
  return peak.at[2];
}

}  // namespace quillon
