// Labelling, features and selections in any order, over one region object.
#include <algorithm>
#include <cmath>

#include "fuzz/input.h"
#include "quillon/quillon.h"

namespace quillon::fuzz {
namespace {

void AskAbout(RLERegion* region, int n, const GreyImage& image, const ColourImage& colour) {
  float centre[2], rectangle[13] = {};
  int bound[4];
  double means[3];
  IxGetnBlobArea(region, n);
  IxGetnBlobCenter(region, n, centre);
  IxGetnBlobBound(region, n, bound);
  IxGetBlobMinRect(region, n, rectangle);
  IxGetnBlobGrayMean(&image, region, n);
  IxGetnBlobColorMean(&colour, region, n, means);
}

// As many records as were announced, and not one more.
void ReadSelection(const RLERegion* region) {
  const int count = IxGetSelectBlobCount(region);
  Require(count >= 0 && count <= 20'000, "20,000 records");
  std::vector<BlobFeature> list(static_cast<size_t>(count));
  IxGetBlobList(region, list.data());
}

}  // namespace

void Run(Input& input) {
  RLERegion* region = CreateRLERegion();
  if (!region) return;
  GreyImage image, other;
  ColourImage colour;
  input.Image(image);
  input.Image(other, 100);
  input.Image(colour);
  const int whole[] = {-1, -1, 600, -1, 600, 600, -1, 600};
  IxPointToRegion(region, whole, 4);
  for (int step = 0; step < 24 && !input.Ended(); ++step) {
    GreyImage& chosen = input.Choice(2) ? image : other;
    const int a = input.Int(), b = input.Int();
    switch (input.Choice(12)) {
      case 0:
      case 1:
        IxGrayBlobLabel(&chosen, region, a, b);
        break;
      case 2:
        IxBinaryFillUp(&chosen, region, a);
        break;
      case 3: {
        const int points[] = {a, b, input.Int(), input.Int(), input.Int(), input.Int()};
        IxPointToRegion(region, points, 3);
        break;
      }
      case 4:
        AskAbout(region, a, chosen, colour);
        break;
      case 5:
        for (int n = 0; n < std::min(IxGetBlobCount(region), 50); ++n) {
          AskAbout(region, n, chosen, colour);
        }
        break;
      case 6:
        IxComputeAllBlobFeature(region);
        break;
      case 7:
        IxSelectBlobArea(region, a, b);
        break;
      case 8:
        IxSelectBlobWidth(region, a, b);
        break;
      case 9:
        IxSelectBlobHeight(region, a, b);
        break;
      case 10:
        IxLocateBlobCenter(region, a, b, input.Int(), input.Int());
        break;
      case 11:
        IxReSelectBlob(region);
        break;
    }
    ReadSelection(region);
  }
  DestroyRLERegion(region);
}

}  // namespace quillon::fuzz
