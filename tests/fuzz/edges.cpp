// Edge-based matching: teaching with any thresholds, searching with any numbers.
#include <cmath>

#include "fuzz/input.h"
#include "quillon/quillon.h"

namespace quillon::fuzz {
namespace {

void RequireSound(const GeoMatchTool& tool) {
  const GeoModelLevel& level = *tool.model;
  Require(level.count >= 0, "a model has points or none");
  for (int i = 0; i < level.count; ++i) {
    Require(std::abs(level.x[i]) <= level.width && std::abs(level.y[i]) <= level.height &&
                std::isfinite(level.inverseMagnitude[i]),
            "points lie in the template");
  }
}

}  // namespace

void Run(Input& input) {
  GeoMatchTool* tool = IxCreateGeoTool();
  if (!tool) return;
  GreyImage pattern, image;
  input.Image(pattern, 40);
  input.Image(image, 64);
  const ReadOnly<unsigned char> unchanged(&image);
  for (int step = 0; step < 3 && !input.Ended(); ++step) {
    const double high = input.Choice(2) ? 80 : input.Double();
    IxCreateGeoMatchModel(input.Choice(8) ? &pattern : &image, tool, high,
                          input.Choice(2) ? 30 : input.Double());
    RequireSound(*tool);
    int position[2] = {input.Int(), input.Int()};
    const double minScore = input.Double(), greediness = input.Double();
    const double highest = input.Double(), lowest = input.Double();
    IxFindGeoMatchModel(&image, tool, minScore, greediness, position, highest, lowest,
                        input.Choice(2));
  }
  unchanged.RequireUnchanged();
  IxDestroyMatchModel(tool);
}

}  // namespace quillon::fuzz
