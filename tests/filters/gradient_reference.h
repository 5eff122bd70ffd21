// The edge and sharpening filters as they are defined, pixel by pixel.
#pragma once

#include <cstdlib>

#include "filters/filter_checks.h"

namespace quillon::test::reference {

// A row's first 8 * ((width - 1) / 8) columns from column 1 on are block columns.
inline bool InTail(int x, int width) { return x > (width - 1) / 8 * 8; }

inline int Clamp(int v) { return v < 0 ? 0 : v > 255 ? 255 : v; }

using Formula = int (*)(const GreyImage& source, int x, int y);

inline int Magnitude(const GreyImage& source, int x, int y, int middle) {
  const uint8_t *t = source.rows[y - 1], *m = source.rows[y], *b = source.rows[y + 1];
  const int gx = middle * (m[x + 1] - m[x - 1]) + (t[x + 1] - t[x - 1]) + (b[x + 1] - b[x - 1]);
  const int gy = middle * (b[x] - t[x]) + (b[x - 1] - t[x - 1]) + (b[x + 1] - t[x + 1]);
  return (std::abs(gx) + std::abs(gy)) / 4;
}

inline int Sobel(const GreyImage& source, int x, int y) { return Magnitude(source, x, y, 2); }

inline int Prewitt(const GreyImage& source, int x, int y) {
  return Magnitude(source, x, y, InTail(x, source.width) ? 2 : 1);
}

inline int Robert(const GreyImage& source, int x, int y) {
  const uint8_t *m = source.rows[y], *b = source.rows[y + 1];
  return 2 * (std::abs(m[x] - b[x + 1]) + std::abs(b[x] - m[x + 1]));
}

inline int CentreAgainstNeighbours(const GreyImage& source, int x, int y, int centre) {
  int sum = centre * source.rows[y][x];
  for (int j = -1; j <= 1; ++j) {
    for (int i = -1; i <= 1; ++i) {
      if (i != 0 || j != 0) sum -= source.rows[y + j][x + i];
    }
  }
  return sum;
}

inline int Laplacian(const GreyImage& source, int x, int y) {
  return CentreAgainstNeighbours(source, x, y, 8);
}

inline int Sharpen(const GreyImage& source, int x, int y) {
  return CentreAgainstNeighbours(source, x, y, InTail(x, source.width) ? 7 : 9);
}

inline FilterDefinition Filter(Formula formula, bool smallBecomesZero) {
  return [=](const GreyImage& source, GreyImage& result) {
    const int width = source.width, height = source.height;
    if (width < 3 || height < 3) {
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
          result.rows[y][x] = smallBecomesZero ? 0 : source.rows[y][x];
        }
      }
      return;
    }
    for (int y = 1; y < height - 1; ++y) {
      uint8_t* out = result.rows[y];
      int x = 1;
      for (; x < width - 1 || !InTail(x, width); ++x) {
        out[x] = static_cast<uint8_t>(Clamp(formula(source, x, y)));
      }
      out[0] = out[1];
      out[x] = out[x - 1];
    }
    for (int x = 0; x < width; ++x) {
      result.rows[0][x] = result.rows[1][x];
      result.rows[height - 1][x] = result.rows[height - 2][x];
    }
  };
}

}  // namespace quillon::test::reference
