// quillon locate TEMPLATE IMAGE: where a part lies, found by its edges.
#include <memory>

#include "commands.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/report/report.h"
#include "kit/search/edge_search.h"
#include "options.h"
#include "progress.h"
#include "quillon/quillon.h"

namespace quillon::app {
namespace {

constexpr Operation kOperations[] = {
    {"IxCreateGeoTool", "locate TEMPLATE IMAGE", "a tool that will hold an edge template"},
    {"IxCreateGeoMatchModel", "locate TEMPLATE IMAGE --edges LOW HIGH",
     "teach the edges of a template"},
    {"IxFindGeoMatchModel", "locate TEMPLATE IMAGE --angle MIN MAX", "find the taught edges"},
    {"IxDestroyMatchModel", "locate TEMPLATE IMAGE", "release the tool"},
};

struct Options {
  std::string pattern, image;
  std::vector<double> angle;  // empty: as the template lies
  double minScore = 0.5, greediness = 0.7;
  std::vector<double> edges = {30, 80};
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

void Locate(const Options& options) {
  RequireOrder("--angle", options.angle);
  EdgeQuery query = {options.minScore, options.greediness, {}, {}};
  if (!options.angle.empty()) query.lowest = options.angle[0], query.highest = options.angle[1];
  GreyImage pattern, image;
  ReadImage(options.pattern, pattern);
  ReadImage(options.image, image);
  const EdgeTool tool = TeachEdges(options.pattern, pattern, options.edges[0], options.edges[1]);
  const GeoModelLevel& model = *tool->model;

  const auto [found, pose, score] = [&] {
    const Progress progress("searching");
    return FindEdges(image, *tool, query);
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

void AddLocate(Command app) {
  auto options = std::make_shared<Options>();
  const Command command =
      app.Add("locate", "Find a part by its edges, however bright it is and it lies");
  AddPictureToRead(command, "TEMPLATE", options->pattern);
  AddPictureToRead(command, "IMAGE", options->image);
  AddAngleOption(command, options->angle);
  command.AddOption("--min-score", options->minScore, "agreement of the edges that is a match")
      .Within(0.0, 1.0)
      .WithDefaultShown();
  command
      .AddOption("--greediness", options->greediness,
                 "how early a place is given up: 0 never wrongly, 0.99 fastest")
      .Within(0.0, 0.99)
      .WithDefaultShown();
  command.AddOption("--edges", options->edges, "limits of edge strength, 255 for the strongest")
      .Values(2)
      .ShownAs("LOW HIGH")
      .Within(0.0, 255.0)
      .WithDefaultShown();
  AddOutputOptions(command, options->output);
  command.Runs([options] { Locate(*options); });
}

}  // namespace

const Family kEdgeMatching = {"edge-based matching", AddLocate, kOperations};

}  // namespace quillon::app
