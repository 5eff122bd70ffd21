// quillon gray: a picture in grey.
#include <memory>

#include "commands.h"
#include "kit/images/image_files.h"
#include "options.h"
#include "quillon/quillon.h"

namespace quillon::app {
namespace {

constexpr Operation kOperations[] = {
    {"IxColorToGray", "gray IN OUT", "grey of a colour picture"},
};

void AddGray(Command app) {
  struct Options {
    std::string in, out;
  };
  auto options = std::make_shared<Options>();
  const Command command = app.Add("gray", "Convert a colour picture to grey");
  AddPictureToRead(command, "IN", options->in);
  AddPictureToWrite(command, "OUT", options->out);
  command.Runs([options] {
    GreyImage image;
    ReadImage(options->in, image);
    WriteImage(options->out, image);
  });
}

}  // namespace

const Family kGrey = {"colour to grey", AddGray, kOperations};

}  // namespace quillon::app
