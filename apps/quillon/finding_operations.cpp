// A command for each operation that finds things in a picture: quillon NAME IMAGE, or with what is
// looked for, quillon NAME TEMPLATE IMAGE.
#include <memory>

#include "arguments.h"
#include "commands.h"
#include "kit/images/image_files.h"
#include "options.h"
#include "progress.h"

namespace quillon::app {
namespace {

struct Options {
  std::string image, aside;
  Reading reading;
  Output output;
};

void Run(const Operation& operation, const Options& options, Values values) {
  ReadyOperation ready(operation, std::move(values), {"", options.reading});
  Source image;
  image.Read(options.image, operation.inputs[0], options.reading);
  Content found;
  {
    const Progress progress("searching");
    ready.Run(image.View(), {}, found);
  }
  if (!options.aside.empty()) {
    GreyImage aside;
    ready.Aside(aside);
    WriteImage(options.aside, aside);
  }
  const Searched searched = {options.image, image.View(), operation.output, found.things};
  const Findings findings = ready.Tell(searched);
  Print(options.output, findings);
  if (!options.output.WantsPictures()) return;
  Report report = ready.Page(options.image);
  ready.Draw(searched, 0, report);
  WritePictures(options.output, report, findings);
}

}  // namespace

void AddFindingOperation(Command top, const Operation& operation) {
  auto options = std::make_shared<Options>();
  const auto arguments = std::make_shared<Arguments>(operation);
  const Command command = AddOperation(top, operation);
  arguments->AddByPlace(command);
  AddPictureToRead(command, "IMAGE", options->image);
  AddReadingOptions(command, options->reading);
  arguments->AddOptions(command);
  if (operation.aside.option) {
    command
        .AddFileToWrite(operation.aside.option, options->aside, operation.aside.summary,
                        CheckPictureName)
        .ShownAs("FILE");
  }
  AddOutputOptions(command, options->output);
  command.Runs([&operation, options, arguments] { Run(operation, *options, arguments->Read()); });
}

}  // namespace quillon::app
