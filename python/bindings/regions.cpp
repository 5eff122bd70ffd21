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

  py::array FillUp(const Array& image, int value, const Array& out) {
    auto filled = CopyOf<unsigned char>(image, "image");
    Run([&](RLERegion* region) {
      if (!IxBinaryFillUp(filled.get(), region, value)) throw std::bad_alloc();
    });
    return Deliver(std::move(filled), out);
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
  type.def("set_polygon", &Region::SetPolygon, py::arg("points"),
           R"(Makes the inside of a closed polygon of points (x, y) the region of interest.

Points in clockwise order as displayed: all boundary pixels belong to it. In the other order, the
rows of upper and lower boundaries do not. Beyond 300,000 runs the lower rows are dropped.)");
  type.def("assign_image", &Region::AssignImage, py::arg("image"),
           "Takes a copy of an image for display(), on a new black picture.");
  type.def(
      "display", &Region::Display,
      R"(A color picture: the region as lines of red 125, combined with the image by exclusive-or.

The picture is not cleared in between: a second call shows the lines combined with the image on
black. For the first picture again, assign again.)");
}

void DefineBlobs(py::class_<Region>& type) {
  type.def("label", &Region::Label, py::arg("image"), py::arg("low"), py::arg("high"),
           R"(Finds the blobs: touching pixels from low to high inside the region of interest.

Where the region ends exactly at the last column, that column is left out; a region that reaches
beyond the image labels all of it. Beyond 300,000 runs or 50,000 labels the rest is not labelled.)");
  type.def("fill_up", &Region::FillUp, py::arg("image"), py::arg("value") = 255, py::kw_only(),
           py::arg("out") = py::none(),
           R"(The image with its holes filled: groups of pixels other than `value` become it.

Groups that touch the top row or the last column stay. Uses the tables of the blobs: label again
before reading them.)");
  type.def_property_readonly(
      "blob_count", [](const Region& self) { return self.Run(IxGetBlobCount); },
      "The number of blobs of the last labelling.");
  type.def(
      "blob_area",
      [](Region& self, int n) {
        return self.OfBlob(n, [&](RLERegion* region) { return IxGetnBlobArea(region, n); });
      },
      py::arg("n"), "The pixels of blob n.");
  type.def(
      "blob_center",
      [](Region& self, int n) {
        float center[2] = {};
        self.OfBlob(n, [&](RLERegion* region) { IxGetnBlobCenter(region, n, center); });
        return Named("Point", center[0], center[1]);
      },
      py::arg("n"), "The mean column and row of blob n.");
  type.def(
      "blob_bound",
      [](Region& self, int n) {
        int bound[4] = {};
        self.OfBlob(n, [&](RLERegion* region) { IxGetnBlobBound(region, n, bound); });
        return Named("Bound", bound[0], bound[1], bound[2], bound[3]);
      },
      py::arg("n"), "The first and last columns and rows of blob n.");
  type.def(
      "blob_min_rect",
      [](Region& self, int n) {
        float values[13] = {};
        self.OfBlob(n, [&](RLERegion* region) {
          if (!IxGetBlobMinRect(region, n, values)) throw std::bad_alloc();
        });
        return MinRectTuple(values);
      },
      py::arg("n"), "The rectangle of least area around the pixel centers of blob n.");
}

