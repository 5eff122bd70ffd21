// quillon find TEMPLATE IMAGE: every place of a part, turned, touching others or half covered.
// quillon teach TEMPLATE MODEL: what find needs of a part, as one file.
#include <memory>

#include "arguments.h"
#include "commands.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/operations/queries.h"
#include "kit/report/report.h"
#include "options.h"
#include "progress.h"

namespace quillon::app {
namespace {

struct FindOptions {
  std::string pattern, image;
  Reading reading;
  Output output;
};

Findings MakeFindings(const finder::Model& model, const std::vector<finder::Match>& matches) {
  Findings findings{.key = "matches",
                    .facts = {{"by", "Found by", std::string(NameOf(model.way))},
                              {"levels", "Levels of the template", int64_t{model.levels}}},
                    .columns = {{"x", "X", 2},
                                {"y", "Y", 2},
                                {"angle", "ANGLE", 2},
                                {"scale", "SCALE", 3},
                                {"score", "SCORE", 3},
                                {"visible", "VISIBLE", 2}},
                    .rows = {}};
  for (const finder::Match& m : matches) {
    findings.rows.push_back({m.x, m.y, m.degrees, m.scale, m.score, m.visible});
  }
  return findings;
}

Report MakeReport(const FindOptions& options, const finder::Model& model, const GreyImage& image,
                  const std::vector<finder::Match>& matches) {
  enum { kOutline, kCentre, kScore };
  Report report{.title = options.pattern + " in " + options.image};
  report.layers = {{"Outline", Tone::kCyan}, {"Centre", Tone::kAmber}, {"Score", Tone::kWhite}};
  GreyImage taught;
  TaughtPicture(model, taught);
  report.pictures.emplace_back("Template", taught);
  Picture& searched = report.pictures.emplace_back("Picture", image);
  for (size_t i = 0; i < matches.size(); ++i) {
    const finder::Match& m = matches[i];
    const int row = static_cast<int>(i);
    Point corners[4];
    for (int k = 0; k < 4; ++k) corners[k] = {m.corners[k][0], m.corners[k][1]};
    searched.Polygon({kOutline, row}, corners);
    searched.Cross({kCentre, row}, {m.x, m.y});
    searched.Score({kScore, row}, corners[0], m.score);
  }
  return report;
}

void Find(const FindOptions& options, const Values& values) {
  GreyImage image;
  ReadImage(options.image, image, options.reading);
  const PartModel model = ReadPart(options.pattern, values, {"", options.reading});
  const auto matches = [&] {
    const Progress progress("searching");
    return FindParts(image, *model, PartQueryOf(values));
  }();
  const Findings findings = MakeFindings(*model, matches);
  Print(options.output, findings);
  if (!options.output.WantsPictures()) return;
  WritePictures(options.output, MakeReport(options, *model, image, matches), findings);
}

struct TeachOptions {
  std::string pattern, model, mask, way = kByEdges;
  Reading reading;
  Output output;
};

void Teach(const TeachOptions& options) {
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
                    .columns = {{"doubt", "DOUBT"}},
                    .rows = {}};
  for (const std::string& doubt : DoubtsOf(*model)) findings.rows.push_back({doubt});
  Print(options.output, findings);
}

void AddTeach(Command top, const char* heading) {
  auto options = std::make_shared<TeachOptions>();
  const Command command =
      top.Add("teach", "Teach a part for find, once, and say what is doubtful about it")
          .Under(heading);
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

}  // namespace

void AddFind(Command top) {
  const Operation& operation = *FindOperation("find");
  auto options = std::make_shared<FindOptions>();
  const Command command = AddOperation(top, operation);
  command.AddFileToRead("TEMPLATE", options->pattern, operation.arguments[0].Meaning()).Required();
  AddPictureToRead(command, "IMAGE", options->image);
  AddReadingOptions(command, options->reading);
  const auto arguments = Arguments::Add(command, operation, {"template"});
  AddOutputOptions(command, options->output);
  command.Runs([options, arguments] {
    Find(*options, arguments->Read({{"template", options->pattern}}));
  });
  AddTeach(top, operation.family);
}

}  // namespace quillon::app
