// Whole numbers out of arrays and sequences.
#pragma once

#include <pybind11/pybind11.h>

#include <vector>

namespace quillon::python {

// The numbers one after another. `shape` is what is wanted, 0 for any length above 0, and
// `alsoFlat` takes as many numbers in one dimension. TypeError or ValueError, naming the argument,
// for other shapes, for numbers that are not whole, and for those beyond 32 bits.
std::vector<int> ReadWholeNumbers(const pybind11::object& given, const char* name,
                                  const std::vector<pybind11::ssize_t>& shape,
                                  bool alsoFlat = false);

}  // namespace quillon::python
