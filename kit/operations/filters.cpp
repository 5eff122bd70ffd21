// Edges, sharpening, medians, smoothing, convolution.
#include "kit/operations/operation.h"

namespace quillon::kit {
namespace {

template <auto function>
RecipeOperation Plain(const char* name, const char* summary) {
  return {name,
          "filters",
          summary,
          {Kind::kPicture, Kind::kNone},
          Kind::kPicture,
          {},
          [](const Call& call) { function(&call.a.picture, &call.result.picture); }};
}

template <auto function>
RecipeOperation Convolution(const char* name, const char* summary, size_t weights) {
  return {name,
          "filters",
          summary,
          {Kind::kPicture, Kind::kNone},
          Kind::kPicture,
          {Wholes("kernel", weights, "the weights, row by row")},
          [](const Call& call) {
            function(&call.a.picture, &call.result.picture, call.values.List<int>("kernel").data());
          }};
}

}  // namespace

std::vector<RecipeOperation> FilterOperations() {
  return {
      Plain<IxSobel>("sobel", "edge strength, rows and columns weighed 1 2 1"),
      Plain<IxPrewitt>("prewitt", "edge strength, rows and columns weighed 1 1 1"),
      Plain<IxRobert>("robert", "edge strength along the diagonals of 2 x 2 pixels"),
      Plain<IxLaplacian>("laplacian", "how far a pixel exceeds its eight neighbours"),
      Plain<IxLaplacianSharping>("laplacian-sharpen", "the picture plus its Laplacian"),
      Plain<IxMedianFilter3x3>("median3x3", "the median of 3 x 3 pixels"),
      Plain<IxMedianFilter5x5>("median5x5", "the median of 5 x 5 pixels"),
      Plain<IxGaussianSmoothing3x3>("gaussian3x3", "weights 1 2 1 in both directions"),
      Plain<IxGaussianSmoothing5x5>("gaussian5x5", "weights 1 4 6 4 1"),
      Plain<IxGaussianSmoothing7x7>("gaussian7x7", "weights 1 6 15 20 15 6 1"),
      {"mean",
       "filters",
       "the mean of size x size pixels",
       {Kind::kPicture, Kind::kNone},
       Kind::kPicture,
       {Odd("size", 1, 32767, "side of the window")},
       [](const Call& call) {
         IxMeanSmoothing(&call.a.picture, &call.result.picture, call.values.Whole("size"));
       }},
      Convolution<IxArbitraryConvolution3x3>("convolution3x3", "9 weights over their sum", 9),
      Convolution<IxArbitraryConvolution5x5>("convolution5x5", "25 weights over their sum", 25),
      Convolution<IxArbitraryConvolution7x7>("convolution7x7", "49 weights over their sum", 49),
  };
}

}  // namespace quillon::kit
