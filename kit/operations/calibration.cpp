// Flat field and lens correction, by parameter files that `quillon flatfield build` and `quillon
// undistort build` made.
#include "kit/calibration/lens.h"
#include "kit/errors.h"
#include "kit/operations/operation.h"

namespace quillon::kit {
namespace {

// The gains stay with the picture object, whatever pixels it gets.
struct FlatField : Tool {
  GreyImage image;
  int region[4] = {};  // first column, end, first row, end
};

std::unique_ptr<Tool> LoadFlatField(const Values& values, const std::string& folder) {
  const std::string path = InFolder(folder, values.Text("parameters"));
  auto field = std::make_unique<FlatField>();
  if (!IxFFCParaLoad(&field->image, field->region, path.c_str())) {
    throw Failure("cannot open '" + path + "'");
  }
  return field;
}

void CorrectField(const Call& call) {
  auto& [image, region] = static_cast<FlatField&>(*call.tool);
  image.CopyFrom(&call.a.picture);
  IxFFCCalibrate(&image, region[0], region[1], region[2], region[3]);
  call.result.picture.CopyFrom(&image);
}

struct Lens : Tool {
  explicit Lens(const std::string& path) : correction(path) {}
  LensCorrection correction;
};

std::unique_ptr<Tool> LoadLens(const Values& values, const std::string& folder) {
  return std::make_unique<Lens>(InFolder(folder, values.Text("parameters")));
}

void CorrectLens(const Call& call) {
  static_cast<Lens&>(*call.tool).correction.Apply(call.a.picture, call.result.picture);
}

}  // namespace

std::vector<RecipeOperation> CalibrationOperations() {
  constexpr std::array<Kind, 2> kPicture = {Kind::kPicture, Kind::kNone};
  return {
      {.name = "flat-field",
       .family = "calibration",
       .summary = "evens out brightness by the gains of a file",
       .inputs = kPicture,
       .output = Kind::kPicture,
       .arguments = {File("parameters", "made by quillon flatfield build")},
       .run = CorrectField,
       .prepare = LoadFlatField},
      {.name = "undistort",
       .family = "calibration",
       .summary = "takes the bend of a lens out; what lies outside the grid becomes black",
       .inputs = kPicture,
       .output = Kind::kPicture,
       .arguments = {File("parameters", "made by quillon undistort build")},
       .run = CorrectLens,
       .prepare = LoadLens,
       .movesPixels = true},
  };
}

}  // namespace quillon::kit
