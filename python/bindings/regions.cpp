// Regions of interest, blobs, their features and selection.
#include <string>

#include "families.h"
#include "handle.h"
#include "numbers.h"
#include "results.h"

namespace quillon::python {
namespace {

class Region : public Handle<RLERegion, CreateRLERegion, DestroyRLERegion> {
 public:
  Region() : Handle("Region") {}

  void SetPolygon(const py::object& given) {
    const auto points = ReadWholeNumbers(given, "points", {0, 2});
    Run([&](RLERegion* region) {
      IxPointToRegion(region, points.data(), static_cast<int>(points.size() / 2));
    });
  }

  // The image is copied: what the region shows does not depend on how the array lay in memory.
  void AssignImage(const Array& image) {
    auto copy = CopyOf<unsigned char>(image, "image");
    Run([&](RLERegion* region) {
      IxImgAssignToRegion(region, copy.get());
      assigned_ = std::move(copy);
    });
  }

  py::array Display() {
    return ToArray(Run([&](RLERegion* region) {
      HBITMAP bitmap = IxGetRegDisplay(region);
      if (!bitmap) throw py::value_error("assign_image() comes first");
      return CopyDisplay(bitmap);
    }));
  }

  void Label(const Array& image, int low, int high) {
    const Source<unsigned char> source(image, "image");
    Run([&](RLERegion* region) { IxGrayBlobLabel(source.get(), region, low, high); });
  }

  py::array FillUp(const Array& image, int value, const py::object& out, const py::object& layout) {
    const Delivery delivery = ReadDelivery(out, layout);
    auto filled = CopyOf<unsigned char>(image, "image");
    Run([&](RLERegion* region) {
      if (!IxBinaryFillUp(filled.get(), region, value)) throw std::bad_alloc();
    });
    return Deliver(std::move(filled), delivery);
  }

  // `work` on blob n, which there must be.
  template <class Work>
  auto OfBlob(int n, const Work& work) {
    return Run([&](RLERegion* region) {
      const int count = IxGetBlobCount(region);
      if (n < 0 || n >= count) {
        throw py::index_error("n: one of " + std::to_string(count) + " blobs is wanted, this is " +
                              std::to_string(n));
      }
      return work(region);
    });
  }

  py::array SelectedBlobs() {
    // Records are copied to memory that no Python code sees yet.
    py::array_t<BlobFeature> blobs(Run(IxGetSelectBlobCount));
    BlobFeature* records = blobs.mutable_data();
    const auto room = static_cast<int>(blobs.size());
    Run([&](RLERegion* region) {
      if (IxGetSelectBlobCount(region) != room) {
        throw py::value_error("another thread changed the selection");
      }
      IxGetBlobList(region, records);
    });
    return blobs;
  }

 private:
  // The display image is the assigned image's size; its store begins at the handle, aligned.
  std::unique_ptr<ColourImage> CopyDisplay(HBITMAP bitmap) const {
    const auto block = reinterpret_cast<uintptr_t>(bitmap);
    const uintptr_t alignment = store::kPixelAlignment;
    auto* bits = reinterpret_cast<uint8_t*>((block + alignment - 1) / alignment * alignment);
    const py::ssize_t stride = (py::ssize_t{assigned_->width} * 3 + 3) / 4 * 4;
    return CopyPixels<RGB_24>({.data = bits + (assigned_->height - 1) * stride,
                               .rowStep = -stride,
                               .columnStep = 3,
                               .channelStep = 1,
                               .width = assigned_->width,
                               .height = assigned_->height,
                               .layout = Layout::kColour});
  }

