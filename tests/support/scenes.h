// Synthetic scenes: a pattern placed at poses that are known exactly, on a cluttered ground.
#pragma once

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

}  // namespace quillon::test
