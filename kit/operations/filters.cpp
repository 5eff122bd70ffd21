// Edges, sharpening, medians, smoothing, convolution.
#include "kit/operations/operation.h"

namespace quillon::kit {
namespace {

constexpr const char* kFilters = "filters";

template <auto function>
Operation Plain(const char* name, const char* export_, const char* summary) {
  return {.name = name,
          .family = kFilters,
          .summary = summary,
          .exports = {{export_}},
          .run = [](const Call& call) { function(call.a.grey, &call.result.picture); }};
}

template <auto function>
Operation Convolution(const char* name, const char* export_, const char* summary, size_t weights) {
  return {.name = name,
          .family = kFilters,
          .summary = summary,
          .arguments = {Wholes("kernel", weights, "the weights, row by row")},
          .exports = {{export_}},
          .run = [](const Call& call) {
            function(call.a.grey, &call.result.picture, call.values.List<int>("kernel").data());
          }};
}

}  // namespace

std::vector<Operation> FilterOperations() {
  return {
      Plain<IxSobel>("sobel", "IxSobel", "edge strength, rows and columns weighed 1 2 1"),
      Plain<IxPrewitt>("prewitt", "IxPrewitt", "edge strength, rows and columns weighed 1 1 1"),
      Plain<IxRobert>("roberts", "IxRobert", "edge strength along the diagonals of 2 x 2 pixels"),
      Plain<IxLaplacian>("laplacian", "IxLaplacian",
                         "how far a pixel exceeds its eight neighbours"),
      Plain<IxLaplacianSharping>("laplacian-sharpen", "IxLaplacianSharping",
                                 "the picture plus its Laplacian"),
      Plain<IxMedianFilter3x3>("median-3x3", "IxMedianFilter3x3", "the median of 3 x 3 pixels"),
      Plain<IxMedianFilter5x5>("median-5x5", "IxMedianFilter5x5", "the median of 5 x 5 pixels"),
      Plain<IxGaussianSmoothing3x3>("gaussian-3x3", "IxGaussianSmoothing3x3",
                                    "weights 1 2 1 in both directions"),
      Plain<IxGaussianSmoothing5x5>("gaussian-5x5", "IxGaussianSmoothing5x5", "weights 1 4 6 4 1"),
      Plain<IxGaussianSmoothing7x7>("gaussian-7x7", "IxGaussianSmoothing7x7",
                                    "weights 1 6 15 20 15 6 1"),
      {.name = "mean",
       .family = kFilters,
       .summary = "the mean of size x size pixels",
       .arguments = {Odd("size", 1, 32767, "side of the window").In("pixels")},
       .exports = {{"IxMeanSmoothing"}},
       .run =
           [](const Call& call) {
             IxMeanSmoothing(call.a.grey, &call.result.picture, call.values.Whole("size"));
           }},
      Plain<IxMeanSmoothing3x3>("mean-3x3", "IxMeanSmoothing3x3", "the mean of 3 x 3 pixels"),
      Plain<IxMeanSmoothing5x5>("mean-5x5", "IxMeanSmoothing5x5", "the mean of 5 x 5 pixels"),
      Plain<IxMeanSmoothing7x7>("mean-7x7", "IxMeanSmoothing7x7", "the mean of 7 x 7 pixels"),
      Convolution<IxArbitraryConvolution3x3>("convolution-3x3", "IxArbitraryConvolution3x3",
                                             "9 weights over their sum", 9),
      Convolution<IxArbitraryConvolution5x5>("convolution-5x5", "IxArbitraryConvolution5x5",
                                             "25 weights over their sum", 25),
      Convolution<IxArbitraryConvolution7x7>("convolution-7x7", "IxArbitraryConvolution7x7",
                                             "49 weights over their sum", 49),
  };
}

}  // namespace quillon::kit
