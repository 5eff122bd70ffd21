// The native half of the Python package `quillon`: the operations of the table, and the objects of
// the library, one file a family. Its functions take their arguments in order, checked by the plain
// Python files that users call, where names, defaults, types and descriptions stand.
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
  module.def("needs_copy", [](const Array& image) {
    return IsColour(image) ? NeedsCopy<quillon::RGB_24>(image) : NeedsCopy<unsigned char>(image);
  });
  module.def("shown", Shown);
  AddOperations(module);
  AddRecipes(module);
  AddRuns(module);
  AddColor(module);
  AddRegions(module);
  AddNcc(module);
  AddGeoMatch(module);
  AddCalibration(module);
  AddCamera(module);
  AddSamples(module);
  AddFiles(module);
}
