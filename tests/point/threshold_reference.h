// The thresholds as they are defined, pixel by pixel.
#pragma once

#include <algorithm>
#include <cstdint>

#include "quillon/image.h"

namespace quillon::test::reference {

// Columns before the last width % 8 see the low 8 bits of a bound.
template <class Rule>
void Binarise(GreyImage& image, const Rule& passes) {
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      const bool tail = x >= image.width / 8 * 8;
      image.rows[y][x] = passes(image.rows[y][x], tail) ? 255 : 0;
    }
  }
}

inline void Threshold(GreyImage& image, int t) {
  Binarise(image, [&](int p, bool tail) { return p > (tail ? t : t & 255); });
}

inline void DoubleThreshold(GreyImage& image, int low, int high) {
  const int lower = std::min(low, high);
  Binarise(image, [&](int p, bool tail) {
    return p > (tail ? lower : lower & 255) && p < (tail ? high : high & 255);
  });
}

// The criterion with all sums formed afresh for every level.
inline int Otsu(const GreyImage& image) {
  uint32_t counts[256] = {};
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) ++counts[image.rows[y][x]];
  }
  double n = 0, m = 0;
  for (int i = 0; i < 256; ++i) {
    n += counts[i];
    m += static_cast<int32_t>((i + 1u) * counts[i]);
  }
  double best = 0;
  int result = 0;
  for (int t = 0; t < 256; ++t) {
    double w0 = 0, m0 = 0;
    for (int i = 0; i <= t; ++i) {
      w0 += counts[i];
      m0 += static_cast<int32_t>((i + 1u) * counts[i]);
    }
    const double mean0 = w0 == 0 ? 0 : m0 / w0;
    const double w1 = n - w0;
    const double mean1 = w1 == 0 ? 0 : (m - m0) / w1;
    const double sigma = (mean0 - mean1) * (mean0 - mean1) * w1 * w0;
    if (t == 0 || sigma > best) {
      best = sigma;
      result = t;
    }
  }
  return result;
}

}  // namespace quillon::test::reference
