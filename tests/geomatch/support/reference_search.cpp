#include <algorithm>
#include <array>
#include <cmath>

#include "geomatch/support/reference.h"

namespace quillon::test::reference {
namespace {

GeoLevel Rotate(const GeoLevel& level, double degrees) {
  const double a = degrees * (3.14159265358979323846 / 180);
  const double c = std::cos(a), s = std::sin(a);
  GeoLevel turned = level;
  for (GeoPoint& p : turned.points) {
    const GeoPoint old = p;
    p.x = static_cast<int>(old.x * c - old.y * s);
    p.y = static_cast<int>(old.y * c + old.x * s);
    p.gx = static_cast<int>(old.gx * c - old.gy * s);
    p.gy = static_cast<int>(old.gx * s + old.gy * c);
  }
  return turned;
}

bool IsInside(const Plane& plane, const GeoPoint& p, int64_t x, int64_t y) {
  const int64_t px = x + p.x, py = y + p.y;
  return px >= 0 && py >= 0 && px < plane.width && py < plane.height;
}

// What one point adds at (x, y).
double Term(const Plane& plane, const std::vector<double>& inverse, const GeoPoint& p, int64_t x,
            int64_t y) {
  if (!IsInside(plane, p, x, y)) return 0;
  const int64_t px = x + p.x, py = y + p.y;
  const size_t at = plane.Index(static_cast<int>(px), static_cast<int>(py));
  const int gx = plane.gx[at], gy = plane.gy[at];
  if (gx == 0 && gy == 0) return 0;
  return (p.gx * gx + p.gy * gy) * p.inverse * inverse[at];
}

struct Search {
  Plane plane;
  std::vector<double> inverse;
  double greediness;

  void Load(const GreyImage& image, int level) {
    plane = MakePlane(image, level);
    inverse.assign(plane.pixels.size(), 0);
    for (size_t i = 0; i < inverse.size(); ++i) {
      const double gx = plane.gx[i], gy = plane.gy[i];
      if (gx != 0 || gy != 0) inverse[i] = 1 / std::sqrt(gx * gx + gy * gy);
    }
  }

  // Best score over [left, right] x [top, bottom]; minScore is raised as the scan goes.
  double Scan(const GeoLevel& model, int64_t left, int64_t top, int64_t right, int64_t bottom,
              double minScore, int (&position)[2]) const {
    const int n = static_cast<int>(model.points.size());
    if (n == 0) return 0;
    const double normMinScore = minScore / n;
    const double normGreediness = ((1 - greediness * minScore) / (1 - greediness)) / n;
    double best = 0;
    left = std::max<int64_t>(left, 0), right = std::min<int64_t>(right, plane.width - 1);
    top = std::max<int64_t>(top, 0), bottom = std::min<int64_t>(bottom, plane.height - 1);
    for (int64_t y = top; y <= bottom; ++y) {
      for (int64_t x = left; x <= right; ++x) {
        double sum = 0, score = 0;
        for (int j = 1; j <= n; ++j) {
          const GeoPoint& point = model.points[static_cast<size_t>(j - 1)];
          sum += Term(plane, inverse, point, x, y);
          score = sum / j;
          if (!IsInside(plane, point, x, y)) continue;  // counted, but the rule is not tested
          if (score < std::min((minScore - 1) + normGreediness * j, normMinScore * j)) break;
        }
        if (!(score > best)) continue;
        best = score;
        minScore = score;
        position[0] = static_cast<int>(x), position[1] = static_cast<int>(y);
      }
    }
    return best;
  }
};

// Least squares by the normal equations and elimination with pivoting.
std::array<double, 10> FitQuadric(const double (&scores)[3][3][3]) {
  double a[10][11] = {};
  for (int w = -1; w <= 1; ++w) {
    for (int v = -1; v <= 1; ++v) {
      for (int u = -1; u <= 1; ++u) {
        const double f[10] = {1.,
                              double(u),
                              double(v),
                              double(w),
                              double(u * u),
                              double(v * v),
                              double(w * w),
                              double(u * v),
                              double(u * w),
                              double(v * w)};
        for (int i = 0; i < 10; ++i) {
          for (int j = 0; j < 10; ++j) a[i][j] += f[i] * f[j];
          a[i][10] += f[i] * scores[w + 1][v + 1][u + 1];
        }
      }
    }
  }
  for (int i = 0; i < 10; ++i) {
    int pivot = i;
    for (int r = i; r < 10; ++r) {
      if (std::abs(a[r][i]) > std::abs(a[pivot][i])) pivot = r;
    }
    std::swap(a[i], a[pivot]);
    for (int r = 0; r < 10; ++r) {
      if (r == i) continue;
      const double factor = a[r][i] / a[i][i];
      for (int c = i; c < 11; ++c) a[r][c] -= factor * a[i][c];
    }
  }
  std::array<double, 10> q;
  for (size_t i = 0; i < 10; ++i) q[i] = a[i][10] / a[i][i];
  return q;
}

}  // namespace

double PeakAngle(const double (&scores)[3][3][3], double degrees) {
  const std::array<double, 10> q = FitQuadric(scores);
  const auto value = [&](double u, double v, double w) {
    return q[0] + q[1] * u + q[2] * v + q[3] * w + q[4] * u * u + q[5] * v * v + q[6] * w * w +
           q[7] * u * v + q[8] * u * w + q[9] * v * w;
  };
  const double h[3][3] = {{2 * q[4], q[7], q[8]}, {q[7], 2 * q[5], q[9]}, {q[8], q[9], 2 * q[6]}};
  // The inverse by cofactors.
  double cofactor[3][3], determinant = 0;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) {
      const int r1 = (r + 1) % 3, r2 = (r + 2) % 3, c1 = (c + 1) % 3, c2 = (c + 2) % 3;
      cofactor[r][c] = h[r1][c1] * h[r2][c2] - h[r1][c2] * h[r2][c1];
    }
  }
  for (int c = 0; c < 3; ++c) determinant += h[0][c] * cofactor[0][c];
  double largest = 0;
  for (const double* entry = &h[0][0]; entry < &h[0][0] + 9; ++entry) {
    largest = std::max(largest, std::abs(*entry));
  }
  const bool singular = std::abs(determinant) <= 1e-10 * largest * largest * largest;
  double at[3] = {};
  for (int i = 0; i < 3 && !singular; ++i) {
    double sum = 0;
    for (int r = 0; r < 3; ++r) sum -= q[static_cast<size_t>(r + 1)] * cofactor[r][i];
    at[i] = std::clamp(sum / determinant, -1.0, 1.0);
  }
  double best = value(at[0], at[1], at[2]);
  const auto refine = [&](double step, int reach, int angles) {
    const double centre[3] = {at[0], at[1], at[2]};
    for (int k = -angles; k <= angles; ++k) {
      for (int j = -reach; j <= reach; ++j) {
        for (int i = -reach; i <= reach; ++i) {
          const double p[3] = {centre[0] + i * step, centre[1] + j * step,
                               centre[2] + k * step / degrees};
          if (std::max({std::abs(p[0]), std::abs(p[1]), std::abs(p[2])}) > 1) continue;
          const double candidate = value(p[0], p[1], p[2]);
          if (!(candidate > best + 1e-9)) continue;  // of opposite points the first
          best = candidate;
          std::copy(p, p + 3, at);
        }
      }
    }
  };
  if (singular) refine(0.2, 5, static_cast<int>(degrees / 0.2));
  refine(0.1, 2, 2);
  refine(0.02, 5, 5);
  return at[2] * degrees;
}

