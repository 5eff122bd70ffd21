// quillon locate TEMPLATE IMAGE: where a part lies, found by its edges.
#include <memory>

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

Findings MakeFindings(const GeoModelLevel& model, double bestScore) {
  return {.key = "matches",
          .facts = {{"edge_points", "Edge points of the template", int64_t{model.count}},
                    {"best_score", "Score of the best place", bestScore}},
          .columns = {{"x", "X", 0}, {"y", "Y", 0}, {"angle", "ANGLE"}, {"score", "SCORE", 3}},
          .rows = {}};
}

Report MakeReport(const Options& options, const GreyImage& pattern, const GreyImage& image,
                  const GeoModelLevel& model, const Pose* match) {
  enum { kEdges, kOutline, kPlace };
  constexpr int kFirstRow = 0;
  Report report{.title = options.pattern + " in " + options.image};
  report.layers = {
      {"Taught edges", Tone::kGreen}, {"Outline", Tone::kCyan}, {"Reference point", Tone::kAmber}};
  Picture& taught = report.pictures.emplace_back("Template", pattern);
  const Pose inTemplate = {double(model.referenceX), double(model.referenceY), 0};
  taught.Dots({kEdges}, EdgePoints(model, inTemplate));
  taught.Cross({kPlace}, {inTemplate.x, inTemplate.y});

  Picture& searched = report.pictures.emplace_back("Picture", image);
  if (!match) return report;
  const Point centre = CentreOf(model, *match);
  searched.Dots({kEdges, kFirstRow}, EdgePoints(model, *match));
  searched.TurnedBox({kOutline, kFirstRow}, centre, model.width, model.height, match->degrees);
  searched.Cross({kPlace, kFirstRow}, {match->x, match->y});
  return report;
}

void Locate(const Options& options, const Values& values) {
  GreyImage pattern, image;
  ReadImage(options.pattern, pattern, options.reading);
  ReadImage(options.image, image, options.reading);
  const EdgeTool tool = TeachEdges(options.pattern, pattern, values);
  const GeoModelLevel& model = *tool->model;

  const auto [found, pose, score] = [&] {
    const Progress progress("searching");
    return FindEdges(image, *tool, EdgeQueryOf(values));
  }();
  Findings findings = MakeFindings(model, score);
  if (found) {
    findings.rows.push_back(
        {static_cast<int64_t>(pose.x), static_cast<int64_t>(pose.y), pose.degrees, score});
  }
  Print(options.output, findings);
  if (!options.output.WantsPictures()) return;
  WritePictures(options.output, MakeReport(options, pattern, image, model, found ? &pose : nullptr),
                findings);
}

}  // namespace

void AddLocate(Command top) {
  const Operation& operation = *FindOperation("locate");
  auto options = std::make_shared<Options>();
  const Command command = AddOperation(top, operation);
  AddPictureToRead(command, "TEMPLATE", options->pattern);
  AddPictureToRead(command, "IMAGE", options->image);
  AddReadingOptions(command, options->reading);
  const auto arguments = Arguments::Add(command, operation, {"template"});
  AddOutputOptions(command, options->output);
  command.Footer(
      "For more than the best place, other sizes, fractions of a pixel, and parts that touch or "
      "are "
      "partly covered, `quillon find` serves better.");
  command.Runs([options, arguments] {
    Locate(*options, arguments->Read({{"template", options->pattern}}));
  });
}

}  // namespace quillon::app
