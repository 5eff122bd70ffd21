// A camera and its lens, from pictures of a chessboard; its light, from pictures of dark and white.
#include "kit/calibration/camera.h"
#include "kit/calibration/rectifier.h"
#include "kit/calibration/shading.h"

#include <pybind11/stl.h>

#include <array>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "arguments.h"
#include "arrays.h"
#include "families.h"
#include "kit/files/files.h"

namespace quillon::python {
namespace {

using Points = py::array_t<double, py::array::c_style | py::array::forcecast>;  // (n, 2)

// The names by which sources know the pictures of a list.
std::vector<std::string> AddAll(GivenPictures& given, const std::string& argument,
                                const py::list& images) {
  std::vector<std::string> names;
  for (const auto& image : images) {
    names.push_back(given.Add(argument + "[" + std::to_string(names.size()) + "]",
                              py::reinterpret_borrow<py::object>(image)));
  }
  return names;
}

// The text of the camera file that pictures and files lead to.
std::string FitChessboards(const py::list& images, double square,
                           const std::optional<std::pair<int, int>>& corners, size_t plane,
                           double maxRms) {
  GivenPictures given;
  const std::vector<std::string> names = AddAll(given, "images", images);
  const kit::BoardSize board =
      corners ? kit::BoardSize{corners->first, corners->second} : kit::kAnyBoard;
  auto text = Unlocked([&] {
    std::vector<kit::BoardView> views;
    kit::PictureSize size;
    for (const std::string& name : names) {
      GreyImage image;
      given.Sources().Read(name, image);
      if (views.empty()) size = {image.width, image.height};
      kit::RequirePictureSize("the pictures before '" + name, size, image);
      views.push_back(kit::ViewOfChessboard(name, image, board));
    }
    kit::Camera camera = kit::FitCamera(views, size);
    camera.square = square;
    camera.unit = "mm";
    camera.plane = camera.views[plane].place;
    kit::RequireResidualsWithin(maxRms, camera, views);
    return kit::CameraText(camera, views);
  });
  given.TellNotes();
  return text;
}

// Writes a shading file; returns (x, y, dark, white) of each dead pixel.
py::array_t<double> FitShading(const py::object& name, const py::list& dark, const py::list& white,
                               int target, int mostDead) {
  const std::string path = FileNameOf(name);
  GivenPictures given;
  const std::vector<std::string> darkNames = AddAll(given, "dark", dark);
  const std::vector<std::string> whiteNames = AddAll(given, "white", white);
  const kit::ShadingFit fit = Unlocked([&] {
    const auto mean = [&](const std::vector<std::string>& pictures) {
      kit::MeanPicture sum;
      GreyImage image;
      for (const std::string& picture : pictures) {
        given.Sources().Read(picture, image);
        sum.Add(picture, image);
      }
      return sum;
    };
    const kit::MeanPicture darkMean = mean(darkNames);
    kit::ShadingFit fitted =
        kit::FitShading(darkMean, mean(whiteNames), {.target = target, .mostDead = mostDead});
    kit::WriteFile(path, kit::ShadingText(fitted.shading));
    return fitted;
  });
  given.TellNotes();
  py::array_t<double> dead({static_cast<py::ssize_t>(fit.dead.size()), py::ssize_t{4}});
  double* to = dead.mutable_data();
  for (const kit::DeadPixel& pixel : fit.dead) {
    for (const double value : {double(pixel.x), double(pixel.y), pixel.dark, pixel.white}) {
      *to++ = value;
    }
  }
  return dead;
}

class Camera {
 public:
  Camera(std::string text, const py::object& name)
      : name_(FileNameOf(name)), text_(std::move(text)), camera_(kit::ParseCamera(name_, text_)) {}

  static std::unique_ptr<Camera> Load(const py::object& name) {
    const std::string path = FileNameOf(name);
    return std::make_unique<Camera>(Unlocked([&] { return kit::ReadFile(path); }), name);
  }

  void Save(const py::object& name) const {
    const std::string path = FileNameOf(name);
    Unlocked([&] { kit::WriteFile(path, text_); });
  }

  py::array Rectify(const Array& picture, const py::object& out, const py::object& layout) {
    const Delivery delivery = ReadDelivery(out, layout);
    const Source<unsigned char> source(picture, "image");
    auto result = std::make_unique<GreyImage>();
    Unlocked([&] { Flat().Apply(*source.get(), *result); });
    return Deliver(std::move(result), delivery);
  }

  double UnitPerPixel() const { return kit::UnitPerPixel(camera_); }

  // From places in pictures to the plane in millimetres, and back.
  py::array ToPlane(const Points& points) const {
    return Each(points, [this](kit::Point at) {
      const kit::Point place = kit::PlaceInPlane(camera_, at);
      return kit::Point{place.x * camera_.square, place.y * camera_.square};
    });
  }
  py::array FromPlane(const Points& points) const {
    return Each(points, [this](kit::Point at) {
      const kit::Point seen = camera_.plane.Seen(at.x / camera_.square, at.y / camera_.square);
      return camera_.lens.Project(seen.x, seen.y);
    });
  }

  // Where columns and rows of a board that lies so are seen.
  py::array Project(const std::array<double, 3>& rotation, const std::array<double, 3>& shift,
                    const Points& corners) const {
    const kit::BoardPlace place = {rotation, shift};
    return Each(corners, [&](kit::Point at) {
      const kit::Point seen = place.Seen(at.x, at.y);
      return camera_.lens.Project(seen.x, seen.y);
    });
  }

  const std::string& Text() const { return text_; }

 private:
  template <class Work>
  static py::array Each(const Points& points, const Work& work) {
    Points results({points.shape(0), py::ssize_t{2}});
    const double* from = points.data();
    double* to = results.mutable_data();
    const auto end = from + points.size();
    Unlocked([&] {
      for (; from != end; from += 2, to += 2) {
        const kit::Point result = work({from[0], from[1]});
        to[0] = result.x;
        to[1] = result.y;
      }
    });
    return results;
  }

  // Where each pixel comes from is worked out for the first picture.
  const kit::Rectifier& Flat() {
    const std::lock_guard lock(mutex_);
    if (!rectifier_) rectifier_.emplace(name_, camera_);
    return *rectifier_;
  }

  std::string name_, text_;
  kit::Camera camera_;
  std::mutex mutex_;
  std::optional<kit::Rectifier> rectifier_;
};

}  // namespace

void AddCamera(py::module_& module) {
  module.def("fit_chessboards", FitChessboards);
  module.def("fit_shading", FitShading);
  py::class_<Camera>(module, "Camera")
      .def(py::init<std::string, const py::object&>())
      .def_static("load", &Camera::Load)
      .def("save", &Camera::Save)
      .def("rectify", &Camera::Rectify)
      .def("unit_per_pixel", &Camera::UnitPerPixel)
      .def("to_plane", &Camera::ToPlane)
      .def("from_plane", &Camera::FromPlane)
      .def("project", &Camera::Project)
      .def("text", &Camera::Text);
}

}  // namespace quillon::python