GeoResult Find(const GreyImage& image, const GeoModel& model, const GeoQuery& query,
               int (&position)[2]) {
  Search search{.plane = {}, .inverse = {}, .greediness = query.greediness};
  const int top = model.topLevel;
  const double r = model.levels[static_cast<size_t>(top)].radius;
  double s = std::acos(1 - 1 / (r * r)) * 57.29577950560105;
  double bestAngle = 0;

  const auto tryAngles = [&](const GeoLevel& level, const std::vector<double>& angles, int64_t left,
                             int64_t upper, int64_t right, int64_t lower) {
    double best = 0, running = query.minScore;
    for (double a : angles) {
      if (!std::isfinite(a)) continue;
      int found[2];
      running = search.Scan(Rotate(level, a), left, upper, right, lower, running, found);
      if (!(running > best)) continue;
      best = running;
      bestAngle = a;
      std::copy(found, found + 2, position);
    }
  };
  for (int k = top; k >= 0; --k) {
    const GeoLevel& level = model.levels[static_cast<size_t>(k)];
    search.Load(image, k);
    const int64_t x = position[0], y = position[1];
    std::vector<double> angles = {0};
    if (k == top) {
      if (query.anyAngle) {
        angles.clear();
        for (double a = -50 * s; a <= 50 * s; a += 2 * s) {
          if (query.lowest - s / 2 <= a && a <= query.highest + s / 2) angles.push_back(a);
        }
      }
      tryAngles(level, angles, level.referenceX, level.referenceY,
                search.plane.width - level.referenceX, search.plane.height - level.referenceY);
    } else {
      if (query.anyAngle) angles = {bestAngle - 2 * s, bestAngle, bestAngle + 2 * s};
      tryAngles(level, angles, 2 * x - 1, 2 * y - 1, 2 * x + 1, 2 * y + 1);
    }
    s /= 2;
  }
  if (!query.anyAngle) return {};

  GeoResult result{bestAngle, bestAngle};
  const double d = 2 * s;
  const GeoLevel& level = model.levels[0];
  if (std::isfinite(d) && !level.points.empty()) {
    double scores[3][3][3];
    for (int i = 0; i < 3; ++i) {
      const GeoLevel turned = Rotate(level, i == 0 ? bestAngle - d : bestAngle + (i - 1) * d);
      for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
          double sum = 0;
          for (const GeoPoint& p : turned.points) {
            sum += Term(search.plane, search.inverse, p, int64_t{position[0]} + dx,
                        int64_t{position[1]} + dy);
          }
          scores[i][dy + 1][dx + 1] = sum / static_cast<double>(turned.points.size());
        }
      }
    }
    result.fitAngle += PeakAngle(scores, d);
  }
  result.angle = std::max(std::min(result.fitAngle, query.highest), query.lowest);
  return result;
}

}  // namespace quillon::test::reference
