// Calibrating a camera for JavaScript: the board in each picture, then the fit over all of them,
// with the file that quillon calibrate writes.
#include "kit/calibration/camera.h"
#include "bindings.h"
#include "kit/errors.h"
#include "quillon/quillon.h"

namespace quillon::web {
namespace {

using kit::Json;

Json ToJson(const std::vector<kit::Point>& points) {
  Json json = Json::array();
  for (const kit::Point& point : points) json.push_back({point.x, point.y});
  return json;
}

kit::BoardView ViewOf(const Json& json) {
  kit::BoardView view = {json.at("name"), {}};
  for (const Json& corner : json.at("corners")) {
    view.points.push_back({{corner.at(2), corner.at(3)}, corner.at(0), corner.at(1)});
  }
  return view;
}

Json Fit(const Json& given) {
  std::vector<kit::BoardView> views;
  for (const Json& view : given.at("views")) views.push_back(ViewOf(view));
  kit::Camera camera = FitCamera(views, {given.at("width"), given.at("height")});
  camera.square = given.at("square");
  camera.unit = "mm";
  Json fitted = Json::array();
  for (const kit::FittedView& view : camera.views) {
    fitted.push_back({{"rms", view.rms}, {"worst", view.worst}, {"fitted", ToJson(view.fitted)}});
  }
  Json doubt;
  try {
    RequireResidualsWithin(kit::kMostResiduals, camera, views);
  } catch (const kit::Failure& failure) {
    doubt = failure.what();
  }
  return {{"rms", camera.rms},
          {"worst", camera.worst},
          {"doubt", std::move(doubt)},
          {"mmPerPixel", UnitPerPixel(camera)},
          {"file", CameraText(camera, views)},
          {"views", std::move(fitted)}};
}

}  // namespace

// {"corners": [[column, row, x, y] ...]}, of a board with so many inner corners.
QUILLON_WEB const Reply* KitFindBoard(const void* image, bool isColour, const char* name,
                                      int columns, int rows) {
  return Answer([&] {
    GreyImage made;
    if (isColour) IxColorToGray(static_cast<const ColourImage*>(image), &made);
    const kit::BoardView view =
        kit::ViewOfChessboard(name, isColour ? made : *static_cast<const GreyImage*>(image),
                              {.columns = columns, .rows = rows});
    Json corners = Json::array();
    for (const kit::BoardPoint& point : view.points) {
      corners.push_back({point.column, point.row, point.at.x, point.at.y});
    }
    return Json{{"corners", std::move(corners)}};
  });
}

// Fits the camera to views as KitFindBoard found them; its file is among what is told. The first
// view's board lies where is measured.
QUILLON_WEB const Reply* KitFitCamera(const char* given) {
  return Answer([&] { return Fit(Json::parse(given)); });
}

}  // namespace quillon::web
