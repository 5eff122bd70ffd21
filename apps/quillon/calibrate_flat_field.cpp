// quillon calibrate-flat-field: gains that bring a region to one grey level.
#include <memory>
#include <vector>

#include "commands.h"
#include "kit/calibration/flat_field.h"
#include "kit/images/image_files.h"
#include "options.h"

namespace quillon::app {
namespace {

struct Options {
  std::string source, parameters;
  Reading reading;
  int target = 0;
  std::vector<int> region;  // x start, x end, y start, y end
};

void Run(const Options& options) {
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

void AddFlatFieldCalibration(Command top) {
  auto options = std::make_shared<Options>();
  const Command command =
      top.Add("calibrate-flat-field", "Make gains that bring a region to one grey level")
          .Under("calibration");
  AddPictureToRead(command, "IMAGE", options->source);
  AddReadingOptions(command, options->reading);
  command.AddFileToWrite("PARAMS", options->parameters, "parameter file to write").Required();
  command.AddOption("--target", options->target, "level that the region is brought to")
      .Required()
      .Within(1, 255);  // level 0 would make black pictures
  command
      .AddOption("--region", options->region,
                 "columns and rows to correct, without the ends (default: the whole picture)")
      .Values(4)
      .ShownAs("XSTART XEND YSTART YEND")
      .Within(0, 32767);
  command.Runs([options] { Run(*options); });
}

}  // namespace quillon::app
