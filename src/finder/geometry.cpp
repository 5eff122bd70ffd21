#include "finder/geometry.h"

#include <algorithm>
#include <cmath>

namespace quillon::finder {

void Freedom::Clamp(Pose& pose) const {
  pose.scale = std::clamp(pose.scale, scaleLow, scaleHigh);
  double away = std::fmod(pose.degrees - angleLow, 360.0);  // exact
  if (away < 0) away += 360;
  if (away >= 360) away = 0;
  const double range = angleHigh - angleLow;
  // Outside of the range, the nearer end.
  if (!anyAngle && away > range) away = away - range < 360 - away ? range : 0;
  pose.degrees = angleLow + away;
}

void Outline(int width, int height, const Pose& pose, double (&corners)[4][2]) {
  const Placement p = PlacementOf(pose, 0);
  for (int i = 0; i < 4; ++i) {
    const double u = (i == 1 || i == 2 ? 0.5 : -0.5) * width, v = (i >= 2 ? 0.5 : -0.5) * height;
    corners[i][0] = p.x + p.a * u - p.b * v;
    corners[i][1] = p.y + p.b * u + p.a * v;
  }
}

// Cuts `a` by the four half planes of `b` (I. E. Sutherland and G. W. Hodgman, "Reentrant polygon
// clipping", CACM 1974).
double SharedArea(const double (&a)[4][2], const double (&b)[4][2]) {
  constexpr int kMost = 8;
  double polygon[kMost][2], cut[kMost][2];
  int count = 4;
  std::copy(&a[0][0], &a[0][0] + 8, &polygon[0][0]);
  for (int i = 0; i < 4 && count > 0; ++i) {
    const double* from = b[i];
    const double* to = b[(i + 1) % 4];
    const auto inside = [&](const double* p) {
      return (to[0] - from[0]) * (p[1] - from[1]) - (to[1] - from[1]) * (p[0] - from[0]);
    };
    int kept = 0;
    for (int j = 0; j < count; ++j) {
      const double* p = polygon[j];
      const double* q = polygon[(j + 1) % count];
      const double atP = inside(p), atQ = inside(q);
      if (atP >= 0 && kept < kMost) {
        cut[kept][0] = p[0];
        cut[kept++][1] = p[1];
      }
      if ((atP >= 0) != (atQ >= 0) && kept < kMost) {
        const double t = atP / (atP - atQ);
        cut[kept][0] = p[0] + t * (q[0] - p[0]);
        cut[kept++][1] = p[1] + t * (q[1] - p[1]);
      }
    }
    count = kept;
    std::copy(&cut[0][0], &cut[0][0] + 2 * kept, &polygon[0][0]);
  }
  double twice = 0;
  for (int j = 0; j < count; ++j) {
    const double* p = polygon[j];
    const double* q = polygon[(j + 1) % count];
    twice += p[0] * q[1] - p[1] * q[0];
  }
  return std::abs(twice) / 2;
}

}  // namespace quillon::finder
