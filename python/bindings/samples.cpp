// Drawn pictures of known content, as `quillon sample` draws them.
#include "kit/samples/dot_grid.h"
#include "kit/samples/sample_board.h"
#include "kit/samples/tray.h"

#include <utility>
#include <vector>

#include "arrays.h"
#include "families.h"

namespace quillon::python {
namespace {

template <class Pixel>
py::array Drawn(CImage<Pixel>& image) {
  if (!image.bits) throw std::bad_alloc();
  return ToArray(Take(image));
}

py::tuple Tray(uint32_t seed, std::pair<int, int> shape) {
  ColourImage image;
  std::vector<kit::DrawnPart> parts;
  Unlocked([&] { kit::DrawTray(seed, shape.second, shape.first, image, parts); });
  py::list truth;
  for (const kit::DrawnPart& part : parts) {
    truth.append(py::make_tuple(part.kind, part.area, part.x, part.y, part.degrees, part.left,
                                part.top, part.right, part.bottom));
  }
  return py::make_tuple(Drawn(image), truth);
}

py::tuple DotGrid(std::pair<int, int> shape) {
  GreyImage image;
  std::vector<kit::Point> centres;
  Unlocked([&] { kit::DrawDotGrid(shape.second, shape.first, image, centres); });
  py::list points;
  for (const kit::Point& centre : centres) points.append(py::make_tuple(centre.x, centre.y));
  return py::make_tuple(Drawn(image), points);
}

// With up to `count` defects: none shows the board as it should be.
py::tuple Board(uint32_t seed, std::pair<int, int> shape, int count, double x, double y,
                double degrees, double stretchX, double stretchY) {
  GreyImage image;
  std::vector<kit::DrawnDefect> defects;
  Unlocked([&] {
    const kit::BoardPose pose = {x, y, degrees, stretchX, stretchY};
    const kit::SampleBoard board(seed, shape.second, shape.first);
    if (count > 0) {
      defects = board.DrawTested(count, image, pose);
    } else {
      board.DrawGood(image, pose);
    }
  });
  py::list truth;
  for (const kit::DrawnDefect& defect : defects) {
    truth.append(py::make_tuple(defect.name, defect.left, defect.top, defect.right, defect.bottom));
  }
  return py::make_tuple(Drawn(image), truth);
}

}  // namespace

void AddSamples(py::module_& module) {
  module.def("draw_tray", Tray);
  module.def("draw_bracket", [] {
    ColourImage image;
    kit::DrawBracket(image);
    return Drawn(image);
  });
  module.def("draw_dot_grid", DotGrid);
  module.def("draw_board", Board);
}

}  // namespace quillon::python
