// The native half of the Python package `quillon`: one file a family of exports.
#include "arrays.h"
#include "families.h"

namespace quillon::python {
namespace {

template <class Pixel>
bool NeedsCopy(const Array& image) {
  return !Source<Pixel>(image, "image").InPlace();
}

}  // namespace
}  // namespace quillon::python

PYBIND11_MODULE(_quillon, module) {
  using namespace quillon::python;
  module.doc() = "The functions and objects of libquillon on NumPy arrays.";
  module.def(
      "needs_copy",
      [](const Array& image) {
        return IsColour(image) ? NeedsCopy<quillon::RGB_24>(image)
                               : NeedsCopy<unsigned char>(image);
      },
      pybind11::arg("image"), "Whether calls copy this array before they read it.");
  AddPoint(module);
  AddFilters(module);
  AddArithmetic(module);
  AddMorphology(module);
  AddColor(module);
  AddRegions(module);
  AddNcc(module);
  AddGeoMatch(module);
  AddCalibration(module);
}
