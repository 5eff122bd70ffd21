// Edge-based matching.
#include <utility>
#include <vector>

#include "families.h"
#include "handle.h"
#include "results.h"

namespace quillon::python {
namespace {

struct ModelPoint {
  int32_t x, y, gradientX, gradientY;
  double inverseMagnitude;
};

class OutlineTool : public Handle<GeoMatchTool, IxCreateGeoTool, IxDestroyMatchModel> {
 public:
  OutlineTool() : Handle("GeoMatchTool") {}

  void Teach(const Array& image, double high, double low) {
    const Source<unsigned char> source(image, "image");
    Run([&](GeoMatchTool* tool) {
      if (!IxCreateGeoMatchModel(source.get(), tool, high, low)) throw std::bad_alloc();
      taught_ = true;
    });
  }

  py::tuple Find(const Array& image, double minScore, double greediness, bool angleSearch,
                 double lowestAngle, double highestAngle, std::pair<int, int> start) const {
    const Source<unsigned char> source(image, "image");
    int position[2] = {start.first, start.second};
    const double angle = RunShared([&](const GeoMatchTool* tool) {
      NeedModel();
      return IxFindGeoMatchModel(source.get(), tool, minScore, greediness, position, highestAngle,
                                 lowestAngle, angleSearch);
    });
    return Named("GeoMatch", position[0], position[1], angle);
  }

  py::tuple Model() const {
    GeoModelLevel level;
    const auto points = RunShared([&](const GeoMatchTool* tool) {
      NeedModel();
      level = *tool->model;
      std::vector<ModelPoint> copied;
      copied.reserve(static_cast<size_t>(level.count));
      for (int i = 0; i < level.count; ++i) {
        copied.push_back({level.x[i], level.y[i], level.gradientX[i], level.gradientY[i],
                          level.inverseMagnitude[i]});
      }
      return copied;
    });
    return Named("GeoModel", py::array_t<ModelPoint>(points.size(), points.data()), level.width,
                 level.height, Named("Point", level.referenceX, level.referenceY), level.radius);
  }

 private:
  void NeedModel() const {
    if (!taught_) throw py::value_error("teach() comes first");
  }

  bool taught_ = false;
};

}  // namespace

void AddGeoMatch(py::module_& module) {
  PYBIND11_NUMPY_DTYPE_EX(ModelPoint, x, "x", y, "y", gradientX, "gradient_x", gradientY,
                          "gradient_y", inverseMagnitude, "inverse_magnitude");
  py::class_<OutlineTool> type(module, "GeoMatchTool",
                               R"(A template's edges, found in other images whatever the contrast.

    with quillon.GeoMatchTool() as tool:
        tool.teach(template, high=60, low=20)
        x, y, angle = tool.find(image, 0.7, angle_search=True)

Several searches may run at a time.)");
  type.def(py::init(), "A tool without a template.");
  DefineClosing(type);
  type.def("teach", &OutlineTool::Teach, py::arg("image"), py::arg("high"), py::arg("low"),
           R"(Takes the edge points of a gray image as the template, in place of an earlier one.

Of the greatest gradient as 255, an edge point has `high`, or `low` beside one that has `high`.)");
  type.def("find", &OutlineTool::Find, py::arg("image"), py::arg("min_score") = 0.7,
           py::arg("greediness") = 0.5, py::kw_only(), py::arg("angle_search") = false,
           py::arg("lowest_angle") = -180.0, py::arg("highest_angle") = 180.0,
           py::arg("position") = std::pair(0, 0),
           R"(Where the template's reference point is, (x, y), and its angle in degrees.

Positive angles turn clockwise as displayed; without `angle_search` the angle is 0. Greediness
near 1 is fastest, near 0 nothing good is missed. Where nothing is above score 0, the place stays
`position`.)");
  type.def_property_readonly(
      "model", &OutlineTool::Model,
      "The template: its edge points as a structured array, size, reference point and radius.");
}

}  // namespace quillon::python
