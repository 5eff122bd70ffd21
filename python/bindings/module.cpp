// The native half of the Python package `quillon`: one file a family of exports.
#include "families.h"

PYBIND11_MODULE(_quillon, module) {
  using namespace quillon::python;
  module.doc() = "The functions and objects of libquillon on NumPy arrays.";
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
