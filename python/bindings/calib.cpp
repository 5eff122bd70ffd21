// Flat field and lens distortion. The library keeps calibration state in image objects; here it is
// an object of its own, lent to a copy of each picture for one call.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "arrays.h"
#include "families.h"
#include "numbers.h"
#include "results.h"

namespace quillon::python {
namespace {

using FileName = std::optional<std::string>;

const char* Text(const FileName& name) { return name ? name->c_str() : nullptr; }

[[noreturn]] void ThrowOsError(const std::string& name) {
  PyErr_SetFromErrnoWithFilename(PyExc_OSError, name.c_str());
  throw py::error_already_set();
}

// None where no file is wanted.
FileName ReadFileName(const py::object& name) {
  if (name.is_none()) return std::nullopt;
  return FileNameOf(name);
}

// OSError when the file cannot be opened so. "ab" creates it, and leaves what is there.
void NeedFile(const FileName& name, const char* mode) {
  if (!name) return;
  std::FILE* file = std::fopen(name->c_str(), mode);
  if (!file) ThrowOsError(*name);
  std::fclose(file);
}

// A file of the parameters' size: the library takes what a short one lacks as 0.
void NeedFileOfSize(const FileName& name, long size) {
  if (!name) throw py::type_error("file_name: a path is wanted, this is None");
  NeedFile(name, "rb");
  const auto actual = py::module_::import("os").attr("path").attr("getsize")(py::bytes(*name));
  if (actual.cast<long>() != size) {
    Refuse("file_name", "a file of " + std::to_string(size) + " bytes",
           "one of " + py::str(actual).cast<std::string>());
  }
}

void Swap(GreyImage& a, GreyImage& b) {
  std::swap(a.flatFieldTable, b.flatFieldTable);
  std::swap(a.distortionCoefficients, b.distortionCoefficients);
  std::swap(a.distortionCoefficientRows, b.distortionCoefficientRows);
  std::swap(a.distortionMap, b.distortionMap);
  std::swap(a.distortionMapRows, b.distortionMapRows);
  for (auto word : {&GreyImage::centreX, &GreyImage::centreY, &GreyImage::correctedWidth,
                    &GreyImage::correctedHeight, &GreyImage::xMax, &GreyImage::xMin,
                    &GreyImage::yMin, &GreyImage::yMax}) {
    std::swap(a.*word, b.*word);
  }
}

// Calibration state, in an image object without pixels. One call at a time.
class State {
 public:
  State() {
    for (auto word : {&GreyImage::centreX, &GreyImage::centreY, &GreyImage::correctedWidth,
                      &GreyImage::correctedHeight, &GreyImage::xMax, &GreyImage::xMin,
                      &GreyImage::yMin, &GreyImage::yMax}) {
      image_.*word = 0;
    }
  }
  ~State() {
    // An image without pixels releases nothing by itself.
    std::free(image_.flatFieldTable);
    std::free(image_.distortionCoefficients);
    std::free(image_.distortionCoefficientRows);
    std::free(image_.distortionMap);
    std::free(image_.distortionMapRows);
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  template <class Work>
  auto Run(const Work& work) {
    const py::gil_scoped_release release;
    const std::lock_guard lock(mutex_);
    return work(image_);
  }

  // The same on another image, which has the state while it lasts.
  template <class Work>
  auto RunOn(GreyImage& image, const Work& work) {
    return Run([&](GreyImage& state) {
      struct Loan {
        GreyImage &state, &image;
        Loan(GreyImage& from, GreyImage& to) : state(from), image(to) { Swap(state, image); }
        ~Loan() { Swap(state, image); }
      } const loan(state, image);
      return work(image);
    });
  }

 private:
  std::mutex mutex_;
  GreyImage image_;
};

// ---- flat field ---------------------------------------------------------------------------------

constexpr py::ssize_t kLevels = 256;
constexpr long kFlatFieldFile = 2072;

struct Columns {  // a region as the exports take it
  int xStart, xEnd, yStart, yEnd;
};

Columns ReadRegion(const py::object& region) {
  const auto numbers = ReadWholeNumbers(region, "region", {4});
  return {numbers[0], numbers[1], numbers[2], numbers[3]};
}

class FlatField {
 public:
  void Build(int target, const py::object& region, const py::object& fileName) {
    const Columns area = ReadRegion(region);
    const FileName name = ReadFileName(fileName);
    NeedFile(name, "ab");
    state_.Run([&](GreyImage& image) {
      IxFFCParaBuild(&image, target, area.xStart, area.xEnd, area.yStart, area.yEnd, Text(name));
      if (!image.flatFieldTable) throw std::bad_alloc();
    });
  }

  py::tuple Load(const py::object& fileName) {
    const FileName name = ReadFileName(fileName);
    NeedFileOfSize(name, kFlatFieldFile);
    int region[4] = {};
    state_.Run([&](GreyImage& image) {
      if (!IxFFCParaLoad(&image, region, Text(name))) throw std::bad_alloc();
    });
    return Named("FlatFieldRegion", region[0], region[1], region[2], region[3]);
  }

  py::array Calibrate(const Array& picture, const py::object& region, const py::object& out,
                      const py::object& layout) {
    const Delivery delivery = ReadDelivery(out, layout);
    auto copy = CopyOf<unsigned char>(picture, "image");
    const Columns area =
        region.is_none() ? Columns{0, copy->width, 0, copy->height} : ReadRegion(region);
    state_.RunOn(*copy, [&](GreyImage& image) {
      if (!image.flatFieldTable) throw py::value_error("build() or load() comes first");
      IxFFCCalibrate(&image, area.xStart, area.xEnd, area.yStart, area.yEnd);
    });
    return Deliver(std::move(copy), delivery);
  }

