#include "finder/edge_points.h"

#include <algorithm>
#include <cmath>

namespace quillon::finder {
namespace {

constexpr int kMostPoints[2] = {320, 160};  // of level 0, and of the others
constexpr double kLeastGradient = 24;       // Sobel: an edge of six grey values
constexpr double kLeastShare = 0.08;        // of a strong edge's gradient: weaker ones are left out
constexpr double kContrastShare = 0.2;  // of the median edge's: below it the picture counts as even

struct Edge {
  ModelPoint point;
  double strength;
  int index;
};

class Field {
 public:
  Field(const Gradient16* gradients, int width) : gradients_(gradients), width_(width) {}
  // Interpolated linearly; the four pixels lie in the picture.
  void At(double x, double y, double& gx, double& gy) const {
    const int left = static_cast<int>(x), top = static_cast<int>(y);
    const double fx = x - left, fy = y - top;
    const Gradient16* g = gradients_ + static_cast<ptrdiff_t>(top) * width_ + left;
    const double a = (1 - fx) * (1 - fy), b = fx * (1 - fy), c = (1 - fx) * fy, d = fx * fy;
    gx = a * g[0].x + b * g[1].x + c * g[width_].x + d * g[width_ + 1].x;
    gy = a * g[0].y + b * g[1].y + c * g[width_].y + d * g[width_ + 1].y;
  }
  double Along(double x, double y, double dx, double dy) const {
    double gx, gy;
    At(x, y, gx, gy);
    return gx * dx + gy * dy;
  }

 private:
  const Gradient16* gradients_;
  int width_;
};

// Takes the strongest points that keep a distance from one another: the largest distance that
// leaves enough of them.
bool Spread(const List<Edge>& edges, size_t most, List<ModelPoint>& points) {
  for (double apart = 16; apart > 0.4; apart *= 0.75) {
    points.Clear();
    for (const Edge& edge : edges) {
      bool isFar = true;
      for (const ModelPoint& other : points) {
        const float du = other.u - edge.point.u, dv = other.v - edge.point.v;
        if (du * du + dv * dv < apart * apart) {
          isFar = false;
          break;
        }
      }
      if (isFar && !points.Add(edge.point)) return false;
      if (points.size() == most) return true;
    }
  }
  return true;
}

}  // namespace

bool FindEdgePoints(Planes& planes, int l, const Model& model, const LevelMask& mask,
                    ModelLevel& made) {
  const int width = planes.Width(l), height = planes.Height(l);
  made.points.Clear();
  made.radius = 0;
  if (width < 6 || height < 6) return true;
  if (!planes.NeedGradients(l, 0, height)) return false;
  const Gradient16* gradients = planes.Gradients(l);
  const Field field(gradients, width);
  const double centreX = ToLevel((model.width - 1) / 2.0, l);
  const double centreY = ToLevel((model.height - 1) / 2.0, l);
  List<Edge> edges;
  for (int y = 2; y < height - 3; ++y) {
    for (int x = 2; x < width - 3; ++x) {
      const Gradient16& g = gradients[static_cast<ptrdiff_t>(y) * width + x];
      const double strength = std::sqrt(static_cast<double>(g.x * g.x + g.y * g.y));
      if (strength < kLeastGradient) continue;
      // An edge lies where the gradient is the highest along its own direction.
      const double dx = g.x / strength, dy = g.y / strength;
      const double before = field.Along(x - dx, y - dy, dx, dy);
      const double after = field.Along(x + dx, y + dy, dx, dy);
      if (!(strength > before && strength >= after)) continue;
      bool seen = true;
      for (int i = 0; i < 9 && seen; ++i) seen = mask.At(x + i % 3 - 1, y + i / 3 - 1);
      if (!seen) continue;
      const double bend = before - 2 * strength + after;
      const double offset = std::clamp(0.5 * (before - after) / bend, -0.5, 0.5);
      const double px = x + offset * dx, py = y + offset * dy;
      double gx, gy;
      field.At(px, py, gx, gy);
      const double length = std::sqrt(gx * gx + gy * gy);
      const ModelPoint point = {static_cast<float>(px - centreX), static_cast<float>(py - centreY),
                                static_cast<float>(gx / length), static_cast<float>(gy / length)};
      if (!edges.Add({point, strength, y * width + x})) return false;
    }
  }
  if (edges.empty()) return true;
  std::sort(edges.begin(), edges.end(), [](const Edge& a, const Edge& b) {
    return a.strength != b.strength ? a.strength > b.strength : a.index < b.index;
  });
  const double strong = edges[edges.size() / 10].strength;
  size_t clear = edges.size();
  while (clear > 0 && edges[clear - 1].strength < kLeastShare * strong) --clear;
  edges.Shrink(clear);
  made.contrast = static_cast<float>(
      std::max(kLeastGradient / 2, kContrastShare * edges[edges.size() / 2].strength));
  if (!Spread(edges, kMostPoints[l > 0], made.points)) return false;
  for (const ModelPoint& point : made.points) {
    made.radius = std::max(made.radius, std::sqrt(point.u * point.u + point.v * point.v));
  }
  return true;
}

}  // namespace quillon::finder