void DefineMeans(py::class_<Region>& type) {
  type.def(
      "blob_gray_mean",
      [](Region& self, const Array& image, int n) {
        const Source<unsigned char> source(image, "image");
        return self.OfBlob(
            n, [&](RLERegion* region) { return IxGetnBlobGrayMean(source.get(), region, n); });
      },
      py::arg("image"), py::arg("n"), "The mean of a gray image's pixels in blob n.");
  type.def(
      "blob_color_mean",
      [](Region& self, const Array& image, int n) {
        const Source<RGB_24> source(image, "image");
        double mean[3] = {};
        self.OfBlob(n,
                    [&](RLERegion* region) { IxGetnBlobColorMean(source.get(), region, n, mean); });
        return Named("ColorMean", mean[0], mean[1], mean[2]);
      },
      py::arg("image"), py::arg("n"), "The means of a color image's pixels in blob n.");
  type.def(
      "gray_mean",
      [](Region& self, const Array& image) {
        const Source<unsigned char> source(image, "image");
        return self.Run(
            [&](RLERegion* region) { return IxGetnRegionGrayMean(source.get(), region); });
      },
      py::arg("image"), "The mean of a gray image's pixels in the region of interest.");
  type.def(
      "color_mean",
      [](Region& self, const Array& image) {
        const Source<RGB_24> source(image, "image");
        double mean[3] = {};
        self.Run([&](RLERegion* region) { IxGetnRegionColorMean(source.get(), region, mean); });
        return Named("ColorMean", mean[0], mean[1], mean[2]);
      },
      py::arg("image"), "The means of a color image's pixels in the region of interest.");
}

using SelectExport = bool (*)(RLERegion*, int, int);

void DefineSelection(py::class_<Region>& type) {
  type.def(
      "compute_features", [](Region& self) { return self.Run(IxComputeAllBlobFeature); },
      "Fills the feature table and selects all of it. False when nothing was labelled.");
  // The exports take the upper bound first.
  const auto define = [&](const char* name, SelectExport select, const char* low, const char* high,
                          const char* text) {
    type.def(
        name,
        [select](Region& self, int lowest, int highest) {
          return self.Run([&](RLERegion* region) { return select(region, highest, lowest); });
        },
        py::arg(low), py::arg(high), text);
  };
  define("select_area", IxSelectBlobArea, "min_area", "max_area",
         "Keeps blobs of these areas selected. False, and no change, without a selection.");
  define("select_width", IxSelectBlobWidth, "min_width", "max_width",
         "Keeps blobs selected by the width of their minimum rectangle.");
  define("select_height", IxSelectBlobHeight, "min_height", "max_height",
         "Keeps blobs selected by the height of their minimum rectangle.");
  type.def(
      "select_center",
      [](Region& self, int xMin, int xMax, int yMin, int yMax) {
        return self.Run(
            [&](RLERegion* region) { return IxLocateBlobCenter(region, xMin, xMax, yMin, yMax); });
      },
      py::arg("x_min"), py::arg("x_max"), py::arg("y_min"), py::arg("y_max"),
      "Keeps blobs selected whose center lies in a rectangle.");
  type.def(
      "reselect", [](Region& self) { return self.Run(IxReSelectBlob); },
      "Selects all blobs again. An empty selection stays empty: compute_features() undoes it.");
  type.def_property_readonly(
      "selected_count", [](const Region& self) { return self.Run(IxGetSelectBlobCount); },
      "The number of selected blobs.");
  type.def("selected_blobs", &Region::SelectedBlobs,
           R"(The selected blobs as a structured array.

Fields: area, center_x, center_y; of the minimum rectangle rect_center_x, rect_center_y, height,
width, angle and corners (four points x, y); selected.)");
}

}  // namespace

void AddRegions(py::module_& module) {
  PYBIND11_NUMPY_DTYPE_EX(BlobFeature, area, "area", centreX, "center_x", centreY, "center_y",
                          rectCentreX, "rect_center_x", rectCentreY, "rect_center_y", height,
                          "height", width, "width", angle, "angle", corners, "corners", selected,
                          "selected");
  py::class_<Region> type(module, "Region", R"(A region of interest, and the blobs found in it.

    with quillon.Region() as region:
        region.set_polygon([(0, 0), (width, 0), (width, height), (0, height)])
        region.label(image, 128, 255)
        region.compute_features()
        print(region.selected_blobs()["area"])

Selections work within the current one; all bounds are inclusive.)");
  type.def(py::init(), "A region without runs.");
  DefineClosing(type);
  DefineRegionOfInterest(type);
  DefineBlobs(type);
  DefineMeans(type);
  DefineSelection(type);
}

}  // namespace quillon::python
