// Neighbourhood filters: edges, sharpening, medians, smoothing, convolution.
#include "filters/convolution_reference.h"
#include "filters/gradient_reference.h"
#include "filters/median_reference.h"
#include "filters/smoothing_reference.h"
#include "golden/golden.h"
#include "quillon/quillon.h"

namespace quillon::test::golden {
namespace {

using Export = void(const GreyImage*, GreyImage*);

// A definition that writes into an image which is there.
Operation Filter(const std::string& name, Export* exported, const FilterDefinition& define) {
  return FromImageToImage(name, exported, [=](const GreyImage& source, GreyImage& result) {
    result.Create(source.width, source.height);
    define(source, result);
  });
}

using WindowDefinition = void(const GreyImage&, int size, GreyImage&);

Operation Window(const std::string& name, Export* exported, WindowDefinition* define, int size) {
  return FromImageToImage(name, exported, [=](const GreyImage& source, GreyImage& result) {
    define(source, size, result);
  });
}

using Convolution = void(const GreyImage*, GreyImage*, const int*);

// Small weights, separable ones, and some beyond 16 and 32 bits.
void AddConvolution(const std::string& name, Convolution* convolve, int size,
                    std::vector<Operation>& all) {
  const size_t cells = static_cast<size_t>(size) * size;
  Random random(static_cast<uint32_t>(size));
  for (int most : {2, 200, 40'000, 2'000'000'000}) {
    std::vector<int> weights(cells);
    for (int& weight : weights) weight = random.Within(-most / 2, most);
    all.push_back(FromImageToImage(
        name + "(" + std::to_string(most) + ")",
        [=](auto* from, auto* to) { convolve(from, to, weights.data()); },
        [=](const GreyImage& from, GreyImage& to) {
          reference::Convolve(from, size, weights, to);
        }));
  }
  std::vector<int> product(cells);
  for (size_t i = 0; i < cells; ++i) {
    const int x = static_cast<int>(i) % size, y = static_cast<int>(i) / size;
    product[i] = (x * x - 3 * x + 2 + size) * (7 - 2 * y);
  }
  all.push_back(FromImageToImage(
      name + "(separable)", [=](auto* from, auto* to) { convolve(from, to, product.data()); },
      [=](const GreyImage& from, GreyImage& to) { reference::Convolve(from, size, product, to); }));
}

}  // namespace

void AddFilters(std::vector<Operation>& all) {
  all.push_back(Filter("IxSobel", IxSobel, reference::Filter(reference::Sobel, true)));
  all.push_back(Filter("IxPrewitt", IxPrewitt, reference::Filter(reference::Prewitt, true)));
  all.push_back(Filter("IxRobert", IxRobert, reference::Filter(reference::Robert, true)));
  all.push_back(Filter("IxLaplacian", IxLaplacian, reference::Filter(reference::Laplacian, true)));
  all.push_back(Filter("IxLaplacianSharping", IxLaplacianSharping,
                       reference::Filter(reference::Sharpen, false)));
  all.push_back(Filter("IxMedianFilter3x3", IxMedianFilter3x3, reference::Median3x3));
  all.push_back(Filter("IxMedianFilter5x5", IxMedianFilter5x5, reference::Median5x5));

  all.push_back(Window("IxGaussianSmoothing3x3", IxGaussianSmoothing3x3, reference::Gaussian, 3));
  all.push_back(Window("IxGaussianSmoothing5x5", IxGaussianSmoothing5x5, reference::Gaussian, 5));
  all.push_back(Window("IxGaussianSmoothing7x7", IxGaussianSmoothing7x7, reference::Gaussian, 7));
  all.push_back(Window("IxMeanSmoothing3x3", IxMeanSmoothing3x3, reference::Mean, 3));
  all.push_back(Window("IxMeanSmoothing5x5", IxMeanSmoothing5x5, reference::Mean, 5));
  all.push_back(Window("IxMeanSmoothing7x7", IxMeanSmoothing7x7, reference::Mean, 7));
  for (int size : {1, 9, 15, 31}) {
    all.push_back(FromImageToImage(
        "IxMeanSmoothing(" + std::to_string(size) + ")",
        [=](auto* from, auto* to) { IxMeanSmoothing(from, to, size); },
        [=](const GreyImage& from, GreyImage& to) { reference::Mean(from, size, to); }));
  }
  AddConvolution("IxArbitraryConvolution3x3", IxArbitraryConvolution3x3, 3, all);
  AddConvolution("IxArbitraryConvolution5x5", IxArbitraryConvolution5x5, 5, all);
  AddConvolution("IxArbitraryConvolution7x7", IxArbitraryConvolution7x7, 7, all);
}

}  // namespace quillon::test::golden
