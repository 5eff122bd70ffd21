// The geometric transforms as they are defined, pixel by pixel.
#pragma once

#include <algorithm>
#include <cmath>

#include "arith/rotation.h"
#include "core/angle.h"

namespace quillon::test::reference {

inline int Nearest(int i, double scale, int side) {
  return static_cast<int>(std::min(std::trunc((i + 0.5) / scale), side - 1.0));
}

inline void Scale(const GreyImage& source, GreyImage& result, double scaleX, double scaleY) {
  result.Create(static_cast<int>(source.width * scaleX + 0.5),
                static_cast<int>(source.height * scaleY + 0.5));
  for (int y = 0; y < result.height; ++y) {
    for (int x = 0; x < result.width; ++x) {
      result.rows[y][x] =
          source.rows[Nearest(y, scaleY, source.height)][Nearest(x, scaleX, source.width)];
    }
  }
}

inline void Translate(const GreyImage& source, GreyImage& result, int dx, int dy) {
  result.Create(source.width, source.height);
  for (int y = 0; y < result.height; ++y) {
    for (int x = 0; x < result.width; ++x) {
      const int64_t fromX = int64_t{x} - dx, fromY = int64_t{y} - dy;
      const bool covered =
          fromX >= 0 && fromX < source.width && fromY >= 0 && fromY < source.height;
      result.rows[y][x] = covered ? source.rows[fromY][fromX] : 0;
    }
  }
}

inline uint8_t NearestPixel(const GreyImage& source, double sx, double sy) {
  const double x = std::floor(sx), y = std::floor(sy);
  if (x < 0 || y < 0 || x >= source.width || y >= source.height) return 0;
  return source.rows[static_cast<int>(y)][static_cast<int>(x)];
}

inline uint8_t BilinearPixel(const GreyImage& source, double sx, double sy) {
  const double right = source.width - 1, bottom = source.height - 1;
  if (sx < -1e-9 || sy < -1e-9 || sx > right + 1e-9 || sy > bottom + 1e-9) return 0;
  sx = std::min(std::max(sx, 0.0), right);
  sy = std::min(std::max(sy, 0.0), bottom);
  const int x = static_cast<int>(sx), y = static_cast<int>(sy);
  const uint8_t* upper = source.rows[y];
  const uint8_t* lower = source.rows[std::min(y + 1, source.height - 1)];
  const int next = std::min(x + 1, source.width - 1);
  const double above = upper[x] + (upper[next] - upper[x]) * (sx - x);
  const double below = lower[x] + (lower[next] - lower[x]) * (sx - x);
  return static_cast<uint8_t>(std::floor(above + (below - above) * (sy - y) + 0.5));
}

inline void Rotate(Sampling sampling, const GreyImage& source, GreyImage& result, double angle) {
  result.Create(source.width, source.height);
  const Direction d = DirectionOf(angle);
  const double cx = (source.width - 1) / 2.0, cy = (source.height - 1) / 2.0;
  const bool nearest = sampling == Sampling::kNearest;
  for (int y = 0; y < source.height; ++y) {
    for (int x = 0; x < source.width; ++x) {
      const double half = nearest ? 0.5 : 0;
      const double sx = ((x - cx) * d.cosine + (y - cy) * d.sine) + (cx + half);
      const double sy = ((y - cy) * d.cosine - (x - cx) * d.sine) + (cy + half);
      result.rows[y][x] = nearest ? NearestPixel(source, sx, sy) : BilinearPixel(source, sx, sy);
    }
  }
}

}  // namespace quillon::test::reference
