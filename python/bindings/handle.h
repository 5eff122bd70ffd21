// Library objects behind Python objects.
#pragma once

#include <pybind11/pybind11.h>

#include <mutex>
#include <new>
#include <shared_mutex>
#include <string>

#include "arrays.h"

namespace quillon::python {

// Owns one library object and lets one call at a time work on it. Calls run without the
// interpreter lock, which is always let go before the object's own lock is waited for.
template <class Object, Object* (*create)(), void (*destroy)(Object*)>
class Handle {
 public:
  explicit Handle(const char* type) : type_(type), object_(create()) {
    if (!object_) throw std::bad_alloc();
  }
  ~Handle() { destroy(object_); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  void Close() {
    const py::gil_scoped_release release;
    const std::unique_lock lock(mutex_);
    destroy(object_);
    object_ = nullptr;
  }

  template <class Work>
  auto Run(const Work& work) const {
    const py::gil_scoped_release release;
    const std::unique_lock lock(mutex_);
    return work(Open());
  }

  // Beside other calls of its kind, where the library allows that.
  template <class Work>
  auto RunShared(const Work& work) const {
    const py::gil_scoped_release release;
    const std::shared_lock lock(mutex_);
    return work(static_cast<const Object*>(Open()));
  }

 private:
  Object* Open() const {
    if (!object_) throw py::value_error("this " + std::string(type_) + " is closed");
    return object_;
  }

  const char* type_;
  mutable std::shared_mutex mutex_;
  Object* object_;
};

}  // namespace quillon::python
