// Edges, sharpening, medians, smoothing and convolution.
#include <string>

#include "families.h"
#include "image_functions.h"
#include "numbers.h"

namespace quillon::python {
namespace {

struct NeedsOddSize {
  void operator()(Size, int size) const {
    if (size < 1 || size % 2 == 0) Refuse("size", "an odd number above 0", std::to_string(size));
  }
};

template <int size>
void DefineConvolution(py::module_& module, const char* name,
                       void (*export_)(const GreyImage*, GreyImage*, const int*)) {
  module.def(
      name,
      [export_](const Array& image, const py::object& kernel, const Array& out) {
        const auto weights = ReadWholeNumbers(kernel, "kernel", {size, size}, true);
        return Filter(export_, TakesAll(), image, out, weights.data());
      },
      py::arg("image"), py::arg("kernel"), py::kw_only(), py::arg("out") = py::none(),
      R"(Convolution with a kernel of whole numbers, its first one for the top left neighbor.

The sum of pixels times weights, divided by the sum of the weights where that is positive,
truncated toward zero and clamped to 0 to 255.)");
}

struct NeedsWholeBlock {
  void operator()(Size size) const {
    if (size.width >= 16 && size.height >= 16) return;
    Refuse("image", "an array of at least 16 x 16 pixels",
           "one of " + std::to_string(size.height) + " x " + std::to_string(size.width));
  }
};

}  // namespace

void AddFilters(py::module_& module) {
  const auto define = [&](const char* name, void (*export_)(const GreyImage*, GreyImage*),
                          const char* text) {
    DefineFilter(module, name, export_, text, TakesAll());
  };
  define("sobel", IxSobel,
         "Edges: (|gx| + |gy|) // 4 with the Sobel masks; the frame repeats its neighbors.");
  define("prewitt", IxPrewitt,
         R"(Edges as sobel(), with the weight 1 in place of 2 in the block columns.

Block columns are 1 to 8 * ((width - 1) // 8); the columns after them are sobel()'s.)");
  define("roberts", IxRobert, "Edges: twice the sum of the two differences across 2 x 2 pixels.");
  define("laplacian", IxLaplacian,
         "8 times the pixel less its eight neighbors, clamped to 0 to 255.");
  define("laplacian_sharpening", IxLaplacianSharping,
         R"(9 times the pixel less its eight neighbors, clamped to 0 to 255.

In the columns after 8 * ((width - 1) // 8), 7 times the pixel.)");
  define("median_filter_3x3", IxMedianFilter3x3,
         "The median of the 3 x 3 pixels around each pixel.");
  define("median_filter_5x5", IxMedianFilter5x5,
         "The median of the 5 x 5 pixels around each pixel.");

  define("gaussian_smoothing_3x3", IxGaussianSmoothing3x3, "Binomial smoothing, weights 1 2 1.");
  define("gaussian_smoothing_5x5", IxGaussianSmoothing5x5,
         "Binomial smoothing, weights 1 4 6 4 1.");
  define("gaussian_smoothing_7x7", IxGaussianSmoothing7x7,
         "Binomial smoothing, weights 1 6 15 20 15 6 1.");
  DefineFilter(module, "mean_smoothing", IxMeanSmoothing,
               "The rounded mean of size x size pixels; any odd size, at the same cost.",
               NeedsOddSize(), py::arg("size"));
  define("mean_smoothing_3x3", IxMeanSmoothing3x3, "The rounded mean of 3 x 3 pixels.");
  define("mean_smoothing_5x5", IxMeanSmoothing5x5, "The rounded mean of 5 x 5 pixels.");
  define("mean_smoothing_7x7", IxMeanSmoothing7x7, "The rounded mean of 7 x 7 pixels.");
  DefineConvolution<3>(module, "arbitrary_convolution_3x3", IxArbitraryConvolution3x3);
  DefineConvolution<5>(module, "arbitrary_convolution_5x5", IxArbitraryConvolution5x5);
  DefineConvolution<7>(module, "arbitrary_convolution_7x7", IxArbitraryConvolution7x7);

  DefineFilter(
      module, "pyramid", IxImgPyramid,
      R"(The image reduced by 16 each way; a pixel is half of the mean of its 16 x 16 block.

With `out=image` the reduced image is written into the top left corner, the rest stays.)",
      NeedsWholeBlock());
}

}  // namespace quillon::python
