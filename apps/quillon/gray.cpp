// quillon gray: a picture in grey.
#include <memory>

#include "commands.h"
#include "image_files.h"
#include "quillon/quillon.h"

namespace quillon::app {

void AddGray(CLI::App& app) {
  struct Options {
    std::string in, out;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("gray", "Convert a colour picture to grey");
  command->add_option("IN", options->in, "picture to read (PNG, JPEG, BMP, PGM)")->required();
  command->add_option("OUT", options->out, "picture to write (.png, .bmp)")->required();
  command->callback([options] {
    GreyImage image;
    ReadImage(options->in, image);
    WriteImage(options->out, image);
  });
}

}  // namespace quillon::app
