#include "arguments.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

namespace quillon::python {
namespace {

using kit::Argument;
using kit::Json;

// A parameter may be given by its place, unless it comes after all that may.
struct Parameters {
  std::string function;
  std::vector<std::string> names = {};
  size_t placed = 0;    // how many of them may be given by their place
  size_t required = 0;  // the first ones
};

std::string Quoted(const std::string& name) { return "'" + name + "'"; }

// What is given for each parameter, null for nothing.
std::vector<py::object> Bind(const Parameters& parameters, const py::tuple& positional,
                             const py::dict& named) {
  const auto refuse = [&](const std::string& what) {
    throw py::type_error(parameters.function + "() " + what);
  };
  const auto& names = parameters.names;
  std::vector<py::object> bound(names.size());
  if (positional.size() > parameters.placed) {
    refuse("takes " + std::to_string(parameters.placed) + " positional arguments, but " +
           std::to_string(positional.size()) + " were given");
  }
  for (size_t i = 0; i < positional.size(); ++i) bound[i] = positional[i];
  for (const auto& [key, value] : named) {
    const auto name = key.cast<std::string>();
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) refuse("got an unexpected keyword argument " + Quoted(name));
    py::object& slot = bound[static_cast<size_t>(found - names.begin())];
    if (slot) refuse("got multiple values for argument " + Quoted(name));
    slot = py::reinterpret_borrow<py::object>(value);
  }
  for (size_t i = 0; i < parameters.required; ++i) {
    if (!bound[i]) refuse("is missing the argument " + Quoted(names[i]));
  }
  return bound;
}

bool IsSequence(const py::object& value) {
  return PySequence_Check(value.ptr()) && !py::isinstance<py::str>(value) &&
         !py::isinstance<py::bytes>(value) && !py::isinstance<py::dict>(value);
}

// A value as a message shows it, on one line.
std::string Shown(const py::object& value) {
  constexpr size_t kMost = 60;
  if (py::isinstance<py::array>(value)) {
    const auto array = py::reinterpret_borrow<py::array>(value);
    return "an array of shape " + py::str(array.attr("shape")).cast<std::string>() + " of " +
           py::str(array.dtype()).cast<std::string>();
  }
  auto text = py::module_::import("builtins").attr("ascii")(value).cast<std::string>();
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text.size() > kMost ? text.substr(0, kMost) + "..." : text;
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

Json Arguments::ReadSource(const std::string& name, const py::object& value) {
  if (py::isinstance<py::array>(value)) {
    const Array array = {value};
    if (IsColour(array)) {
      sources_.pictures[name].colour = colour_.emplace_back(array, name.c_str()).get();
    } else {
      sources_.pictures[name].grey = grey_.emplace_back(array, name.c_str()).get();
    }
    return name;
  }
  return py::module_::import("os").attr("fsencode")(value).cast<std::string>();
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
      return ReadSource(name, value);
    case Type::kFiles: {
      if (py::isinstance<py::array>(value) || !IsSequence(value)) {
        return Json::array({ReadSource(name, value)});
      }
      Json list = Json::array();
      for (const auto& item : py::reinterpret_borrow<py::sequence>(value)) {
        list.push_back(ReadSource(name + "[" + std::to_string(list.size()) + "]",
                                  py::reinterpret_borrow<py::object>(item)));
      }
      return list;
    }
    case Type::kRange:
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

Arguments::Arguments(const Signature& signature, Images images, const py::tuple& positional,
                     const py::dict& named) {
  Parameters parameters = {.function = signature.name, .names = {}};
  if (images == Images::kTaken) {
    parameters.names.assign(signature.images.begin(), signature.images.end());
  }
  const size_t imageCount = parameters.names.size();
  for (const Argument* argument : signature.arguments)
    parameters.names.emplace_back(argument->name);
  parameters.required = imageCount + static_cast<size_t>(std::count_if(
                                         signature.arguments.begin(), signature.arguments.end(),
                                         [](const Argument* row) { return row->IsRequired(); }));
  parameters.placed = signature.MakesPicture() ? parameters.names.size() : parameters.required;
  const bool hasOut = images == Images::kTaken && signature.MakesPicture();
  if (hasOut) parameters.names.emplace_back("out");

  const std::vector<py::object> bound = Bind(parameters, positional, named);
  for (size_t i = 0; i < imageCount; ++i) images_.push_back({bound[i]});
  if (hasOut && bound.back()) out_ = {bound.back()};
  Json given = Json::object();
  for (size_t i = 0; i < signature.arguments.size(); ++i) {
    const Argument& argument = *signature.arguments[i];
    const py::object& value = bound[imageCount + i];
    const bool isLeftOut =
        !argument.IsRequired() && !argument.HasDefault() && value && value.is_none();
    if (!value || isLeftOut) continue;
    Json read = Read(argument, value);
    if (read.is_null()) RefuseType(argument, value);
    if (!argument.Fits(read)) Refuse(argument.name, argument.Expected(), Shown(value));
    const std::string problem = argument.Contradiction(read);
    if (!problem.empty()) {
      throw py::value_error(std::string(argument.name) + ": " + problem + " in " + Shown(value));
    }
    given[argument.name] = std::move(read);
  }
  values_ = kit::ReadValues(*signature.operation, given);
}

void BindImages(const Signature& signature, const py::tuple& positional, const py::dict& named,
                std::vector<Array>& images, Array& out) {
  Parameters parameters = {.function = signature.name,
                           .names = {signature.images.begin(), signature.images.end()},
                           .placed = signature.images.size(),
                           .required = signature.images.size()};
  if (signature.MakesPicture()) parameters.names.emplace_back("out");
  const std::vector<py::object> bound = Bind(parameters, positional, named);
  for (size_t i = 0; i < parameters.required; ++i) images.push_back({bound[i]});
  if (signature.MakesPicture() && bound.back()) out = {bound.back()};
}

}  // namespace quillon::python
