// quillon gray: a picture in grey.
#include <memory>

#include "commands.h"
#include "image_files.h"
#include "options.h"
#include "quillon/quillon.h"

namespace quillon::app {
namespace {

constexpr Operation kOperations[] = {
    {"IxColorToGray", "gray IN OUT", "grey of a colour picture"},
};

void AddGray(CLI::App& app) {
  struct Options {
    std::string in, out;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("gray", "Convert a colour picture to grey");
  AddPictureToRead(*command, "IN", options->in);
  AddPictureToWrite(*command, "OUT", options->out);
  command->callback([options] {
    GreyImage image;
    ReadImage(options->in, image);
    WriteImage(options->out, image);
  });
}

}  // namespace

const Family kGrey = {"colour to grey", AddGray, kOperations};

}  // namespace quillon::app
