// Template matching by correlation: teaching, levels, searches and results in any order.
#include <cmath>

#include "fuzz/input.h"
#include "quillon/quillon.h"

namespace quillon::fuzz {
namespace {

void ReadResults(const NccTool* tool, int count) {
  Require(count >= 0 && count <= 500, "at most 500 results");
  for (int i = -1; i <= count; ++i) {
    NccResult r = {};
    if (!IxGetNCCMatchResults(tool, i, &r)) continue;
    for (double value : {r.x, r.y, r.angle, r.scale, r.score}) {
      Require(std::isfinite(value), "results are finite");
    }
  }
}

// Ranges that a search gets through in milliseconds, or nonsense, which it must refuse.
struct Limits {
  explicit Limits(Input& input) {
    angleMin = input.Double(), angleMax = input.Double();
    scaleMin = input.Double(), scaleMax = input.Double();
    if (input.Choice(8)) {
      scaleMin = 0.8 + input.Choice(40) / 100.0;
      scaleMax = scaleMin + input.Choice(20) / 100.0;
      angleMin = input.Int() % 200;
      angleMax = angleMin + input.Choice(40);
    }
    minScore = input.Choice(4) ? input.Choice(100) / 100.0 : input.Double();
    rotate = input.Choice(2);
    maxResults = input.Int();
  }
  double minScore, angleMin, angleMax, scaleMin, scaleMax;
  bool rotate;
  int maxResults;
};

}  // namespace

void Run(Input& input) {
  NccTool* tool = IxCreateNCCTool();
  if (!tool) return;
  GreyImage pattern, image, copy;
  ColourImage colourPattern, colourImage, colourCopy;
  input.Image(pattern, 24);
  input.Image(image, 48);
  input.Image(colourPattern, 20);
  input.Image(colourImage, 40);
  // Something to find.
  if (input.Choice(2) && image.width > pattern.width && image.height > pattern.height) {
    const int left = input.Byte() % (image.width - pattern.width);
    const int top = input.Byte() % (image.height - pattern.height);
    for (int y = 0; y < pattern.height; ++y) {
      std::memcpy(image.rows[top + y] + left, pattern.rows[y], static_cast<size_t>(pattern.width));
    }
  }
  const ReadOnly<unsigned char> unchanged(&image);
  IxCreateNCCMatchModel(&pattern, tool, input.Choice(2));
  for (int step = 0; step < 4 && !input.Ended(); ++step) {
    switch (input.Choice(8)) {
      case 0:
        IxCreateNCCMatchModel(input.Choice(4) ? &pattern : &image, tool, input.Choice(2));
        break;
      case 1:
        IxCreateNCCMatchColorModel(&colourPattern, tool, input.Choice(2));
        break;
      case 2:
        IxCreateNCCMatchColorModel_ROI(&colourPattern, tool);
        IxFindNCCMatchColorModel_ROI(input.Choice(2) ? &colourPattern : &colourImage, tool);
        break;
      case 3:
        IxSetPyramidLevel(tool, input.Int());
        Require(IxGet_CurrentPyramidLevel(tool) <= IxGet_DefaultPyramidLevel(tool), "levels");
        break;
      case 4:
        IxGet_Pyramid_GrayImage(tool, &copy, input.Int());
        IxGet_Pyramid_ColorImage(tool, &colourCopy, input.Int());
        RequireSound(copy);
        RequireSound(colourCopy);
        break;
      case 5: {
        const Limits l(input);
        ReadResults(tool,
                    IxFindNCCMatchColorModel(&colourImage, tool, l.minScore, l.angleMax, l.angleMin,
                                             l.scaleMax, l.scaleMin, l.rotate, l.maxResults));
        break;
      }
      default: {
        const Limits l(input);
        ReadResults(tool, IxFindNCCMatchModel(&image, tool, l.minScore, l.angleMax, l.angleMin,
                                              l.scaleMax, l.scaleMin, l.rotate, l.maxResults));
        break;
      }
    }
  }
  unchanged.RequireUnchanged();
  IxDestroyNCCModel(tool);
}

}  // namespace quillon::fuzz
