// quillon threshold, quillon otsu: a black and white picture.
#include <memory>

#include "commands.h"
#include "kit/images/image_files.h"
#include "options.h"
#include "quillon/quillon.h"

namespace quillon::app {
namespace {

constexpr Operation kOperations[] = {
    {"IxThreshold", "threshold IN OUT --above LEVEL", "white above a level"},
    {"IxDoubleThreshold", "threshold IN OUT --between LOW HIGH", "white strictly within a band"},
    {"IxOtsuThreshold", "otsu IN OUT", "white above the level that separates dark and bright best"},
};

void AddThresholds(Command app) {
  struct Options {
    std::string in, out;
    int above = 0;
    std::vector<int> between;
  };
  auto options = std::make_shared<Options>();
  const auto addFiles = [&](Command command) {
    AddPictureToRead(command, "IN", options->in);
    AddPictureToWrite(command, "OUT", options->out);
    return command;
  };

  const Command fixed =
      addFiles(app.Add("threshold", "White where the grey value is above a level or in a band"));
  const Command rule = fixed.AddChoice("rule");
  rule.AddOption("--above", options->above, "white above this level").Within(0, 255);
  rule.AddOption("--between", options->between, "white strictly between LOW and HIGH")
      .Values(2)
      .ShownAs("LOW HIGH")
      .Within(0, 255);
  fixed.Runs([options] {
    GreyImage image;
    ReadImage(options->in, image);
    if (options->between.empty()) {
      IxThreshold(&image, options->above);
    } else {
      IxDoubleThreshold(&image, options->between[0], options->between[1]);
    }
    WriteImage(options->out, image);
  });

  const Command otsu =
      addFiles(app.Add("otsu", "White above the level that separates dark from bright best"));
  otsu.Runs([options] {
    GreyImage image;
    ReadImage(options->in, image);
    IxOtsuThreshold(&image);
    WriteImage(options->out, image);
  });
}

}  // namespace

const Family kThresholds = {"thresholds", AddThresholds, kOperations};

}  // namespace quillon::app
