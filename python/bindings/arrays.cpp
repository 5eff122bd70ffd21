#include "arrays.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "spares.h"

namespace quillon::python {
namespace {

constexpr const char* kCapsule = "quillon.image";

std::string ShapeText(const py::array& array) {
  return py::str(py::tuple(array.attr("shape"))).cast<std::string>();
}

const char* WantedShape(Layout layout) {
  return layout == Layout::kGrey ? "an array of shape (height, width)"
                                 : "an array of shape (height, width, 3)";
}

py::array CheckedArray(const Array& argument, const char* name) {
  if (!py::isinstance<py::array>(argument.object)) {
    const auto type = py::str(py::type::of(argument.object).attr("__name__")).cast<std::string>();
    throw py::type_error(std::string(name) + ": a NumPy array is wanted, this is " + type);
  }
  RefuseMasked(argument.object, name);
  auto array = py::reinterpret_borrow<py::array>(argument.object);
  if (!array.dtype().equal(py::dtype::of<uint8_t>())) {
    throw py::type_error(std::string(name) + ": an array of uint8 is wanted, this is one of " +
                         py::str(array.dtype()).cast<std::string>());
  }
  return array;
}

int32_t StrideOf(int width, Layout layout) {
  return static_cast<int32_t>((int64_t{width} * static_cast<int>(layout) + 3) / 4 * 4);
}

// The library image that an array of this module shows, when it shows all of it as it is.
template <class Pixel>
CImage<Pixel>* OwnImage(const py::array& array, const PixelView& view) {
  const py::object base = array.base();
  if (!base || !PyCapsule_IsValid(base.ptr(), kCapsule)) return nullptr;
  auto* image = static_cast<CImage<Pixel>*>(PyCapsule_GetPointer(base.ptr(), kCapsule));
  const bool whole = image->rows[0] == view.data && image->width == view.width &&
                     image->height == view.height && image->bpp == CImage<Pixel>::kDepth &&
                     view.rowStep == -image->stride;
  return whole ? image : nullptr;
}

// Rows bottom up, without bytes between them: those would not be the caller's to give.
bool IsLibraryLayout(const PixelView& view) {
  const auto channels = static_cast<py::ssize_t>(view.layout);
  const py::ssize_t rowBytes = channels * view.width;
  return view.columnStep == channels && (channels == 1 || view.channelStep == 1) &&
         rowBytes % 4 == 0 && view.rowStep == -rowBytes && rowBytes * view.height <= INT_MAX;
}

void CopyRow(const PixelView& view, const uint8_t* from, uint8_t* to) {
  const int channels = static_cast<int>(view.layout);
  if (view.columnStep == channels && (channels == 1 || view.channelStep == 1)) {
    std::memcpy(to, from, static_cast<size_t>(view.width) * static_cast<size_t>(channels));
    return;
  }
  for (int x = 0; x < view.width; ++x) {
    for (int c = 0; c < channels; ++c) {
      *to++ = from[x * view.columnStep + c * view.channelStep];
    }
  }
}

}  // namespace

void Notes::Tell() {
  isTold_ = true;
  for (const std::string& note : notes_) {
    if (PyErr_WarnEx(PyExc_UserWarning, note.c_str(), 2) != 0) throw py::error_already_set();
  }
}

void RefuseMasked(const py::object& array, const char* name) {
  // Nobody has such an array who has not imported the module; importing it here would take time.
  const auto modules = py::reinterpret_borrow<py::dict>(PyImport_GetModuleDict());
  if (!modules.contains("numpy.ma")) return;
  if (!py::isinstance(array, modules["numpy.ma"].attr("MaskedArray"))) return;
  throw py::type_error(
      std::string(name) +
      ": a plain NumPy array is wanted, this is a masked one, and nothing here goes "
      "by its mask; give array.filled(0), or array.data to use all of it");
}

void Refuse(const char* name, const std::string& wanted, const std::string& given) {
  throw py::value_error(std::string(name) + ": " + wanted + " is wanted, this is " + given);
}

std::string FileNameOf(const py::object& name) {
  return py::module_::import("os").attr("fsencode")(name).cast<std::string>();
}

std::string Shown(const py::object& value) {
  constexpr size_t kMost = 60;
  if (py::isinstance<py::array>(value)) {
    const auto array = py::reinterpret_borrow<py::array>(value);
    return "an array of shape " + ShapeText(array) + " of " +
           py::str(array.dtype()).cast<std::string>();
  }
  auto text = py::module_::import("builtins").attr("ascii")(value).cast<std::string>();
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text.size() > kMost ? text.substr(0, kMost) + "..." : text;
}

namespace {

bool HasDimensions(const Array& array, int count) {
  return py::isinstance<py::array>(array.object) &&
         py::reinterpret_borrow<py::array>(array.object).ndim() == count;
}

}  // namespace

bool IsColour(const Array& array) { return HasDimensions(array, 3); }
bool IsGrey(const Array& array) { return HasDimensions(array, 2); }

PixelView ViewOf(const Array& argument, const char* name, Layout layout) {
  const py::array array = CheckedArray(argument, name);
  const bool colour = layout == Layout::kColour;
  if (array.ndim() != (colour ? 3 : 2) || (colour && array.shape(2) != 3)) {
    Refuse(name, WantedShape(layout), "one of " + ShapeText(array));
  }
  if (array.size() == 0) Refuse(name, "an array with pixels", "one of " + ShapeText(array));
  if (array.size() > INT_MAX / 2 || array.shape(0) > INT_MAX || array.shape(1) > INT_MAX / 4) {
    Refuse(name, "an array of at most 1 GiB", "one of " + ShapeText(array));
  }
  return {.data = const_cast<uint8_t*>(static_cast<const uint8_t*>(array.data())),
          .rowStep = array.strides(0),
          .columnStep = array.strides(1),
          .channelStep = colour ? array.strides(2) : 1,
          .width = static_cast<int>(array.shape(1)),
          .height = static_cast<int>(array.shape(0)),
          .layout = layout};
}

template <class Pixel>
std::unique_ptr<CImage<Pixel>> NewResult(int width, int height) {
  auto spare = Spares<Pixel>::Instance().Take(width, height);
  return spare ? std::move(spare) : std::make_unique<CImage<Pixel>>();
}

template <class Pixel>
std::unique_ptr<CImage<Pixel>> CopyPixels(const PixelView& view) {
  auto image = NewResult<Pixel>(view.width, view.height);
  if (!image->bits) image->Create(view.width, view.height);
  if (!image->bits) throw std::bad_alloc();
  for (int y = view.height - 1; y >= 0; --y) {
    CopyRow(view, view.data + y * view.rowStep, image->rows[y]);
  }
  return image;
}

template <class Pixel>
std::unique_ptr<CImage<Pixel>> CopyOf(const Array& array, const char* name) {
  const PixelView view = ViewOf(array, name, kLayoutOf<Pixel>);
  return Unlocked([&] { return CopyPixels<Pixel>(view); });
}

template <class Pixel>
std::unique_ptr<CImage<Pixel>> Take(CImage<Pixel>& image) {
  auto taken = std::make_unique<CImage<Pixel>>();
  taken->bitmap = std::exchange(image.bitmap, nullptr);
  taken->bits = std::exchange(image.bits, nullptr);
  taken->rows = std::exchange(image.rows, nullptr);
  for (auto word :
       {&CImage<Pixel>::width, &CImage<Pixel>::height, &CImage<Pixel>::bpp, &CImage<Pixel>::stride,
        &CImage<Pixel>::bytesPerPixel, &CImage<Pixel>::paletteEntries, &CImage<Pixel>::imageSize}) {
    (*taken).*word = image.*word;
  }
  return taken;
}

template <class Pixel>
Source<Pixel>::Source(const Array& array, const char* name) : keepAlive_(array.object) {
  const PixelView view = ViewOf(array, name, kLayoutOf<Pixel>);
  image_ = OwnImage<Pixel>(py::reinterpret_borrow<py::array>(array.object), view);
  if (image_) return;
  if (IsLibraryLayout(view)) {
    Borrow(view);
    return;
  }
  copy_ = Unlocked([&] { return CopyPixels<Pixel>(view); });
  image_ = copy_.get();
}

template <class Pixel>
void Source<Pixel>::Borrow(const PixelView& view) {
  borrowed_.width = view.width;
  borrowed_.height = view.height;
  borrowed_.stride = StrideOf(view.width, view.layout);
  borrowed_.bytesPerPixel = static_cast<int>(view.layout);
  borrowed_.paletteEntries = view.layout == Layout::kGrey ? 256 : 0;
  borrowed_.imageSize = borrowed_.stride * view.height;
  borrowed_.rows = static_cast<unsigned char**>(
      std::malloc(sizeof(unsigned char*) * static_cast<size_t>(view.height)));
  if (!borrowed_.rows) throw std::bad_alloc();
  for (int y = 0; y < view.height; ++y) borrowed_.rows[y] = view.data + y * view.rowStep;
  borrowed_.bits = borrowed_.rows[view.height - 1];
  borrowed_.bitmap = reinterpret_cast<HBITMAP>(borrowed_.bits);
  image_ = &borrowed_;
}

template <class Pixel>
Source<Pixel>::~Source() {
  if (copy_) Spares<Pixel>::Instance().Give(std::move(copy_));
  // The borrowed store is the array's.
  std::free(borrowed_.rows);
  borrowed_.rows = nullptr;
  borrowed_.bitmap = nullptr;
}

template <class Pixel>
void ClearPadding(CImage<Pixel>& image) {
  const size_t used = static_cast<size_t>(image.width) * sizeof(Pixel);
  const size_t padding = static_cast<size_t>(image.stride) - used;
  if (padding == 0) return;
  for (int y = 0; y < image.height; ++y) std::memset(image.rows[y] + used, 0, padding);
}

namespace {

// Exchanges two rows that do not overlap, by way of a block that stays in the cache.
void SwapRows(uint8_t* a, uint8_t* b, size_t count) {
  uint8_t block[4096];
  for (size_t i = 0; i < count; i += sizeof block) {
    const size_t part = std::min(sizeof block, count - i);
    std::memcpy(block, a + i, part);
    std::memcpy(a + i, b + i, part);
    std::memcpy(b + i, block, part);
  }
}

// Leaves the pixels contiguous from the top at the begin of the store.
template <class Pixel>
void TurnAround(CImage<Pixel>& image) {
  const size_t used = static_cast<size_t>(image.width) * sizeof(Pixel);
  const auto stride = static_cast<size_t>(image.stride), height = static_cast<size_t>(image.height);
  for (size_t y = 0; y < height / 2; ++y) {
    SwapRows(image.bits + y * stride, image.bits + (height - 1 - y) * stride, used);
  }
  if (used == stride) return;
  for (size_t y = 1; y < height; ++y) {
    std::memmove(image.bits + y * used, image.bits + y * stride, used);
  }
}

// An array over the store of the image, which goes back to the spares when the array goes.
template <class Pixel>
py::array OverStore(std::unique_ptr<CImage<Pixel>> image, uint8_t* first, py::ssize_t rowStep) {
  constexpr py::ssize_t kChannels = sizeof(Pixel);
  std::vector<py::ssize_t> shape = {image->height, image->width}, steps = {rowStep, kChannels};
  if (kChannels == 3) {
    shape.push_back(3);
    steps.push_back(1);
  }
  if (!image->bits) return py::array_t<uint8_t>(shape);
  const py::capsule owner(image.get(), kCapsule, [](PyObject* capsule) {
    std::unique_ptr<CImage<Pixel>> shown(
        static_cast<CImage<Pixel>*>(PyCapsule_GetPointer(capsule, kCapsule)));
    ClearPadding(*shown);
    Spares<Pixel>::Instance().Give(std::move(shown));
  });
  (void)image.release();  // the capsule's
  return py::array_t<uint8_t>(shape, steps, first, owner);
}

}  // namespace

template <class Pixel>
py::array ToArray(std::unique_ptr<CImage<Pixel>> image) {
  if (image->bits) Unlocked([&] { TurnAround(*image); });
  auto* const first = image->bits;
  const auto rowStep = py::ssize_t{image->width} * static_cast<py::ssize_t>(sizeof(Pixel));
  return OverStore(std::move(image), first, rowStep);
}

template <class Pixel>
py::array ToLibraryArray(std::unique_ptr<CImage<Pixel>> image) {
  if (image->bits) ClearPadding(*image);
  auto* const first = image->bits ? image->rows[0] : nullptr;
  const py::ssize_t rowStep = -image->stride;
  return OverStore(std::move(image), first, rowStep);
}

Delivery ReadDelivery(const py::object& out, const py::object& layout) {
  for (const bool isLibrary : {false, true}) {
    if (layout.equal(py::str(isLibrary ? "library" : "contiguous"))) return {{out}, isLibrary};
  }
  Refuse("layout", "one of contiguous, library", Shown(layout));
}

py::array CopyInto(const Array& out, const py::array& result) {
  py::array array = CheckedArray(out, "out");
  if (!array.attr("shape").equal(result.attr("shape"))) {
    Refuse("out", "an array of shape " + ShapeText(result), "one of " + ShapeText(array));
  }
  if (!array.writeable()) throw py::value_error("out: a writable array is wanted");
  array.attr("__setitem__")(py::ellipsis(), result);
  return array;
}

template std::unique_ptr<GreyImage> NewResult(int, int);
template std::unique_ptr<ColourImage> NewResult(int, int);
template class Source<unsigned char>;
template class Source<RGB_24>;
template std::unique_ptr<GreyImage> CopyPixels(const PixelView&);
template std::unique_ptr<ColourImage> CopyPixels(const PixelView&);
template std::unique_ptr<GreyImage> CopyOf<unsigned char>(const Array&, const char*);
template std::unique_ptr<ColourImage> CopyOf<RGB_24>(const Array&, const char*);
template std::unique_ptr<GreyImage> Take(GreyImage&);
template std::unique_ptr<ColourImage> Take(ColourImage&);
template void ClearPadding(GreyImage&);
template void ClearPadding(ColourImage&);
template py::array ToArray(std::unique_ptr<GreyImage>);
template py::array ToArray(std::unique_ptr<ColourImage>);
template py::array ToLibraryArray(std::unique_ptr<GreyImage>);
template py::array ToLibraryArray(std::unique_ptr<ColourImage>);

}  // namespace quillon::python
