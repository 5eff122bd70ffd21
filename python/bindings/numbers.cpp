#include "numbers.h"

#include <pybind11/numpy.h>

#include <climits>
#include <numeric>
#include <string>

#include "arrays.h"

namespace quillon::python {
namespace {

std::string ShapeText(const std::vector<py::ssize_t>& shape) {
  std::string text;
  for (const auto side : shape) {
    text += (text.empty() ? "" : ", ") + (side == 0 ? std::string("n") : std::to_string(side));
  }
  return "(" + text + ")";
}

bool Fits(const py::array& array, const std::vector<py::ssize_t>& shape) {
  if (array.ndim() != static_cast<py::ssize_t>(shape.size()) || array.size() == 0) return false;
  for (size_t i = 0; i < shape.size(); ++i) {
    if (shape[i] != 0 && array.shape(static_cast<py::ssize_t>(i)) != shape[i]) return false;
  }
  return true;
}

}  // namespace

std::vector<int> ReadWholeNumbers(const py::object& given, const char* name,
                                  const std::vector<py::ssize_t>& shape, bool alsoFlat) {
  RefuseMasked(given, name);
  const py::array array = py::module_::import("numpy").attr("asarray")(given);
  const py::ssize_t count =
      std::accumulate(shape.begin(), shape.end(), py::ssize_t{1}, std::multiplies<>());
  if (!Fits(array, shape) && !(alsoFlat && Fits(array, {count}))) {
    Refuse(name, "an array of shape " + ShapeText(shape),
           "one of " + py::str(py::tuple(array.attr("shape"))).cast<std::string>());
  }
  if (array.dtype().kind() != 'i' && array.dtype().kind() != 'u') {
    throw py::type_error(std::string(name) + ": whole numbers are wanted, these are " +
                         py::str(array.dtype()).cast<std::string>());
  }
  for (const char* extreme : {"min", "max"}) {
    const py::object value = array.attr(extreme)();
    if (value < py::int_(INT_MIN) || value > py::int_(INT_MAX)) {
      Refuse(name, "a number of 32 bits", py::str(value).cast<std::string>());
    }
  }
  const auto numbers = py::array_t<int, py::array::c_style | py::array::forcecast>(array);
  return {numbers.data(), numbers.data() + numbers.size()};
}

}  // namespace quillon::python
