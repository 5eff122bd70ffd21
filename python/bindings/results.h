// Results with names, of the types in quillon/results.py.
#pragma once

#include <pybind11/pybind11.h>

namespace quillon::python {

template <class... Values>
pybind11::tuple Named(const char* type, Values&&... values) {
  return pybind11::module_::import("quillon.results").attr(type)(std::forward<Values>(values)...);
}

}  // namespace quillon::python
