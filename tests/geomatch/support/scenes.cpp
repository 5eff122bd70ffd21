#include "geomatch/support/scenes.h"

#include <algorithm>
#include <cmath>

namespace quillon::test {

void DrawShapes(GreyImage& image, int width, int height, uint32_t seed) {
  image.Create(width, height);
  Random random(seed);
  struct Shape {
    int kind, x, y, size;
    uint8_t value;
  };
  Shape shapes[6];
  for (Shape& shape : shapes) {
    shape = {random.Within(0, 2), random.Within(0, width), random.Within(0, height),
             random.Within(2, std::max(3, std::min(width, height) / 3)),
             static_cast<uint8_t>(random.Within(20, 250))};
  }
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      uint8_t value = 90;
      for (const Shape& s : shapes) {
        const int dx = x - s.x, dy = y - s.y;
        const bool inside = s.kind == 0 ? std::abs(dx) < s.size && std::abs(dy) < s.size / 2 + 1
                            : s.kind == 1
                                ? dx * dx + dy * dy < s.size * s.size
                                : dy > -s.size && dy < s.size && std::abs(dx) < s.size + dy;
        if (inside) value = s.value;
      }
      image.rows[y][x] = value;
    }
  }
  FillPadding(image, kPadding);
}

void Place(const GreyImage& pattern, const Placement& placement, GreyImage& scene) {
  const double a = placement.degrees * 3.14159265358979323846 / 180;
  const double c = std::cos(a), s = std::sin(a);
  for (int y = 0; y < scene.height; ++y) {
    for (int x = 0; x < scene.width; ++x) {
      const double dx = x - placement.x, dy = y - placement.y;
      const double u = pattern.width / 2 + dx * c + dy * s;
      const double v = pattern.height / 2 - dx * s + dy * c;
      if (u < 0 || v < 0 || u > pattern.width - 1 || v > pattern.height - 1) continue;
      const int left = static_cast<int>(u), top = static_cast<int>(v);
      const int right = std::min(left + 1, pattern.width - 1);
      const int bottom = std::min(top + 1, pattern.height - 1);
      const double fu = u - left, fv = v - top;
      const double value =
          (pattern.rows[top][left] * (1 - fu) + pattern.rows[top][right] * fu) * (1 - fv) +
          (pattern.rows[bottom][left] * (1 - fu) + pattern.rows[bottom][right] * fu) * fv;
      scene.rows[y][x] = static_cast<uint8_t>(std::clamp(value * placement.gain + 0.5, 0.0, 255.0));
    }
  }
}

void AddNoise(GreyImage& image, double sigma, Random& random) {
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      double sum = -6;
      for (int i = 0; i < 12; ++i) sum += random.Unit();
      const double value = image.rows[y][x] + sigma * sum + 0.5;
      image.rows[y][x] = static_cast<uint8_t>(std::clamp(value, 0.0, 255.0));
    }
  }
}

}  // namespace quillon::test
