// The operations of the table: a function for each, and objects that keep what one has learned.
#include <array>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "arguments.h"
#include "families.h"
#include "kit/errors.h"
#include "things.h"

namespace quillon::python {
namespace {

// The pictures of a call as the table wants them.
class Views {
 public:
  Views(const Signature& signature, const std::vector<Array>& images) {
    for (size_t i = 0; i < images.size(); ++i) {
      if (signature.operation->inputs[i] == kit::Kind::kColour) {
        colour_[i].emplace(images[i], signature.images[i]);
        views_[i].colour = colour_[i]->get();
      } else {
        grey_[i].emplace(images[i], signature.images[i]);
        views_[i].grey = grey_[i]->get();
      }
    }
  }
  const kit::PictureView& operator[](size_t i) const { return views_[i]; }

 private:
  std::optional<Source<unsigned char>> grey_[2];
  std::optional<Source<RGB_24>> colour_[2];
  kit::PictureView views_[2];
};

py::object Delivered(kit::Kind kind, kit::Content& content, const Array& out) {
  if (kind == kit::Kind::kPicture) return Deliver(Take(content.picture), out);
  if (kind == kit::Kind::kColour) return Deliver(Take(content.colour), out);
  return ThingsArray(kind, content.things);
}

py::object Call(const Signature& signature, const py::tuple& positional, const py::dict& named) {
  const Arguments arguments(signature, Arguments::Images::kTaken, positional, named);
  const Views views(signature, arguments.Pictures());
  kit::Content content;
  Unlocked([&] {
    kit::ReadyOperation(*signature.operation, arguments.Values(), arguments.Sources())
        .Run(views[0], views[1], content);
  });
  arguments.TellNotes();
  return Delivered(signature.operation->output, content, arguments.Out());
}

// An exception of C++ as the one of Python.
void SetPythonError() {
  try {
    throw;
  } catch (py::error_already_set& error) {
    error.restore();
  } catch (const py::builtin_exception& error) {
    error.set_error();
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const kit::Failure& error) {
    PyErr_SetString(PyExc_ValueError, error.what());
  } catch (const std::exception& error) {
    PyErr_SetString(PyExc_RuntimeError, error.what());
  }
}

// One function for each row of the table: Python tells a function of a module no more than that it
// was called.
template <size_t row>
PyObject* CallRow(PyObject*, PyObject* positional, PyObject* named) {
  try {
    const auto names = named ? py::reinterpret_borrow<py::dict>(named) : py::dict();
    const auto values = py::reinterpret_borrow<py::tuple>(positional);
    return Call(Signatures()[row], values, names).release().ptr();
  } catch (...) {
    SetPythonError();
    return nullptr;
  }
}

constexpr size_t kMostRows = 128;

template <size_t... rows>
constexpr std::array<PyCFunctionWithKeywords, kMostRows> CallsOf(std::index_sequence<rows...>) {
  return {CallRow<rows>...};
}

// A built-in function as Python makes its own, so that inspect.signature knows the arguments and
// their defaults, and pickle the function: pybind11's have neither.
void DefineFunction(py::module_& module, size_t row) {
  static constexpr auto kCalls = CallsOf(std::make_index_sequence<kMostRows>());
  struct Definition {
    std::string text;
    PyMethodDef method;
  };
  static auto* definitions = new std::deque<Definition>;  // functions point into it for ever
  const Signature& signature = Signatures()[row];
  Definition& definition = definitions->emplace_back();
  definition.text = signature.name + signature.Text() + "\n--\n\n" + signature.Description();
  definition.method = {signature.name.c_str(),
                       reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(kCalls.at(row))),
                       METH_VARARGS | METH_KEYWORDS, definition.text.c_str()};
  const py::object name = module.attr("__name__");
  module.attr(signature.name.c_str()) = py::reinterpret_steal<py::object>(
      PyCFunction_NewEx(&definition.method, module.ptr(), name.ptr()));
}

const Signature& SignatureNamed(const std::string& name) {
  for (const Signature& signature : Signatures()) {
    if (signature.name == name) return signature;
  }
  Refuse("name", "the name of an operation", "'" + name + "'");
}

// An operation with its values, for one picture after the other.
class Prepared {
 public:
  Prepared(const std::string& name, const py::args& positional, const py::kwargs& named)
      : signature_(SignatureNamed(name)),
        ready_(Ready(Arguments(signature_, Arguments::Images::kComeLater, positional, named))) {}

  py::object Run(const py::args& positional, const py::kwargs& named) {
    std::vector<Array> images;
    Array out = {py::none()};
    BindImages(signature_, positional, named, images, out);
    const Views views(signature_, images);
    kit::Content content;
    Unlocked([&] {
      const std::lock_guard lock(mutex_);
      ready_.Run(views[0], views[1], content);
    });
    return Delivered(signature_.operation->output, content, out);
  }

  py::dict Details() {
    const auto details = Unlocked([&] {
      const std::lock_guard lock(mutex_);
      return ready_.Details();
    });
    py::dict named;
    for (const kit::Detail& detail : details) named[detail.key] = detail.value;
    return named;
  }

 private:
  kit::ReadyOperation Ready(const Arguments& arguments) const {
    auto ready = Unlocked([&] {
      return kit::ReadyOperation(*signature_.operation, arguments.Values(), arguments.Sources());
    });
    arguments.TellNotes();
    return ready;
  }

  const Signature& signature_;
  std::mutex mutex_;
  kit::ReadyOperation ready_;
};

}  // namespace

void AddOperations(py::module_& module) {
  py::register_exception_translator([](std::exception_ptr pointer) {
    try {
      std::rethrow_exception(std::move(pointer));
    } catch (const kit::Failure& error) {
      PyErr_SetString(PyExc_ValueError, error.what());
    }
  });
  py::dict exports, families;
  for (size_t row = 0; row < Signatures().size(); ++row) {
    const Signature& signature = Signatures()[row];
    DefineFunction(module, row);
    families[signature.name.c_str()] = signature.operation->family;
    for (const kit::Export& called : signature.operation->exports) {
      exports[called.name] = signature.name;
    }
  }
  module.attr("_OPERATIONS") = families;  // name: family, in the order of the table
  module.attr("_EXPORTS") = exports;      // the operation that calls a function of the C library

  py::class_<Prepared> type(module, "Prepared", R"(An operation with its arguments, for many images.

    find = quillon.Prepared("match", template, min_score=0.8)
    for image in images:
        print(find(image))

What the arguments ask for, such as a template that is taught, is done once. One object serves one
call at a time.)");
  type.def(py::init<const std::string&, const py::args&, const py::kwargs&>(), py::arg("name"),
           "The name of an operation and its arguments, without the images.");
  type.def("__call__", &Prepared::Run, "What the operation gives for its images.");
  type.def_property_readonly("details", &Prepared::Details,
                             "What the operation tells besides, by names: what it has learned.");
}

}  // namespace quillon::python
