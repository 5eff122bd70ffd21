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
  py::class_<OutlineTool> type(module, "GeoMatchTool");
  type.def(py::init());
  type.def("close", &OutlineTool::Close);
  type.def("teach", &OutlineTool::Teach);
  type.def("find", &OutlineTool::Find);
  type.def("model", &OutlineTool::Model);
}

}  // namespace quillon::python
