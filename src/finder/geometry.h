// Poses, turned outlines and small systems of equations.
#pragma once

#include "core/angle.h"
#include "finder/finder.h"
#include "finder/planes.h"

namespace quillon::finder {

constexpr double kDegrees = 57.295779513082320877;  // of a radian

// What a pose does at one level: (u, v) from the template's centre lies at
// (x + a u - b v, y + b u + a v).
struct Placement {
  double x, y;
  double a, b;
};

inline Placement PlacementOf(const Pose& pose, int level) {
  const Direction turn = DirectionOf(pose.degrees);
  return {ToLevel(pose.x, level), ToLevel(pose.y, level), pose.scale * turn.cosine,
          pose.scale * turn.sine};
}

// The nearest whole number, and the one below, for numbers above -65536. Not std::lround and
// std::floor: without SSE4.1's instruction, which the lowest level lacks, they are calls.
inline int Nearest(double x) { return static_cast<int>(x + 65536.5) - 65536; }
inline int Floor(double x) { return static_cast<int>(x + 65536) - 65536; }

// Which of a pose's four numbers a search may change, and between which bounds.
struct Freedom {
  bool turn = false, scale = false;
  bool anyAngle = false;
  double angleLow = 0, angleHigh = 0, scaleLow = 1, scaleHigh = 1;

  // The pose within the bounds; its angle is one of angleLow ... angleLow + 360.
  void Clamp(Pose& pose) const;
};

// Solves a x = b for a symmetric, positive matrix by elimination; b becomes x. False for a matrix
// that is singular but for rounding: any of many x would do.
template <int kSize>
bool Solve(double (&a)[kSize][kSize], double (&b)[kSize]) {
  for (int i = 0; i < kSize; ++i) {
    if (!(a[i][i] > 1e-9)) return false;
    for (int j = i + 1; j < kSize; ++j) {
      const double factor = a[j][i] / a[i][i];
      for (int k = i; k < kSize; ++k) a[j][k] -= factor * a[i][k];
      b[j] -= factor * b[i];
    }
  }
  for (int i = kSize - 1; i >= 0; --i) {
    for (int k = i + 1; k < kSize; ++k) b[i] -= a[i][k] * b[k];
    b[i] /= a[i][i];
  }
  return true;
}

// The corners of a template of this size at a pose, clockwise from the top left one.
void Outline(int width, int height, const Pose& pose, double (&corners)[4][2]);

// The area that two such outlines share.
double SharedArea(const double (&a)[4][2], const double (&b)[4][2]);

}  // namespace quillon::finder
