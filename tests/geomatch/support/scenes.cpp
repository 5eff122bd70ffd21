#include "geomatch/support/scenes.h"

#include <algorithm>

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

}  // namespace quillon::test