  py::object Gains() {
    py::array_t<double> gains(kLevels);
    double* data = gains.mutable_data();
    const bool there = state_.Run([&](GreyImage& image) {
      if (image.flatFieldTable) std::copy_n(image.flatFieldTable, kLevels, data);
      return image.flatFieldTable != nullptr;
    });
    return there ? py::object(std::move(gains)) : py::none();
  }

 private:
  State state_;
};

// ---- lens distortion ----------------------------------------------------------------------------

struct Size {
  int width, height;
};

constexpr py::ssize_t kTerms = 10;
constexpr long kDistortionFile = 208;

class LensCalibration {
 public:
  py::array Build(const py::object& given, float xPitch, float yPitch, float xPixelSize,
                  float yPixelSize, const py::object& fileName) {
    auto points = ReadWholeNumbers(given, "points", {0, 2});
    const auto count = static_cast<int>(points.size() / 2);
    if (count % 2 == 0) {
      Refuse("points", "the odd number of points of a square grid", std::to_string(count));
    }
    const FileName name = ReadFileName(fileName);
    NeedFile(name, "ab");
    state_.Run([&](GreyImage& image) {
      if (!IxDistortionParaBuild(&image, points.data(), count, xPitch, yPitch, xPixelSize,
                                 yPixelSize, Text(name))) {
        throw std::bad_alloc();
      }
      mapped_ = {};
    });
    return py::array_t<int>({count, 2}, points.data());
  }

  void Load(const py::object& fileName) {
    const FileName name = ReadFileName(fileName);
    NeedFileOfSize(name, kDistortionFile);
    state_.Run([&](GreyImage& image) {
      if (!IxDistortionParaLoad(&image, Text(name))) throw std::bad_alloc();
      mapped_ = {};
    });
  }

  void Precalculate(std::pair<int, int> shape) {
    const auto [height, width] = shape;
    if (height < 1 || width < 1) {
      Refuse("shape", "(height, width) of an image with pixels",
             "(" + std::to_string(height) + ", " + std::to_string(width) + ")");
    }
    // The size is all that is read of the image.
    GreyImage sized;
    sized.width = width;
    sized.height = height;
    state_.RunOn(sized, [&](GreyImage& image) { MakeMap(image); });
  }

  py::array Calibrate(const Array& picture, const py::object& out, const py::object& layout) {
    const Delivery delivery = ReadDelivery(out, layout);
    auto copy = CopyOf<unsigned char>(picture, "image");
    state_.RunOn(*copy, [&](GreyImage& image) {
      if (mapped_.width != image.width || mapped_.height != image.height) MakeMap(image);
      if (!IxDistortionCalibrate(&image)) throw std::bad_alloc();
    });
    return Deliver(std::move(copy), delivery);
  }

  py::object Parameters() {
    py::array_t<double> coefficients({kTerms, py::ssize_t{2}});
    double* data = coefficients.mutable_data();
    int words[8] = {};
    const bool there = state_.Run([&](GreyImage& image) {
      if (!image.distortionCoefficients) return false;
      std::copy_n(image.distortionCoefficients, 2 * kTerms, data);
      size_t i = 0;
      for (auto word : {&GreyImage::centreX, &GreyImage::centreY, &GreyImage::correctedWidth,
                        &GreyImage::correctedHeight, &GreyImage::xMin, &GreyImage::xMax,
                        &GreyImage::yMin, &GreyImage::yMax}) {
        words[i++] = image.*word;
      }
      return true;
    });
    if (!there) return py::none();
    return Named("LensParameters", Named("Point", words[0], words[1]), words[2], words[3],
                 Named("Bound", words[4], words[5], words[6], words[7]), coefficients);
  }

  py::object Map() {
    std::vector<int> map;
    py::ssize_t width = 0, height = 0;
    state_.Run([&](GreyImage& image) {
      if (!image.distortionMap) return;
      width = image.correctedWidth;
      height = image.correctedHeight;
      map.assign(image.distortionMap, image.distortionMap + 2 * width * height);
    });
    if (map.empty()) return py::none();
    return py::array_t<int>({height, width, py::ssize_t{2}}, map.data());
  }

 private:
  // `image` has the state.
  void MakeMap(GreyImage& image) {
    mapped_ = {};
    if (!image.distortionCoefficients) throw py::value_error("build() or load() comes first");
    IxDistortionPreCalculate(&image);
    if (!image.distortionMap) {
      throw py::value_error("no map: the corrected rectangle is empty, or beyond 2 GiB");
    }
    mapped_ = {image.width, image.height};
  }

  State state_;
  Size mapped_ = {};  // the image size that the map was made for
};

}  // namespace

void AddCalibration(py::module_& module) {
  py::class_<FlatField>(module, "FlatField")
      .def(py::init())
      .def("build", &FlatField::Build)
      .def("load", &FlatField::Load)
      .def("calibrate", &FlatField::Calibrate)
      .def("gains", &FlatField::Gains);
  py::class_<LensCalibration>(module, "LensCalibration")
      .def(py::init())
      .def("build", &LensCalibration::Build)
      .def("load", &LensCalibration::Load)
      .def("precalculate", &LensCalibration::Precalculate)
      .def("calibrate", &LensCalibration::Calibrate)
      .def("parameters", &LensCalibration::Parameters)
      .def("map", &LensCalibration::Map);
}

}  // namespace quillon::python
