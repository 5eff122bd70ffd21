// quillon transform: scale, translate and rotate a picture.
#include <memory>

#include "commands.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "options.h"
#include "quillon/quillon.h"

namespace quillon::app {
namespace {

struct Options {
  std::string in, out;
  double scaleX = 1, scaleY = 1, angle = 0;
  int dx = 0, dy = 0;
  bool bilinear = false;
};

void Scale(const Options& options) {
  GreyImage image, scaled;
  ReadImage(options.in, image);
  IxImageScaling(&image, &scaled, options.scaleX, options.scaleY);
  if (!scaled.bits) throw Failure("a scaled side would not have 1 ... 32767 pixels");
  WriteImage(options.out, scaled);
}

void Translate(const Options& options) {
  GreyImage image;
  ReadImage(options.in, image);
  IxImageTranslation(&image, &image, options.dx, options.dy);
  WriteImage(options.out, image);
}

void Rotate(const Options& options) {
  GreyImage image;
  ReadImage(options.in, image);
  const auto rotate = options.bilinear ? IxImageRotationBilinear : IxImageRotation;
  rotate(&image, &image, options.angle);
  WriteImage(options.out, image);
}

void AddTransforms(Command app) {
  auto options = std::make_shared<Options>();
  const Command command = app.Add("transform", "Scale, translate or rotate a picture");
  command.NeedsSubcommand();
  const auto add = [&](const char* name, const char* summary, void (*run)(const Options&)) {
    const Command named = command.Add(name, summary);
    AddPictureToRead(named, "IN", options->in);
    AddPictureToWrite(named, "OUT", options->out);
    named.Runs([run, options] { run(*options); });
    return named;
  };

  const Command scale = add("scale", "Another size, by the nearest pixel", Scale);
  scale.AddOption("--x", options->scaleX, "factor of the width (1)").Positive();
  scale.AddOption("--y", options->scaleY, "factor of the height (1)").Positive();

  const Command translate = add("translate", "Move by whole pixels; black comes after", Translate);
  translate.AddOption("--dx", options->dx, "pixels to the right (0)");
  translate.AddOption("--dy", options->dy, "pixels down (0)");

  const Command rotate = add("rotate", "Turn about the centre; black comes after", Rotate);
  rotate.AddOption("--angle", options->angle, "degrees, clockwise").Required().Finite();
  rotate.AddFlag("--bilinear", options->bilinear, "blend the four nearest pixels");
}

constexpr Operation kOperations[] = {
    {"IxImageScaling", "transform scale IN OUT --x X --y Y", "another size, by the nearest pixel"},
    {"IxImageTranslation", "transform translate IN OUT --dx X --dy Y", "move by whole pixels"},
    {"IxImageRotation", "transform rotate IN OUT --angle A",
     "turn about the centre, nearest pixel"},
    {"IxImageRotationBilinear", "transform rotate IN OUT --angle A --bilinear",
     "turn about the centre, four pixels blended"},
};

}  // namespace

const Family kGeometricTransforms = {"geometric transforms", AddTransforms, kOperations};

}  // namespace quillon::app
