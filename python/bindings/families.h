// One function a family: it adds the family's part to the module.
#pragma once

#include <pybind11/pybind11.h>

namespace quillon::python {

void AddOperations(pybind11::module_& module);
void AddRecipes(pybind11::module_& module);
void AddRuns(pybind11::module_& module);
void AddColor(pybind11::module_& module);
void AddRegions(pybind11::module_& module);
void AddNcc(pybind11::module_& module);
void AddFiles(pybind11::module_& module);
void AddGeoMatch(pybind11::module_& module);
void AddCalibration(pybind11::module_& module);
void AddCamera(pybind11::module_& module);
void AddSamples(pybind11::module_& module);

}  // namespace quillon::python
