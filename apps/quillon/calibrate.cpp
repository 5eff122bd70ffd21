// quillon calibrate-flat-field, calibrate-lens: parameter files for the corrections.
#include <memory>
#include <vector>

#include "commands.h"
#include "kit/calibration/flat_field.h"
#include "kit/calibration/lens.h"
#include "kit/images/image_files.h"
#include "options.h"

namespace quillon::app {
namespace {

struct Options {
  std::string source, parameters;
  Reading reading;
  int target = 0;
  std::vector<int> region;   // x start, x end, y start, y end
  std::vector<double> step;  // across, and down where it differs
};

void CalibrateFlatField(const Options& options) {
  GreyImage image;
  ReadImage(options.source, image, options.reading);
  std::vector<int> region = options.region;
  if (region.empty()) region = {0, image.width, 0, image.height};
  if (region[0] >= region[1] || region[2] >= region[3]) {
    throw Failure("--region is empty: columns " + std::to_string(region[0]) + " to " +
                  std::to_string(region[1]) + ", rows " + std::to_string(region[2]) + " to " +
                  std::to_string(region[3]) + " (the ends are not part of it)");
  }
  MakeFlatField(image, options.target, {region[0], region[1], region[2], region[3]},
                options.parameters);
}

}  // namespace

void AddCalibration(Command top) {
  constexpr const char* kHeading = "calibration";
  auto options = std::make_shared<Options>();
  const auto addParameters = [&](Command command) {
    command.AddFileToWrite("PARAMS", options->parameters, "parameter file to write").Required();
  };

  const Command flatField =
      top.Add("calibrate-flat-field", "Make gains that bring a region to one grey level")
          .Under(kHeading);
  AddPictureToRead(flatField, "IMAGE", options->source);
  AddReadingOptions(flatField, options->reading);
  addParameters(flatField);
  flatField.AddOption("--target", options->target, "level that the region is brought to")
      .Required()
      .Within(0, 255);
  flatField
      .AddOption("--region", options->region,
                 "columns and rows to correct, without the ends (default: the whole picture)")
      .Values(4)
      .ShownAs("XSTART XEND YSTART YEND")
      .Within(0, 32767);
  flatField.Runs([options] { CalibrateFlatField(*options); });

  const Command lens =
      top.Add("calibrate-lens", "Fit the bend of a lens to the points of a square grid")
          .Under(kHeading);
  lens.AddFileToRead("POINTS", options->source,
                     "lines x,y: an odd number of points a side, row by row from the top left")
      .Required();
  addParameters(lens);
  lens.AddOption("--step", options->step,
                 "pixels from point to point in corrected pictures: one number, or across and down")
      .Required()
      .Values(1, 2)
      .ShownAs("PIXELS")
      .Within(1.0, 10000.0);
  lens.Runs([options] {
    FitLens(options->source, {options->step.front(), options->step.back()}, options->parameters);
  });
}

}  // namespace quillon::app
