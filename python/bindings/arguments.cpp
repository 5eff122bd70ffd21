#include "arguments.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

namespace quillon::python {
namespace {

using kit::Argument;
using kit::Json;

bool IsSequence(const py::object& value) {
  return PySequence_Check(value.ptr()) && !py::isinstance<py::str>(value) &&
         !py::isinstance<py::bytes>(value) && !py::isinstance<py::dict>(value);
}

[[noreturn]] void RefuseType(const Argument& argument, const py::object& value) {
  throw py::type_error(std::string(argument.name) + ": " + argument.Expected() +
                       " is wanted, this is " + Shown(value));
}

enum class Numbers { kWhole, kAny };

// Null for what is no such number. Numbers beyond 64 bits become floating ones.
Json ReadNumber(const py::object& value, Numbers wanted) {
  if (PyBool_Check(value.ptr())) return {};
  if (PyIndex_Check(value.ptr())) {
    const auto whole = py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr()));
    if (whole) {
      int overflow = 0;
      const long long number = PyLong_AsLongLongAndOverflow(whole.ptr(), &overflow);
      return overflow ? Json(overflow * HUGE_VAL) : Json(number);
    }
    PyErr_Clear();
  }
  if (wanted == Numbers::kWhole || IsSequence(value) || py::isinstance<py::str>(value)) return {};
  const double number = PyFloat_AsDouble(value.ptr());
  if (!PyErr_Occurred()) return number;
  PyErr_Clear();
  return {};
}

// A list of numbers, or of lists of them; null where something else is in it.
Json ReadList(const py::object& value, Numbers wanted, int depth) {
  if (!IsSequence(value)) return ReadNumber(value, wanted);
  if (depth == 0) return {};
  Json list = Json::array();
  for (const auto& item : py::reinterpret_borrow<py::sequence>(value)) {
    list.push_back(ReadList(py::reinterpret_borrow<py::object>(item), wanted, depth - 1));
    if (list.back().is_null()) return {};
  }
  return list;
}

// The rows of a square one after another; other lists as they are.
Json FlattenSquare(const Json& list, size_t count) {
  if (!list.is_array()) return list;
  Json flat = Json::array();
  for (const Json& row : list) {
    if (!row.is_array() || row.size() != list.size() || list.size() * list.size() != count) {
      return list;
    }
    flat.insert(flat.end(), row.begin(), row.end());
  }
  return flat;
}

}  // namespace

std::string GivenPictures::Add(const std::string& name, const py::object& value) {
  if (py::isinstance<py::array>(value)) {
    const Array array = {value};
    if (IsColour(array)) {
      sources_.pictures[name].colour = colour_.emplace_back(array, name.c_str()).get();
    } else {
      sources_.pictures[name].grey = grey_.emplace_back(array, name.c_str()).get();
    }
    return name;
  }
  if (!py::isinstance<py::str>(value) && !py::isinstance<py::bytes>(value) &&
      !py::hasattr(value, "__fspath__")) {
    throw py::type_error(name + ": a picture or the name of a file is wanted, this is " +
                         Shown(value));
  }
  return FileNameOf(value);
}

Json Arguments::Read(const Argument& argument, const py::object& value) {
  using Type = Argument::Type;
  const std::string name = argument.name;
  switch (argument.type) {
    case Type::kWhole:
    case Type::kOdd:
      return ReadNumber(value, Numbers::kWhole);
    case Type::kNumber:
      return ReadNumber(value, Numbers::kAny);
    case Type::kFlag:
      if (PyBool_Check(value.ptr())) return value.ptr() == Py_True;
      return {};
    case Type::kChoice:
      if (py::isinstance<py::str>(value)) return value.cast<std::string>();
      return {};
    case Type::kFile:
      return pictures_.Add(name, value);
    case Type::kFiles: {
      if (py::isinstance<py::array>(value) || !IsSequence(value)) {
        return Json::array({pictures_.Add(name, value)});
      }
      Json list = Json::array();
      for (const auto& item : py::reinterpret_borrow<py::sequence>(value)) {
        list.push_back(pictures_.Add(name + "[" + std::to_string(list.size()) + "]",
                                     py::reinterpret_borrow<py::object>(item)));
      }
      return list;
    }
    case Type::kRange:
    case Type::kBox:
    case Type::kRing:
      return ReadList(value, Numbers::kAny, 1);
    case Type::kWholeRange:
    case Type::kRectangle:
      return ReadList(value, Numbers::kWhole, 1);
    case Type::kWholes:
      return FlattenSquare(ReadList(value, Numbers::kWhole, 2), argument.count);
    case Type::kPoints:
      return ReadList(value, Numbers::kWhole, 2);
  }
  return {};
}

Arguments::Arguments(const kit::Operation& operation, const py::dict& values) {
  Json given = Json::object();
  for (const Argument& argument : operation.arguments) {
    if (!values.contains(argument.name)) continue;
    const py::object value = values[argument.name];
    if (!argument.IsRequired() && !argument.HasDefault() && value.is_none()) continue;
    Json read = Read(argument, value);
    if (read.is_null()) RefuseType(argument, value);
    // A default that stands for nothing given goes together with what excludes it.
    if (argument.HasDefault() && read == Json::parse(argument.otherwise)) continue;
    if (!argument.Fits(read)) Refuse(argument.name, argument.Expected(), Shown(value));
    const std::string problem = argument.Contradiction(read);
    if (!problem.empty()) {
      throw py::value_error(std::string(argument.name) + ": " + problem + " in " + Shown(value));
    }
    given[argument.name] = std::move(read);
  }
  values_ = kit::ReadValues(operation, given);
}

}  // namespace quillon::python
