// Regions from polygons, edge by edge and pixel by pixel.
#pragma once

#include <cstdlib>
#include <utility>
#include <vector>

#include "blob/regions.h"

namespace quillon::test::reference {

struct Runs {
  std::vector<Span> spans;
  int area = 0;
};

// Edge by edge, pixel by pixel, with the table of bends and both sorts spelled out.
inline Runs Polygon(const std::vector<int>& points) {
  constexpr int kBends[8][8] = {{0, 0, 0, 0, 2, 2, 2, 2}, {1, 1, 1, 1, 0, 3, 3, 3},
                                {1, 1, 1, 1, 0, 0, 3, 3}, {1, 1, 1, 1, 0, 0, 0, 3},
                                {1, 1, 1, 1, 0, 0, 0, 0}, {0, 3, 3, 3, 2, 2, 2, 2},
                                {0, 0, 3, 3, 2, 2, 2, 2}, {0, 0, 0, 3, 2, 2, 2, 2}};
  constexpr int kDx[8] = {1, 1, 0, -1, -1, -1, 0, 1}, kDy[8] = {0, -1, -1, -1, 0, 1, 1, 1};
  const auto sign = [](int v) { return (v > 0) - (v < 0); };

  std::vector<int> codes;
  const size_t count = points.size() / 2;
  for (size_t i = 0; i < count; ++i) {
    int x = points[2 * i], y = points[2 * i + 1];
    const int dx = points[2 * ((i + 1) % count)] - x, dy = points[2 * ((i + 1) % count) + 1] - y;
    const int n = std::max(std::abs(dx), std::abs(dy));
    int ex = 1, ey = 1;
    std::vector<std::pair<int, int>> pixels;
    for (int k = 0; k <= n; ++k) {
      pixels.emplace_back(x, y);
      ex += std::abs(dx);
      ey += std::abs(dy);
      if (ex > n) x += sign(dx), ex -= n;
      if (ey > n) y += sign(dy), ey -= n;
    }
    for (size_t k = 1; k < pixels.size(); ++k) {
      for (int d = 0; d < 8; ++d) {
        if (pixels[k].first - pixels[k - 1].first == kDx[d] &&
            pixels[k].second - pixels[k - 1].second == kDy[d]) {
          codes.push_back(d);
        }
      }
    }
  }

  std::vector<std::pair<int, int>> ends;
  int x = points[0], y = points[1];
  for (size_t i = 0; i < codes.size(); ++i) {
    x += kDx[codes[i]];
    y += kDy[codes[i]];
    const int bend = kBends[codes[i]][codes[(i + 1) % codes.size()]];
    for (int k = 0; k < (bend + 1) / 2; ++k) ends.emplace_back(x, y);
  }
  for (size_t i = 0; i < ends.size(); ++i) {
    size_t first = i;
    for (size_t j = i; j < ends.size(); ++j) {
      if (ends[j].second < ends[first].second) first = j;
    }
    std::swap(ends[i], ends[first]);
  }
  for (bool swapped = true; swapped;) {
    swapped = false;
    for (size_t j = ends.size(); j-- > 1;) {
      if (ends[j - 1].second == ends[j].second && ends[j - 1].first > ends[j].first) {
        std::swap(ends[j - 1], ends[j]);
        swapped = true;
      }
    }
  }
  Runs runs;
  for (size_t k = 0; k + 1 < ends.size(); k += 2) {
    runs.spans.push_back({ends[k].second, ends[k].first, ends[k + 1].first});
    runs.area += ends[k + 1].first - ends[k].first + 1;
  }
  return runs;
}

}  // namespace quillon::test::reference
