// quillon flatfield: gains for a grey level, made, kept in a file, and applied.
#include <cstdio>
#include <memory>
#include <vector>

#include "commands.h"
#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/images/image_files.h"
#include "kit/report/before_after.h"
#include "options.h"
#include "quillon/quillon.h"

namespace quillon::app {
namespace {

constexpr Operation kOperations[] = {
    {"IxFFCParaBuild", "flatfield build IMAGE PARAMS --target LEVEL", "gains for a target level"},
    {"IxFFCParaLoad", "flatfield apply IN PARAMS OUT", "gains and region of a file"},
    {"IxFFCCalibrate", "flatfield apply IN PARAMS OUT", "corrects a region by the gains"},
};

struct Options {
  std::string image, parameters;
  int target = 0;
  std::vector<int> region;  // x start, x end, y start, y end
  Correction correction;
};

void Build(const Options& options) {
  GreyImage image;
  ReadImage(options.image, image);
  std::vector<int> region = options.region;
  if (region.empty()) region = {0, image.width, 0, image.height};
  if (region[0] >= region[1] || region[2] >= region[3]) {
    throw Failure("--region is empty: columns " + std::to_string(region[0]) + " to " +
                  std::to_string(region[1]) + ", rows " + std::to_string(region[2]) + " to " +
                  std::to_string(region[3]) + " (the ends are not part of it)");
  }
  constexpr size_t kFileSize = 2072;
  ReplaceFile(options.parameters, kFileSize, [&](const std::string& file) {
    IxFFCParaBuild(&image, options.target, region[0], region[1], region[2], region[3],
                   file.c_str());
  });
}

void Apply(const Correction& files) {
  GreyImage image, before;
  ReadImage(files.in, image);
  before.CopyFrom(&image);
  RequireRegularFile(files.parameters);
  int region[4] = {};
  if (!IxFFCParaLoad(&image, region, files.parameters.c_str())) {
    throw Failure("cannot open '" + files.parameters + "'");
  }
  IxFFCCalibrate(&image, region[0], region[1], region[2], region[3]);
  WriteImage(files.out, image);
  if (files.report.empty()) return;
  const Findings findings = {
      .key = "regions",
      .columns = {{"xStart", "first column"},
                  {"xEnd", "end column"},
                  {"yStart", "first row"},
                  {"yEnd", "end row"}},
      .rows = {{int64_t{region[0]}, int64_t{region[1]}, int64_t{region[2]}, int64_t{region[3]}}}};
  WriteBeforeAfter(files.report, "Flat field of " + files.in, before, image, findings);
}

void AddFlatField(Command app) {
  const Command flatField = app.Add("flatfield", "Bring the grey levels of a region to one level");
  flatField.NeedsSubcommand();
  auto options = std::make_shared<Options>();

  const Command build = flatField.Add("build", "Make gains and keep them in a file");
  AddPictureToRead(build, "IMAGE", options->image);
  build.AddFileToWrite("PARAMS", options->parameters, "parameter file to write").Required();
  build.AddOption("--target", options->target, "level that the region is brought to")
      .Required()
      .Within(0, 255);
  build
      .AddOption("--region", options->region,
                 "columns and rows to correct, without the ends (default: the whole picture)")
      .Values(4)
      .ShownAs("XSTART XEND YSTART YEND")
      .Within(0, 32767);
  build.Runs([options] { Build(*options); });

  const Command apply = flatField.Add("apply", "Correct a picture by the gains of a file");
  AddCorrectionArguments(apply, options->correction);
  apply.Runs([options] { Apply(options->correction); });
}

}  // namespace

const Family kFlatField = {"flat field", AddFlatField, kOperations};

}  // namespace quillon::app
