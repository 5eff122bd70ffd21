// quillon flatfield: gains for a grey level, made, kept in a file, and applied.
#include <cstdio>
#include <memory>
#include <vector>

#include "before_after.h"
#include "commands.h"
#include "errors.h"
#include "image_files.h"
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
  if (!IxFFCParaBuild(&image, options.target, region[0], region[1], region[2], region[3],
                      options.parameters.c_str())) {
    throw Failure("cannot write '" + options.parameters + "'");
  }
}

void Apply(const Correction& files) {
  GreyImage image, before;
  ReadImage(files.in, image);
  before.CopyFrom(&image);
  int region[4];
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

void AddFlatField(CLI::App& app) {
  CLI::App* flatField =
      app.add_subcommand("flatfield", "Bring the grey levels of a region to one level");
  flatField->require_subcommand(1);
  auto options = std::make_shared<Options>();

  CLI::App* build = flatField->add_subcommand("build", "Make gains and keep them in a file");
  AddPictureToRead(*build, "IMAGE", options->image);
  build->add_option("PARAMS", options->parameters, "parameter file to write")->required();
  build->add_option("--target", options->target, "level that the region is brought to")
      ->required()
      ->check(CLI::Range(0, 255));
  build
      ->add_option("--region", options->region,
                   "columns and rows to correct, without the ends (default: the whole picture)")
      ->expected(4)
      ->type_name("XSTART XEND YSTART YEND")
      ->check(CLI::Range(0, 32767));
  build->callback([options] { Build(*options); });

  CLI::App* apply = flatField->add_subcommand("apply", "Correct a picture by the gains of a file");
  AddCorrectionArguments(*apply, options->correction);
  apply->callback([options] { Apply(options->correction); });
}

}  // namespace

const Family kFlatField = {"flat field", AddFlatField, kOperations};

}  // namespace quillon::app
