#include "geomatch/support/reference.h"

#include <algorithm>
#include <cmath>

namespace quillon::test::reference {
namespace {

int BlockMean(const GreyImage& image, int level, int x, int y) {
  const int side = 1 << level;
  int half[2] = {};
  for (int i = 0; i < side; ++i) {
    for (int j = 0; j < side; ++j) half[2 * j / side] += image.rows[y * side + i][x * side + j];
  }
  return level == 4 ? half[0] / 512 + half[1] / 512 : (half[0] + half[1]) / (side * side);
}

void AddGradients(Plane& p) {
  p.gx.assign(p.pixels.size(), 0);
  p.gy = p.gx;
  for (int y = 1; y < p.height - 1; ++y) {
    for (int x = 1; x < p.width - 1; ++x) {
      p.gx[p.Index(x, y)] = (p.At(x + 1, y - 1) + 2 * p.At(x + 1, y) + p.At(x + 1, y + 1)) -
                            (p.At(x - 1, y - 1) + 2 * p.At(x - 1, y) + p.At(x - 1, y + 1));
      p.gy[p.Index(x, y)] = (p.At(x - 1, y + 1) + 2 * p.At(x, y + 1) + p.At(x + 1, y + 1)) -
                            (p.At(x - 1, y - 1) + 2 * p.At(x, y - 1) + p.At(x + 1, y - 1));
    }
  }
  if (p.height < 3) return;
  for (std::vector<int>* g : {&p.gx, &p.gy}) {
    for (int x = 0; x < p.width; ++x) {
      (*g)[p.Index(x, 0)] = (*g)[p.Index(x, 1)];
      (*g)[p.Index(x, p.height - 1)] = (*g)[p.Index(x, p.height - 2)];
    }
  }
}

int Direction(int gx, int gy) {
  const double a = gx == 0 ? 0 : std::atan(static_cast<double>(gy) / gx) * 57.29577950560105;
  if ((a > 22.5 && a < 67.5) || (a > 202.5 && a < 247.5)) return 45;
  if ((a > 67.5 && a < 112.5) || (a > 247.5 && a < 292.5)) return 90;
  if ((a > 112.5 && a < 157.5) || (a > 292.5 && a < 337.5)) return 135;
  return 0;
}

GeoLevel ExtractEdges(const Plane& p, double high, double low) {
  GeoLevel level;
  level.width = p.width;
  level.height = p.height;
  level.referenceX = p.width / 2;
  level.referenceY = p.height / 2;
  const auto inner = [&](const auto& visit) {
    for (int y = 1; y < p.height - 1; ++y) {
      for (int x = 1; x < p.width - 1; ++x) visit(x, y);
    }
  };

  std::vector<double> magnitude(p.pixels.size(), 0.0);
  double greatest = -99999.99;
  inner([&](int x, int y) {
    const double gx = p.gx[p.Index(x, y)], gy = p.gy[p.Index(x, y)];
    magnitude[p.Index(x, y)] = std::sqrt(gx * gx + gy * gy);
    greatest = std::max(greatest, magnitude[p.Index(x, y)]);
  });

  std::vector<uint8_t> edges(p.pixels.size(), 0);
  inner([&](int x, int y) {
    const size_t i = p.Index(x, y);
    size_t a = 0, b = 0;
    switch (Direction(p.gx[i], p.gy[i])) {
      case 0:
        a = p.Index(x - 1, y), b = p.Index(x + 1, y);
        break;
      case 45:
        a = p.Index(x + 1, y - 1), b = p.Index(x - 1, y + 1);
        break;
      case 90:
        a = p.Index(x, y - 1), b = p.Index(x, y + 1);
        break;
      case 135:
        a = p.Index(x - 1, y - 1), b = p.Index(x + 1, y + 1);
        break;
    }
    const bool kept = !(magnitude[i] < magnitude[a]) && !(magnitude[i] < magnitude[b]);
    if (kept && greatest > 0) edges[i] = static_cast<uint8_t>(magnitude[i] / greatest * 255);
  });

  double farthest = 0;
  inner([&](int x, int y) {
    const size_t i = p.Index(x, y);
    bool point = edges[i] >= high;
    if (!point && edges[i] < low) {
      edges[i] = 0;
    } else if (!point) {
      for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
          if ((dx || dy) && edges[p.Index(x + dx, y + dy)] >= high) point = true;
        }
      }
      if (!point) edges[i] = 0;
    }
    if (!point || (p.gx[i] == 0 && p.gy[i] == 0)) return;
    const double gx = p.gx[i], gy = p.gy[i];
    const int dx = x - p.width / 2, dy = y - p.height / 2;
    level.points.push_back({dx, dy, p.gx[i], p.gy[i], 1 / std::sqrt(gx * gx + gy * gy)});
    farthest = std::max(farthest, std::sqrt(static_cast<double>(dx * dx + dy * dy)));
  });
  level.radius = farthest;
  return level;
}

}  // namespace

Plane MakePlane(const GreyImage& image, int level) {
  Plane p;
  p.width = static_cast<int>(image.width / std::pow(2.0, level));
  p.height = static_cast<int>(image.height / std::pow(2.0, level));
  for (int y = 0; y < p.height; ++y) {
    for (int x = 0; x < p.width; ++x) {
      const int value = level == 0 ? image.rows[y][x] : BlockMean(image, level, x, y);
      p.pixels.push_back(static_cast<uint8_t>(value));
    }
  }
  AddGradients(p);
  return p;
}

GeoModel Teach(const GreyImage& image, double high, double low) {
  GeoModel model;
  const int n = static_cast<int>(image.width * image.height * 0.015625 + 0.5);
  for (int limit : {4, 16, 64, 256, 1024, 4096}) model.topLevel += n >= limit;
  for (int k = 0; k <= model.topLevel; ++k) {
    model.levels.push_back(ExtractEdges(MakePlane(image, k), high, low));
  }
  if (model.topLevel > 0 && model.levels.back().points.size() < 15) --model.topLevel;
  return model;
}

}  // namespace quillon::test::reference
