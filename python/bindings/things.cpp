#include "things.h"

#include <cstring>
#include <limits>

#include "kit/recipe/objects.h"

namespace quillon::python {
namespace {

namespace py = pybind11;
namespace recipe = kit::recipe;

// Columns of the step and of the thing's number in it come first; an array has no use for them.
constexpr size_t kFirst = 2;

std::vector<std::vector<kit::Cell>> RowsOf(kit::Kind kind, const std::vector<kit::Thing>& things) {
  const kit::Operation operation = {
      .name = "", .family = "", .summary = "", .inputs = {}, .output = kind};
  const recipe::Step step = {.name = "", .operation = &operation};
  return recipe::ObjectRows({{&step, &things, 0}}, {kind});
}

void Store(const kit::Cell& cell, char* place) {
  if (const auto* whole = std::get_if<int64_t>(&cell)) {
    std::memcpy(place, whole, sizeof *whole);
  } else {
    const auto* number = std::get_if<double>(&cell);
    const double value = number ? *number : std::numeric_limits<double>::quiet_NaN();
    std::memcpy(place, &value, sizeof value);
  }
}

}  // namespace

py::array ThingsArray(kit::Kind kind, const std::vector<kit::Thing>& things) {
  const std::vector<kit::Column> columns = recipe::ObjectColumns({kind});
  // The types of the columns do not depend on the thing.
  const std::vector<kit::Cell> sample = RowsOf(kind, {kit::Thing()})[0];
  py::list fields;
  for (size_t i = kFirst; i < columns.size(); ++i) {
    const bool isWhole = std::holds_alternative<int64_t>(sample[i]);
    fields.append(py::make_tuple(columns[i].key, isWhole ? "<i8" : "<f8"));
  }
  const std::vector<py::ssize_t> shape = {static_cast<py::ssize_t>(things.size())};
  py::array array(py::dtype::from_args(fields), shape);
  auto* place = static_cast<char*>(array.mutable_data());
  for (const auto& row : RowsOf(kind, things)) {
    for (size_t i = kFirst; i < row.size(); ++i, place += sizeof(int64_t)) Store(row[i], place);
  }
  return array;
}

}  // namespace quillon::python
