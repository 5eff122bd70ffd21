// Flat field, shading and lens correction, by parameter files that were made before.
#include <optional>

#include "kit/calibration/camera.h"
#include "kit/calibration/flat_field.h"
#include "kit/calibration/lens.h"
#include "kit/calibration/rectifier.h"
#include "kit/calibration/shading.h"
#include "kit/operations/operation.h"

namespace quillon::kit {
namespace {

// A correction by the file that the argument `parameters` names.
template <class Correction>
struct CorrectionTool : Tool {
  CorrectionTool(const std::string& path, const Note& note) : correction(path, note) {}
  std::vector<Detail> Details() const override;
  Correction correction;
};

template <>
std::vector<Detail> CorrectionTool<FlatFieldCorrection>::Details() const {
  const auto [firstColumn, endColumn, firstRow, endRow] = correction.Region();
  return {{"xStart", "first column", double(firstColumn)},
          {"xEnd", "end column", double(endColumn)},
          {"yStart", "first row", double(firstRow)},
          {"yEnd", "end row", double(endRow)}};
}

template <>
std::vector<Detail> CorrectionTool<ShadingCorrection>::Details() const {
  const Shading& shading = correction.Parameters();
  return {{"target", "white becomes", double(shading.target)},
          {"dead", "dead pixels", double(shading.DeadCount())}};
}

template <>
std::vector<Detail> CorrectionTool<LensCorrection>::Details() const {
  const GreyImage& map = correction.Map();
  return {
      {"xMin", "left", double(map.xMin)},           {"yMin", "top", double(map.yMin)},
      {"xMax", "right", double(map.xMax)},          {"yMax", "bottom", double(map.yMax)},
      {"centreX", "centre x", double(map.centreX)}, {"centreY", "centre y", double(map.centreY)}};
}

template <class Correction>
std::unique_ptr<Tool> Load(const Values& values, const Sources& sources) {
  return std::make_unique<CorrectionTool<Correction>>(sources.File(values.Text("parameters")),
                                                      sources.reading.note);
}

template <class Correction>
void Correct(const Call& call) {
  auto& tool = static_cast<CorrectionTool<Correction>&>(*call.tool);
  tool.correction.Apply(*call.a.grey, call.result.picture);
}

// What takes pictures to the plane is as large as they are: it is made for the first one that is of
// the size that the file says.
struct CameraTool : Tool {
  explicit CameraTool(const std::string& file) : path(file), camera(ReadCamera(file)) {}
  std::vector<Detail> Details() const override {
    return {{kScaleDetail, "mm per pixel", UnitPerPixel(camera)}};
  }
  void Apply(const GreyImage& image, GreyImage& rectified) {
    RequirePictureSize(path, camera.size, image);
    if (!rectifier) rectifier.emplace(path, camera);
    rectifier->Apply(image, rectified);
  }

  std::string path;
  Camera camera;
  std::optional<Rectifier> rectifier;
};

std::unique_ptr<Tool> LoadCamera(const Values& values, const Sources& sources) {
  return std::make_unique<CameraTool>(sources.File(values.Text("parameters")));
}

void Rectify(const Call& call) {
  static_cast<CameraTool&>(*call.tool).Apply(*call.a.grey, call.result.picture);
}

}  // namespace

std::vector<Operation> CalibrationOperations() {
  constexpr const char* kFamily = "calibration";
  return {
      {.name = "flat-field",
       .family = kFamily,
       .summary = "evens out brightness by the gains of a file",
       .arguments = {File("parameters", "made by quillon calibrate-flat-field")
                         .Holding(Argument::Holds::kParameters)},
       .exports = {{"IxFFCParaLoad", "gains and region of a file"},
                   {"IxFFCCalibrate", "corrects a region by the gains"}},
       .run = Correct<FlatFieldCorrection>,
       .prepare = Load<FlatFieldCorrection>},
      {.name = "shading",
       .family = kFamily,
       .summary = "evens out light and pixels by the camera's pictures of dark and of white",
       .arguments = {File("parameters", "made by quillon calibrate-shading")
                         .Holding(Argument::Holds::kParameters)},
       .run = Correct<ShadingCorrection>,
       .prepare = Load<ShadingCorrection>},
      {.name = "undistort",
       .family = kFamily,
       .summary = "takes the bend of a lens out; what lies outside the grid becomes black",
       .arguments = {File("parameters", "made by quillon calibrate-lens")
                         .Holding(Argument::Holds::kParameters)},
       .exports = {{"IxDistortionParaLoad", "the fit of a file"},
                   {"IxDistortionPreCalculate", "where each pixel comes from"},
                   {"IxDistortionCalibrate", "a picture without the bend"}},
       .run = Correct<LensCorrection>,
       .prepare = Load<LensCorrection>,
       .movesPixels = true},
      {.name = "rectify",
       .family = kFamily,
       .summary =
           "the plane that was calibrated, from straight above: without the bend of the lens "
           "and the slant of the camera",
       .arguments =
           {File("parameters", "made by quillon calibrate").Holding(Argument::Holds::kParameters)},
       .run = Rectify,
       .prepare = LoadCamera,
       .movesPixels = true,
       .knowsScale = true},
  };
}

}  // namespace quillon::kit
