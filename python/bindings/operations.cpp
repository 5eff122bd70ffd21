// The operations of the table, by name, and objects that keep what one has learned. What users call
// is plain Python: quillon/operations.py, made from the table.
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "arguments.h"
#include "families.h"
#include "kit/errors.h"
#include "signature.h"
#include "things.h"

namespace quillon::python {
namespace {

const Signature& SignatureNamed(const std::string& name) {
  for (const Signature& signature : Signatures()) {
    if (signature.name == name) return signature;
  }
  Refuse("name", "the name of an operation", "'" + name + "'");
}

// The pictures of a call as the table wants them.
class Views {
 public:
  Views(const Signature& signature, const py::tuple& images) {
    for (size_t i = 0; i < images.size(); ++i) {
      const Array image = {images[i]};
      const bool isGrey = signature.operation->takesGrey && IsGrey(image);
      if (signature.operation->inputs.at(i) == kit::Kind::kColour && !isGrey) {
        colour_[i].emplace(image, signature.images[i]);
        views_[i].colour = colour_[i]->get();
      } else {
        grey_[i].emplace(image, signature.images[i]);
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

// An operation with its values, for one picture after the other.
class Prepared {
 public:
  Prepared(const std::string& name, const py::dict& values)
      : signature_(SignatureNamed(name)), ready_(Ready(Arguments(*signature_.operation, values))) {}

  py::object Run(const py::tuple& images, const py::object& out, const py::object& layout) {
    const Delivery delivery = ReadDelivery(out, layout);
    const Views views(signature_, images);
    kit::Content content;
    Unlocked([&] {
      const std::lock_guard lock(mutex_);
      ready_.Run(views[0], views[1], content);
    });
    const kit::Kind kind = signature_.operation->output;
    if (kind == kit::Kind::kPicture) return Deliver(Take(content.picture), delivery);
    if (kind == kit::Kind::kColour) return Deliver(Take(content.colour), delivery);
    return ThingsArray(kind, content.things);
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
  kit::ReadyOperation Ready(Arguments&& arguments) const {
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
    } catch (const kit::OutOfMemory& error) {
      PyErr_SetString(PyExc_MemoryError, error.what());
    } catch (const kit::Failure& error) {
      PyErr_SetString(PyExc_ValueError, error.what());
    }
  });
  py::dict exports, families, classes;
  for (const Signature& signature : Signatures()) {
    families[signature.name.c_str()] = signature.operation->family;
    if (signature.operation->className) classes[signature.operation->className] = signature.name;
    for (const kit::Export& called : signature.operation->exports) {
      exports[called.name] = signature.name;
    }
  }
  module.attr("OPERATIONS") = families;  // name: family, in the order of the table
  module.attr("EXPORTS") = exports;      // the operation that calls a function of the C library
  module.attr("CLASSES") = classes;      // the operation that a class makes ready

  module.def("picture", [](const std::string& name, const py::tuple& images, const py::dict& values,
                           const py::object& out, const py::object& layout) {
    return Prepared(name, values).Run(images, out, layout);
  });
  module.def("things",
             [](const std::string& name, const py::tuple& images, const py::dict& values) {
               return Prepared(name, values).Run(images, py::none(), py::str("contiguous"));
             });
  py::class_<Prepared>(module, "Prepared")
      .def(py::init<const std::string&, const py::dict&>())
      .def("run", &Prepared::Run)
      .def("details", &Prepared::Details);
}

}  // namespace quillon::python
