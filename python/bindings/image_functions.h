// Functions from images to an image, defined from the export and the names of its arguments.
#pragma once

#include "arrays.h"

namespace quillon::python {

struct Size {
  int width, height;
};

// The check of functions that take every argument.
struct TakesAll {
  template <class... Extra>
  void operator()(Size, Extra...) const {}
};

template <class Pixel>
std::unique_ptr<CImage<Pixel>> CopyOf(const Array& array, const char* name) {
  const PixelView view = ViewOf(array, name, kLayoutOf<Pixel>);
  return Unlocked([&] { return CopyPixels<Pixel>(view); });
}

// After a call that must have made its result. Arguments were checked before.
template <class Pixel>
void NeedPixels(const CImage<Pixel>& result) {
  if (!result.bits) throw std::bad_alloc();
}

// In place such an export leaves an image behind that nobody can release; through another image the
// pixels are the same.
template <class Check>
constexpr bool kNeverInPlace = requires {
  Check::kNeverInPlace;
};

// `export_` with one image as its source and another, or with `out=image` the same, as its result.
// `check` throws for arguments with which the export would do nothing.
template <class Check, class In, class Out, class... Extra>
py::array Filter(void (*export_)(In*, CImage<Out>*, Extra...), const Check& check,
                 const Array& image, const Array& out, Extra... extra) {
  using Pixels = std::remove_const_t<In>;
  using Pixel = std::conditional_t<std::is_same_v<Pixels, GreyImage>, unsigned char, RGB_24>;
  const PixelView view = ViewOf(image, "image", kLayoutOf<Pixel>);
  check(Size{view.width, view.height}, extra...);
  if constexpr (std::is_same_v<Pixel, Out> && !kNeverInPlace<Check>) {
    if (out.object.is(image.object)) {
      auto both = CopyOf<Pixel>(image, "image");
      Unlocked([&] { export_(both.get(), both.get(), extra...); });
      NeedPixels(*both);
      return Deliver(std::move(both), out);
    }
  }
  auto result = NewResult<Out>(view.width, view.height);
  if constexpr (std::is_const_v<In>) {
    const Source<Pixel> source(image, "image");
    Unlocked([&] { export_(source.get(), result.get(), extra...); });
  } else {
    // The export leaves something in its source; the caller's array stays as it is.
    const auto source = CopyOf<Pixel>(image, "image");
    Unlocked([&] { export_(source.get(), result.get(), extra...); });
  }
  NeedPixels(*result);
  return Deliver(std::move(result), out);
}

template <class Check, class In, class Out, class... Extra, class... Names>
void DefineFilter(py::module_& module, const char* name,
                  void (*export_)(In*, CImage<Out>*, Extra...), const char* text,
                  const Check& check, const Names&... names) {
  module.def(
      name,
      [export_, check](const Array& image, Extra... extra, const Array& out) {
        return Filter(export_, check, image, out, extra...);
      },
      py::arg("image"), names..., py::kw_only(), py::arg("out") = py::none(), text);
}

// An export that works on its image in place: on a copy, or with `out=image` on the array itself
// where its memory allows.
template <class... Extra, class... Names>
void DefinePointFunction(py::module_& module, const char* name,
                         void (*export_)(GreyImage*, Extra...), const char* text,
                         const Names&... names) {
  module.def(
      name,
      [export_](const Array& image, Extra... extra, const Array& out) {
        if (out.object.is(image.object) && IsWritable(image)) {
          const Source<unsigned char> source(image, "image");
          if (source.InPlace()) {
            Unlocked([&] { export_(source.mutableImage(), extra...); });
            ClearPadding(*source.mutableImage());
            return py::reinterpret_borrow<py::array>(out.object);
          }
        }
        auto copy = CopyOf<unsigned char>(image, "image");
        Unlocked([&] { export_(copy.get(), extra...); });
        return Deliver(std::move(copy), out);
      },
      py::arg("image"), names..., py::kw_only(), py::arg("out") = py::none(), text);
}

}  // namespace quillon::python
