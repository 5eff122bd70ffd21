// Template matching by correlation.
#include <cmath>
#include <string>

#include "families.h"
#include "handle.h"

namespace quillon::python {
namespace {

// The most that a search reports, as the library has it.
constexpr int kMostResults = 500;

struct Search {
  double minScore, angleMin, angleMax, scaleMin, scaleMax;
  bool rotate;
  int maxResults;
};

void CheckRange(const char* name, double least, double greatest) {
  if (std::isfinite(least) && std::isfinite(greatest) && least <= greatest) return;
  Refuse(name, "a finite number not below the minimum",
         std::to_string(greatest) + " with the minimum " + std::to_string(least));
}

void Check(const Search& search) {
  if (std::isnan(search.minScore)) Refuse("min_score", "a number", "nan");
  CheckRange("angle_max", search.angleMin, search.angleMax);
  CheckRange("scale_max", search.scaleMin, search.scaleMax);
  if (search.maxResults < 1) {
    Refuse("max_results", "a number above 0", std::to_string(search.maxResults));
  }
}

class CorrelationTool : public Handle<NccTool, IxCreateNCCTool, IxDestroyNCCModel> {
 public:
  CorrelationTool() : Handle("NccTool") {}

  void Teach(const Array& image, bool useMask) {
    if (IsColour(image)) {
      TeachWith<RGB_24>(image, Model::kColour, [&](const ColourImage* taught, NccTool* tool) {
        return IxCreateNCCMatchColorModel(taught, tool, useMask);
      });
    } else {
      TeachWith<unsigned char>(image, Model::kGrey, [&](const GreyImage* taught, NccTool* tool) {
        return IxCreateNCCMatchModel(taught, tool, useMask);
      });
    }
  }

  void TeachRoi(const Array& image) {
    TeachWith<RGB_24>(image, Model::kColour, IxCreateNCCMatchColorModel_ROI);
  }

  py::array Find(const Array& image, const Search& search) {
    Check(search);
    if (IsColour(image)) {
      FindWith<RGB_24>(image, search, Model::kColour, IxFindNCCMatchColorModel);
    } else {
      FindWith<unsigned char>(image, search, Model::kGrey, IxFindNCCMatchModel);
    }
    return Results();
  }

  py::array Results() const {
    NccResult found[kMostResults];
    const int count = Run([&](NccTool* tool) {
      int n = 0;
      while (n < kMostResults && IxGetNCCMatchResults(tool, n, &found[n])) ++n;
      return n;
    });
    return py::array_t<NccResult>(count, found);
  }

  double Correlate(const Array& image) const {
    const Source<RGB_24> source(image, "image");
    return Run([&](NccTool* tool) {
      Need(Model::kColour);
      if (source.width() != width_ || source.height() != height_) {
        Refuse(
            "image",
            "an array of the template's size, " + std::to_string(height_) + " x " +
                std::to_string(width_) + ",",
            "one of " + std::to_string(source.height()) + " x " + std::to_string(source.width()));
      }
      return IxFindNCCMatchColorModel_ROI(source.get(), tool);
    });
  }

  void SetLevel(int level) {
    Run([&](NccTool* tool) {
      if (!IxSetPyramidLevel(tool, level)) RefuseLevel(tool, level);
    });
  }

  py::array LevelImage(int level) const {
    auto grey = std::make_unique<GreyImage>();
    auto colour = std::make_unique<ColourImage>();
    const bool isColour = Run([&](NccTool* tool) {
      if (model_ == Model::kNone) throw py::value_error(kNotTaught);
      const bool copied = model_ == Model::kColour
                              ? IxGet_Pyramid_ColorImage(tool, colour.get(), level)
                              : IxGet_Pyramid_GrayImage(tool, grey.get(), level);
      if (!copied) RefuseLevel(tool, level);
      return model_ == Model::kColour;
    });
    return isColour ? ToArray(std::move(colour)) : ToArray(std::move(grey));
  }

 private:
  enum class Model { kNone, kGrey, kColour };
  static constexpr const char* kNotTaught = "teach() comes first";

  template <class Pixel, class Export>
  void TeachWith(const Array& image, Model model, const Export& teach) {
    const Source<Pixel> source(image, "image");
    Run([&](NccTool* tool) {
      model_ = Model::kNone;
      if (!teach(source.get(), tool)) throw std::bad_alloc();
      model_ = model;
      width_ = source.width();
      height_ = source.height();
    });
  }

  template <class Pixel, class Export>
  void FindWith(const Array& image, const Search& search, Model model, Export find) {
    const Source<Pixel> source(image, "image");
    Run([&](NccTool* tool) {
      Need(model);
      find(source.get(), tool, search.minScore, search.angleMax, search.angleMin, search.scaleMax,
           search.scaleMin, search.rotate, search.maxResults);
    });
  }

  // A model of the kind that goes with the image.
  void Need(Model model) const {
    if (model_ == model) return;
    if (model_ == Model::kNone) throw py::value_error(kNotTaught);
    const bool colour = model_ == Model::kColour;
    Refuse("image", colour ? "a color image" : "a gray image",
           colour ? "a gray one; the template is a color image"
                  : "a color one; the template is a gray image");
  }

  [[noreturn]] static void RefuseLevel(const NccTool* tool, int level) {
    Refuse("level", "0 to " + std::to_string(IxGet_DefaultPyramidLevel(tool)),
           std::to_string(level));
  }

  Model model_ = Model::kNone;
  int width_ = 0, height_ = 0;  // of the template
};

}  // namespace

void AddNcc(py::module_& module) {
  PYBIND11_NUMPY_DTYPE_EX(NccResult, matchWidth, "width", matchHeight, "height", x, "x", y, "y",
                          angle, "angle", scale, "scale", score, "score");
  py::class_<CorrelationTool> type(module, "NccTool");
  type.def(py::init());
  type.def("close", &CorrelationTool::Close);
  type.def("teach", &CorrelationTool::Teach);
  type.def("teach_roi", &CorrelationTool::TeachRoi);
  type.def("find", [](CorrelationTool& self, const Array& image, double minScore, bool rotate,
                      double angleMin, double angleMax, double scaleMin, double scaleMax,
                      int maxResults) {
    return self.Find(image, {minScore, angleMin, angleMax, scaleMin, scaleMax, rotate, maxResults});
  });
  type.def("results", &CorrelationTool::Results);
  type.def("correlate", &CorrelationTool::Correlate);
  type.def("default_level",
           [](const CorrelationTool& self) { return self.Run(IxGet_DefaultPyramidLevel); });
  type.def("current_level",
           [](const CorrelationTool& self) { return self.Run(IxGet_CurrentPyramidLevel); });
  type.def("set_current_level", &CorrelationTool::SetLevel);
  type.def("level_image", &CorrelationTool::LevelImage);
}

}  // namespace quillon::python
