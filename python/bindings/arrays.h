// Images on both sides of the module: a caller's NumPy arrays as library images, library images as
// NumPy arrays.
//
// The library's rows lie bottom up, each padded to a multiple of 4 bytes. An array is used where it
// lies when its memory is like that: results in the library's layout, and any array[::-1] of a
// contiguous array whose rows are a multiple of 4 bytes long. All other arrays are copied, row by
// row. Padding of the library's rows is zeroed: some filters read the byte behind a row, and equal
// arrays shall give equal results whatever lies between their rows.
//
// Results are contiguous from the top, which every other package takes: their rows are turned
// around in the store where the library made them. Who hands a result straight on may have it as it
// was made.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kit/images/image_files.h"
#include "quillon/quillon.h"

namespace quillon::python {

namespace py = pybind11;

// An argument that must be an array: taken as it comes, so that the complaint can name it.
struct Array {
  py::object object;
};

enum class Layout { kGrey = 1, kColour = 3 };  // bytes a pixel

template <class Pixel>
constexpr Layout kLayoutOf = sizeof(Pixel) == 1 ? Layout::kGrey : Layout::kColour;

// Where the pixels of an array are. Steps in bytes, of either sign.
struct PixelView {
  uint8_t* data;  // of the top left pixel
  py::ssize_t rowStep, columnStep, channelStep;
  int width, height;
  Layout layout;
};

// The array's view; TypeError or ValueError, naming the argument, when it is not a uint8 array of
// shape (height, width) or (height, width, 3) with at least one pixel.
PixelView ViewOf(const Array& array, const char* name, Layout layout);

// TypeError, naming the argument, for a masked array: its mask would be lost in silence.
void RefuseMasked(const py::object& array, const char* name);

// Whether the argument has the shape of a colour image, or that of a grey one.
bool IsColour(const Array& array);
bool IsGrey(const Array& array);

// An image for an export to make its result in: empty, or of this size with old pixels.
template <class Pixel>
std::unique_ptr<CImage<Pixel>> NewResult(int width, int height);

// Copies the pixels into a new image. Needs no interpreter lock.
template <class Pixel>
std::unique_ptr<CImage<Pixel>> CopyPixels(const PixelView& view);

template <class Pixel>
std::unique_ptr<CImage<Pixel>> CopyOf(const Array& array, const char* name);

// Takes the pixels out of an image, which is empty then.
template <class Pixel>
std::unique_ptr<CImage<Pixel>> Take(CImage<Pixel>& image);

// Runs `work` without the interpreter lock.
template <class Work>
auto Unlocked(const Work& work) {
  const py::gil_scoped_release release;
  return work();
}

// What has to be said of files: taken down while they are read, which needs no interpreter lock,
// and told afterwards. What comes later, from whatever thread, is left out.
class Notes {
 public:
  kit::Reading Reading() {
    return {.note = [this](const std::string& note) {
      if (!isTold_) notes_.push_back(note);
    }};
  }
  // A UserWarning each; throws where warnings are errors.
  void Tell();

 private:
  bool isTold_ = false;
  std::vector<std::string> notes_;
};

// An array as an image to read, in place where its memory allows.
template <class Pixel>
class Source {
 public:
  Source(const Array& array, const char* name);
  ~Source();
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  const CImage<Pixel>* get() const { return image_; }
  bool InPlace() const { return !copy_; }
  int width() const { return image_->width; }
  int height() const { return image_->height; }

 private:
  void Borrow(const PixelView& view);

  py::object keepAlive_;
  CImage<Pixel>* image_ = nullptr;
  CImage<Pixel> borrowed_;  // a header over the array's memory
  std::unique_ptr<CImage<Pixel>> copy_;
};

// Zeroes what lies behind each row.
template <class Pixel>
void ClearPadding(CImage<Pixel>& image);

// The image as an array over its store, contiguous from the top; (0, 0) without pixels.
template <class Pixel>
py::array ToArray(std::unique_ptr<CImage<Pixel>> image);

// The same over the rows as they are: their strides are negative.
template <class Pixel>
py::array ToLibraryArray(std::unique_ptr<CImage<Pixel>> image);

// How a caller wants a picture: in an array of theirs, or in a new one of either layout.
struct Delivery {
  Array out;
  bool isLibraryLayout;
};

// From the arguments `out` and `layout`.
Delivery ReadDelivery(const py::object& out, const py::object& layout);

// Copies `result` into the array `out`, which must be writable and have its shape.
py::array CopyInto(const Array& out, const py::array& result);

template <class Pixel>
py::array Deliver(std::unique_ptr<CImage<Pixel>> result, const Delivery& delivery) {
  if (!delivery.out.object.is_none()) {
    return CopyInto(delivery.out, ToLibraryArray(std::move(result)));
  }
  return delivery.isLibraryLayout ? ToLibraryArray(std::move(result)) : ToArray(std::move(result));
}

// ValueError of one line: "NAME: WANTED is wanted, this is GIVEN".
[[noreturn]] void Refuse(const char* name, const std::string& wanted, const std::string& given);

// str, bytes or a path, as the system takes it.
std::string FileNameOf(const py::object& name);

// A value as a message shows it, on one line: arrays by shape and type.
std::string Shown(const py::object& value);

}  // namespace quillon::python

namespace pybind11::detail {

// Any object is let through; in signatures it reads as an array.
template <>
struct type_caster<quillon::python::Array> {
  PYBIND11_TYPE_CASTER(quillon::python::Array, const_name("numpy.ndarray"));
  bool load(handle source, bool) {
    value.object = reinterpret_borrow<object>(source);
    return true;
  }
  static handle cast(const quillon::python::Array& array, return_value_policy, handle) {
    return array.object.inc_ref();
  }
};

}  // namespace pybind11::detail
