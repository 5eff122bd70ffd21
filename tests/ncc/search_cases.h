// What tests of the search share: searches whose every result is checked, copies laid into images.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "ncc/model.h"
#include "ncc/pose.h"
#include "ncc/search.h"
#include "support/scenes.h"

namespace quillon::test {

inline SearchLimits LimitsOf(const SceneSpec& spec, int maxResults = 50) {
  return {.minScore = 0.8,
          .angleMax = spec.angleMax,
          .angleMin = spec.angleMin,
          .scaleMax = spec.scaleMax,
          .scaleMin = spec.scaleMin,
          .rotate = spec.angleMin < spec.angleMax,
          .maxResults = maxResults};
}

inline std::vector<NccResult> ResultsOf(const NccTool& tool) {
  return {tool.results.begin(), tool.results.begin() + tool.resultCount};
}

template <class Pixel>
std::vector<NccResult> Find(const Kernels& kernels, const CImage<Pixel>& pattern,
                            const CImage<Pixel>& image, const SearchLimits& limits,
                            bool masked = false) {
  const auto tool = std::make_unique<NccTool>();
  EXPECT_TRUE(BuildNccModel(kernels, pattern, masked, *tool));
  EXPECT_TRUE(FindNccModel(kernels, image, limits, *tool));
  double previous = 1;
  for (const NccResult& r : ResultsOf(*tool)) {
    EXPECT_LE(r.score, previous);
    previous = r.score;
    for (double value : {r.x, r.y, r.angle, r.scale, r.score}) EXPECT_TRUE(std::isfinite(value));
    EXPECT_GE(r.score, limits.minScore);
    EXPECT_LE(r.score, 1.0);
    EXPECT_EQ(r.matchWidth, static_cast<int>(pattern.width * r.scale));
    EXPECT_EQ(r.matchHeight, static_cast<int>(pattern.height * r.scale));
    EXPECT_TRUE(r.scale == 1 || std::abs(r.scale - 1) > 0.001) << r.scale;
    // The whole template lies in the image.
    const double c = std::abs(std::cos(r.angle * kRadians)), s = std::sin(r.angle * kRadians);
    const double halfWidth = (pattern.width * c + pattern.height * std::abs(s)) * r.scale / 2;
    const double halfHeight = (pattern.width * std::abs(s) + pattern.height * c) * r.scale / 2;
    constexpr double kRounding = 1e-6;
    EXPECT_GE(r.x + 0.5 - halfWidth, -kRounding);
    EXPECT_GE(r.y + 0.5 - halfHeight, -kRounding);
    EXPECT_LE(r.x + 0.5 + halfWidth, image.width + kRounding);
    EXPECT_LE(r.y + 0.5 + halfHeight, image.height + kRounding);
  }
  return ResultsOf(*tool);
}

inline bool SameResults(const std::vector<NccResult>& a, const std::vector<NccResult>& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (a[i].x != b[i].x || a[i].y != b[i].y || a[i].angle != b[i].angle ||
        a[i].scale != b[i].scale || a[i].score != b[i].score) {
      return false;
    }
  }
  return true;
}

// Copies the pattern into the image with its top left pixel at (left, top): without what the border
// cuts, and without the zeros that a mask leaves out.
inline void Paste(const GreyImage& pattern, int left, int top, GreyImage& image,
                  bool masked = false) {
  for (int y = std::max(-top, 0); y < std::min(pattern.height, image.height - top); ++y) {
    for (int x = std::max(-left, 0); x < std::min(pattern.width, image.width - left); ++x) {
      if (masked && pattern.rows[y][x] == 0) continue;
      image.rows[top + y][left + x] = pattern.rows[y][x];
    }
  }
}

// No search, over angles, over scales, and over both.
inline const SearchLimits kEveryKind[] = {{.minScore = 0.8,
                                           .angleMax = 0,
                                           .angleMin = 0,
                                           .scaleMax = 1,
                                           .scaleMin = 1,
                                           .rotate = false,
                                           .maxResults = 10},
                                          {0.8, 20, -20, 1, 1, true, 10},
                                          {0.8, 0, 0, 1.15, 0.85, false, 10},
                                          {0.8, 180, -180, 1.25, 0.8, true, 10}};

inline void ExpectExactCopy(const NccResult& r, const GreyImage& pattern, double left, double top) {
  EXPECT_EQ(r.score, 1.0);
  EXPECT_EQ(r.scale, 1.0);
  EXPECT_EQ(r.angle, 0.0);
  EXPECT_EQ(r.matchWidth, pattern.width);
  EXPECT_EQ(r.matchHeight, pattern.height);
  EXPECT_NEAR(r.x, left + pattern.width * 0.5 - 0.5, 0.02);
  EXPECT_NEAR(r.y, top + pattern.height * 0.5 - 0.5, 0.02);
}

}  // namespace quillon::test
