// quillon teach TEMPLATE MODEL: what the finder needs of a part, as one file.
#include <memory>

#include "commands.h"
#include "kit/images/image_files.h"
#include "kit/search/part_search.h"
#include "options.h"

namespace quillon::app {
namespace {

struct Options {
  std::string pattern, model, mask, way = kByEdges;
  Reading reading;
  Output output;
};

void Teach(const Options& options) {
  GreyImage pattern, mask;
  ReadImage(options.pattern, pattern, options.reading);
  if (!options.mask.empty()) ReadImage(options.mask, mask, options.reading);
  const PartModel model = TeachPart(options.pattern, pattern, WayNamed(options.way),
                                    options.mask.empty() ? nullptr : &mask);
  WritePart(options.model, *model);
  Findings findings{.key = "doubts",
                    .facts = {{"by", "Taught by", options.way},
                              {"width", "Width", int64_t{model->width}},
                              {"height", "Height", int64_t{model->height}},
                              {"levels", "Levels", int64_t{model->levels}},
                              {"likeness", "Score of its best false place", model->likeness}},
                    .columns = {{"doubt", "doubt"}},
                    .rows = {}};
  for (const std::string& doubt : DoubtsOf(*model)) findings.rows.push_back({doubt});
  Print(options.output, findings);
}

}  // namespace

void AddTeach(Command top) {
  auto options = std::make_shared<Options>();
  const Command command =
      top.Add("teach", "Teach a part for find, once, and say what is doubtful about it")
          .Under("matching");
  AddPictureToRead(command, "TEMPLATE", options->pattern);
  command.AddFileToWrite("MODEL", options->model, "the model to write").Required();
  AddReadingOptions(command, options->reading);
  command.AddOption("--by", options->way, "look at directions of edges, or at grey values")
      .ShownAs("NAME")
      .OneOf({kByEdges, kByGray})
      .DefaultShown(kByEdges);
  command.AddFileToRead("--mask", options->mask,
                        "a picture of the same size, black where the template does not count");
  AddFormatOptions(command, options->output);
  command.Runs([options] { Teach(*options); });
}

}  // namespace quillon::app
