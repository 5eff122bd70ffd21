// quillon threshold, quillon otsu: a black and white picture.
#include <memory>

#include "commands.h"
#include "image_files.h"
#include "options.h"
#include "quillon/quillon.h"

namespace quillon::app {
namespace {

constexpr Operation kOperations[] = {
    {"IxThreshold", "threshold IN OUT --above LEVEL", "white above a level"},
    {"IxDoubleThreshold", "threshold IN OUT --between LOW HIGH", "white strictly within a band"},
    {"IxOtsuThreshold", "otsu IN OUT", "white above the level that separates dark and bright best"},
};

void AddThresholds(CLI::App& app) {
  struct Options {
    std::string in, out;
    int above = 0;
    std::vector<int> between;
  };
  auto options = std::make_shared<Options>();
  const auto addFiles = [&](CLI::App* command) {
    AddPictureToRead(*command, "IN", options->in);
    AddPictureToWrite(*command, "OUT", options->out);
    return command;
  };

  CLI::App* fixed = addFiles(
      app.add_subcommand("threshold", "White where the grey value is above a level or in a band"));
  auto* rule = fixed->add_option_group("rule")->require_option(1);
  rule->add_option("--above", options->above, "white above this level")->check(CLI::Range(0, 255));
  rule->add_option("--between", options->between, "white strictly between LOW and HIGH")
      ->expected(2)
      ->type_name("LOW HIGH")
      ->check(CLI::Range(0, 255));
  fixed->callback([options] {
    GreyImage image;
    ReadImage(options->in, image);
    if (options->between.empty()) {
      IxThreshold(&image, options->above);
    } else {
      IxDoubleThreshold(&image, options->between[0], options->between[1]);
    }
    WriteImage(options->out, image);
  });

  CLI::App* otsu = addFiles(
      app.add_subcommand("otsu", "White above the level that separates dark from bright best"));
  otsu->callback([options] {
    GreyImage image;
    ReadImage(options->in, image);
    IxOtsuThreshold(&image);
    WriteImage(options->out, image);
  });
}

}  // namespace

const Family kThresholds = {"thresholds", AddThresholds, kOperations};

}  // namespace quillon::app
