// quillon match, match-color TEMPLATE IMAGE: where a template lies, found by correlating grey
// values or colours.
#include <memory>
#include <vector>

#include "arguments.h"
#include "commands.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/operations/queries.h"
#include "kit/report/report.h"
#include "options.h"
#include "progress.h"
#include "quillon/quillon.h"

namespace quillon::app {
namespace {

struct Options {
  std::string pattern, image;
  Reading reading;
  Output output;
};

Findings MakeFindings(const NccTool* tool, const std::vector<NccResult>& matches) {
  Findings findings{
      .key = "matches",
      .facts = {{"levels", "Levels of the template", int64_t{IxGet_DefaultPyramidLevel(tool)} + 1},
                {"start", "Search starts at level", int64_t{IxGet_CurrentPyramidLevel(tool)}}},
      .columns = {{"x", "X", 2},
                  {"y", "Y", 2},
                  {"angle", "ANGLE", 2},
                  {"scale", "SCALE", 3},
                  {"score", "SCORE", 3}},
      .rows = {}};
  for (const NccResult& m : matches) {
    findings.rows.push_back({m.x, m.y, m.angle, m.scale, m.score});
  }
  return findings;
}

template <class Image>
Report MakeReport(const Options& options, const Image& pattern, const Image& image,
                  const std::vector<NccResult>& matches) {
  enum { kOutline, kCentre, kScore };
  Report report{.title = options.pattern + " in " + options.image};
  report.layers = {{"Outline", Tone::kCyan}, {"Centre", Tone::kAmber}, {"Score", Tone::kWhite}};
  report.pictures.emplace_back("Template", pattern);
  Picture& searched = report.pictures.emplace_back("Picture", image);
  for (size_t i = 0; i < matches.size(); ++i) {
    const NccResult& m = matches[i];
    const int row = static_cast<int>(i);
    const double width = pattern.width * m.scale, height = pattern.height * m.scale;
    searched.TurnedBox({kOutline, row}, {m.x, m.y}, width, height, m.angle);
    searched.Cross({kCentre, row}, {m.x, m.y});
    const Pose pose = {m.x, m.y, m.angle};
    searched.Score({kScore, row}, pose.At(-width / 2, -height / 2), m.score);
  }
  return report;
}

template <class Image>
void Match(const Options& options, const Values& values) {
  Image pattern, image;
  ReadImage(options.pattern, pattern, options.reading);
  ReadImage(options.image, image, options.reading);
  const PatternTool tool = TeachPattern(options.pattern, pattern, values);
  const auto matches = [&] {
    const Progress progress("searching");
    return FindPattern(image, tool.get(), PatternQueryOf(values));
  }();
  const Findings findings = MakeFindings(tool.get(), matches);
  Print(options.output, findings);
  if (!options.output.WantsPictures()) return;
  WritePictures(options.output, MakeReport(options, pattern, image, matches), findings);
}

template <class Image>
void AddMatch(Command top, const char* name) {
  const Operation& operation = *FindOperation(name);
  auto options = std::make_shared<Options>();
  const Command command = AddOperation(top, operation);
  AddPictureToRead(command, "TEMPLATE", options->pattern);
  AddPictureToRead(command, "IMAGE", options->image);
  AddReadingOptions(command, options->reading);
  const auto arguments = Arguments::Add(command, operation, {"template"});
  AddOutputOptions(command, options->output);
  command.Footer(
      "For parts that touch or are partly covered, and for those that lie at any angle, `quillon "
      "find` serves better: it needs no level and looks by edges or by grey values.");
  command.Runs([options, arguments] {
    Match<Image>(*options, arguments->Read({{"template", options->pattern}}));
  });
}

}  // namespace

void AddMatch(Command top) {
  AddMatch<GreyImage>(top, "match");
  AddMatch<ColourImage>(top, "match-color");
}

}  // namespace quillon::app
