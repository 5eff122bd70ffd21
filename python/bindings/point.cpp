// Colour to grey, and thresholds.
#include "families.h"
#include "image_functions.h"

namespace quillon::python {

void AddPoint(py::module_& module) {
  DefineFilter(module, "color_to_gray", IxColorToGray, R"(Gray of a color image (BGR).

The first 8 * (width // 8) columns are B * 116 // 1024 + G * 600 // 1024 + R * 305 // 1024, the
remaining ones G * 0.587 + B * 0.114 + R * 0.2989, truncated.)",
               TakesAll());

  DefinePointFunction(module, "threshold", IxThreshold,
                      R"(255 where the pixel is above `threshold`, else 0.

Outside 0 to 255 the last width % 8 columns follow the rule; the others compare with the
threshold's low 8 bits.)",
                      py::arg("threshold"));
  DefinePointFunction(module, "double_threshold", IxDoubleThreshold,
                      R"(255 where min(low, high) < pixel < high, else 0.

So swapped bounds give an empty band. Bounds outside 0 to 255: as for threshold().)",
                      py::arg("low"), py::arg("high"));
  DefinePointFunction(
      module, "otsu_threshold", IxOtsuThreshold,
      R"(threshold() at the level that separates the gray levels best (N. Otsu, 1979).

Among equal levels the lowest one wins; a constant image gets level 0.)");
}

}  // namespace quillon::python
