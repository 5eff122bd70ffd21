// Synthetic scenes: a pattern placed at poses that are known exactly, on a cluttered ground.
#pragma once

#include <algorithm>
#include <vector>

#include "support/images.h"

namespace quillon::test {

struct SceneSpec {
  int templateWidth = 64, templateHeight = 64;
  int width = 640, height = 480;
  int instances = 1;
  double angleMin = 0, angleMax = 0;  // degrees, clockwise as displayed
  double scaleMin = 1, scaleMax = 1;
  double gain = 1, noise = 0;  // pixels become 128 + gain (pixel - 128) + noise of this deviation
  bool wholePixels = false;    // positions without a fraction
  uint32_t seed = 1;
};

struct Truth {
  double x, y;  // of the centre; whole numbers are pixel centres
  double angle, scale;
};

// The picture is drawn from a pattern of eight times the resolution, so that the template and every
// turned, scaled and shifted instance are pixel-wide averages of the same thing.
std::vector<Truth> MakeScene(const SceneSpec& spec, GreyImage& pattern, GreyImage& scene);

// Colour from grey: three different mixtures of the picture and its mirror image about 128.
void Colourise(const GreyImage& grey, ColourImage& colour);

// The first instance of a scene, calling check(pattern, scene, truth, masked): in grey, with black
// in the template that a mask leaves out, and in colour.
template <class Check>
void ForEachKind(const SceneSpec& spec, const Check& check) {
  GreyImage pattern, scene;
  const Truth truth = MakeScene(spec, pattern, scene).at(0);
  check(pattern, scene, truth, false);
  ColourImage colourPattern, colourScene;
  Colourise(pattern, colourPattern);
  Colourise(scene, colourScene);
  check(colourPattern, colourScene, truth, false);
  for (int y = 8; y < 20; ++y) std::fill_n(pattern.rows[y] + 11, 9, uint8_t{0});
  check(pattern, scene, truth, true);
}

}  // namespace quillon::test
