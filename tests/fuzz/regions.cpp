// Regions of interest: polygons of any points, pictures of them, means over them.
#include <cmath>

#include "fuzz/input.h"
#include "quillon/quillon.h"

namespace quillon::fuzz {

void Run(Input& input) {
  RLERegion* region = CreateRLERegion();
  if (!region) return;
  GreyImage image, other;
  ColourImage colour;
  input.Image(image);
  input.Image(other);
  input.Image(colour);
  for (int polygon = 0; polygon < 3 && !input.Ended(); ++polygon) {
    std::vector<int> points;
    const int count = 1 + input.Choice(24);
    for (int i = 0; i < 2 * count; ++i) points.push_back(input.Int());
    IxPointToRegion(region, points.data(), input.Choice(16) ? count : input.Int() % (count + 1));
    const GreyImage* shown = input.Choice(2) ? &image : &other;
    const ReadOnly<unsigned char> unchanged(shown);
    if (input.Choice(2)) IxImgAssignToRegion(region, shown);
    IxGetRegDisplay(region);
    Require(std::isfinite(IxGetnRegionGrayMean(shown, region)), "means of regions are numbers");
    double means[3];
    IxGetnRegionColorMean(&colour, region, means);
    for (double mean : means) Require(std::isfinite(mean), "means of regions are numbers");
    IxGrayBlobLabel(shown, region, input.Int(), input.Int());
    Require(IxGetBlobCount(region) >= 0 && IxGetBlobCount(region) <= 50'000, "50,000 labels");
    unchanged.RequireUnchanged();
  }
  DestroyRLERegion(region);
}

}  // namespace quillon::fuzz
