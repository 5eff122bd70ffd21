// Scenes for matching, drawn in whole numbers: the same bytes on every platform.
#pragma once

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "arith/transform_reference.h"
#include "geomatch/support/scenes.h"
#include "quillon/quillon.h"
#include "support/scenes.h"

namespace quillon::test::golden {

struct NccDeleter {
  void operator()(NccTool* tool) const { IxDestroyNCCModel(tool); }
};
using NccOwner = std::unique_ptr<NccTool, NccDeleter>;

struct GeoDeleter {
  void operator()(GeoMatchTool* tool) const { IxDestroyMatchModel(tool); }
};
using GeoOwner = std::unique_ptr<GeoMatchTool, GeoDeleter>;

// A template's place, in whole pixels.
struct WholeMatch {
  int left, top;
  double score;
};

// A template with a hole of zeros, three times in a picture of noise, each time a little worse; and
// both in colour.
struct CorrelationScene {
  CorrelationScene() {
    DrawShapes(pattern, 28, 22, 4);
    for (int y = 5; y < 9; ++y) std::fill_n(pattern.rows[y] + 3, 11, uint8_t{0});
    Fill(image, 160, 120, Content::kNoise, 3);
    Random random(8);
    int worse = 0;
    for (const auto& [left, top] : {std::pair{12, 9}, {90, 30}, {55, 80}}) {
      worse += 9;
      for (int y = 0; y < pattern.height; ++y) {
        for (int x = 0; x < pattern.width; ++x) {
          image.rows[top + y][left + x] = static_cast<uint8_t>(
              std::clamp(pattern.rows[y][x] + random.Within(-worse, worse), 0, 255));
        }
      }
    }
    Colourise(pattern, colourPattern);
    Colourise(image, colourImage);
    for (int y = 5; y < 9; ++y) std::fill_n(colourPattern.rows[y] + 9, 33, uint8_t{0});
  }

  GreyImage pattern, image;
  ColourImage colourPattern, colourImage;
};

constexpr uint32_t kEdgeScenes = 6;

// Shapes, and among others the template's, turned by degrees.
struct EdgeScene {
  EdgeScene(uint32_t seed, double degrees) {
    DrawShapes(pattern, 40 + static_cast<int>(seed), 37, seed);
    GreyImage upright;
    DrawShapes(upright, 150, 110, seed + 50);
    for (int y = 0; y < pattern.height; ++y) {
      std::copy_n(pattern.rows[y], pattern.width, upright.rows[30 + y] + 50);
    }
    reference::Rotate(Sampling::kBilinear, upright, image, degrees);
  }

  // Position and angle, found by the exports.
  std::vector<double> Find(int angleSearch) const {
    const GeoOwner tool(IxCreateGeoTool());
    IxCreateGeoMatchModel(&pattern, tool.get(), 80, 30);
    int position[2] = {-7, 12345};
    const double angle =
        IxFindGeoMatchModel(&image, tool.get(), 0.6, 0.8, position, 30, -30, angleSearch);
    return {static_cast<double>(position[0]), static_cast<double>(position[1]), angle};
  }

  GreyImage pattern, image;
};

}  // namespace quillon::test::golden