  std::unique_ptr<GreyImage> assigned_;
};

py::tuple MinRectTuple(const float* values) {
  const auto point = [&](int i) { return Named("Point", values[i], values[i + 1]); };
  return Named("MinRect", point(0), values[2], values[3], values[4],
               py::make_tuple(point(5), point(7), point(9), point(11)));
}

void DefineRegionOfInterest(py::class_<Region>& type) {
  type.def("set_polygon", &Region::SetPolygon);
  type.def("assign_image", &Region::AssignImage);
  type.def("display", &Region::Display);
}

void DefineBlobs(py::class_<Region>& type) {
  type.def("label", &Region::Label);
  type.def("fill_up", &Region::FillUp);
  type.def("blob_count", [](const Region& self) { return self.Run(IxGetBlobCount); });
  type.def("blob_area", [](Region& self, int n) {
    return self.OfBlob(n, [&](RLERegion* region) { return IxGetnBlobArea(region, n); });
  });
  type.def("blob_center", [](Region& self, int n) {
    float center[2] = {};
    self.OfBlob(n, [&](RLERegion* region) { IxGetnBlobCenter(region, n, center); });
    return Named("Point", center[0], center[1]);
  });
  type.def("blob_bound", [](Region& self, int n) {
    int bound[4] = {};
    self.OfBlob(n, [&](RLERegion* region) { IxGetnBlobBound(region, n, bound); });
    return Named("Bound", bound[0], bound[1], bound[2], bound[3]);
  });
  type.def("blob_min_rect", [](Region& self, int n) {
    float values[13] = {};
    self.OfBlob(n, [&](RLERegion* region) {
      if (!IxGetBlobMinRect(region, n, values)) throw std::bad_alloc();
    });
    return MinRectTuple(values);
  });
}

void DefineMeans(py::class_<Region>& type) {
  type.def("blob_gray_mean", [](Region& self, const Array& image, int n) {
    const Source<unsigned char> source(image, "image");
    return self.OfBlob(
        n, [&](RLERegion* region) { return IxGetnBlobGrayMean(source.get(), region, n); });
  });
  type.def("blob_color_mean", [](Region& self, const Array& image, int n) {
    const Source<RGB_24> source(image, "image");
    double mean[3] = {};
    self.OfBlob(n, [&](RLERegion* region) { IxGetnBlobColorMean(source.get(), region, n, mean); });
    return Named("ColorMean", mean[0], mean[1], mean[2]);
  });
  type.def("gray_mean", [](Region& self, const Array& image) {
    const Source<unsigned char> source(image, "image");
    return self.Run([&](RLERegion* region) { return IxGetnRegionGrayMean(source.get(), region); });
  });
  type.def("color_mean", [](Region& self, const Array& image) {
    const Source<RGB_24> source(image, "image");
    double mean[3] = {};
    self.Run([&](RLERegion* region) { IxGetnRegionColorMean(source.get(), region, mean); });
    return Named("ColorMean", mean[0], mean[1], mean[2]);
  });
}

using SelectExport = bool (*)(RLERegion*, int, int);

void DefineSelection(py::class_<Region>& type) {
  type.def("compute_features", [](Region& self) { return self.Run(IxComputeAllBlobFeature); });
  // The exports take the upper bound first.
  const auto define = [&](const char* name, SelectExport select) {
    type.def(name, [select](Region& self, int lowest, int highest) {
      return self.Run([&](RLERegion* region) { return select(region, highest, lowest); });
    });
  };
  define("select_area", IxSelectBlobArea);
  define("select_width", IxSelectBlobWidth);
  define("select_height", IxSelectBlobHeight);
  type.def("select_center", [](Region& self, int xMin, int xMax, int yMin, int yMax) {
    return self.Run(
        [&](RLERegion* region) { return IxLocateBlobCenter(region, xMin, xMax, yMin, yMax); });
  });
  type.def("reselect", [](Region& self) { return self.Run(IxReSelectBlob); });
  type.def("selected_count", [](const Region& self) { return self.Run(IxGetSelectBlobCount); });
  type.def("selected_blobs", &Region::SelectedBlobs);
}

}  // namespace

void AddRegions(py::module_& module) {
  PYBIND11_NUMPY_DTYPE_EX(BlobFeature, area, "area", centreX, "center_x", centreY, "center_y",
                          rectCentreX, "rect_center_x", rectCentreY, "rect_center_y", height,
                          "height", width, "width", angle, "angle", corners, "corners", selected,
                          "selected");
  py::class_<Region> type(module, "Region");
  type.def(py::init());
  type.def("close", &Region::Close);
  DefineRegionOfInterest(type);
  DefineBlobs(type);
  DefineMeans(type);
  DefineSelection(type);
}

}  // namespace quillon::python
