// quillon locate TEMPLATE IMAGE: where a part lies, found by its edges.
#include <cmath>
#include <memory>
#include <numbers>

#include "commands.h"
#include "errors.h"
#include "image_files.h"
#include "options.h"
#include "progress.h"
#include "quillon/quillon.h"
#include "report.h"

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

struct ReleaseTool {
  void operator()(GeoMatchTool* tool) const { IxDestroyMatchModel(tool); }
};
using Tool = std::unique_ptr<GeoMatchTool, ReleaseTool>;

// Where the template's reference point lies, and how the template is turned.
struct Pose {
  double x, y, degrees;

  Point At(double dx, double dy) const {
    const double a = degrees * std::numbers::pi / 180;
    return {x + dx * std::cos(a) - dy * std::sin(a), y + dx * std::sin(a) + dy * std::cos(a)};
  }
};

std::vector<Point> EdgePoints(const GeoModelLevel& model, const Pose& pose) {
  std::vector<Point> points;
  for (int i = 0; i < model.count; ++i) points.push_back(pose.At(model.x[i], model.y[i]));
  return points;
}

// The Sobel gradient of the picture at a pixel; none at the edge of the picture and beyond it.
Point Gradient(const GreyImage& image, int x, int y) {
  if (x < 1 || y < 1 || x >= image.width - 1 || y >= image.height - 1) return {0, 0};
  const unsigned char *a = image.rows[y - 1] + x, *m = image.rows[y] + x,
                      *b = image.rows[y + 1] + x;
  return {double((a[1] + 2 * m[1] + b[1]) - (a[-1] + 2 * m[-1] + b[-1])),
          double((b[-1] + 2 * b[0] + b[1]) - (a[-1] + 2 * a[0] + a[1]))};
}

// How well the directions of the edges agree: 1 for all, 0 for none. The search does not tell the
// score of what it found.
double Agreement(const GreyImage& image, const GeoModelLevel& model, const Pose& pose) {
  const Pose turn = {0, 0, pose.degrees};
  double sum = 0;
  for (int i = 0; i < model.count; ++i) {
    const Point at = pose.At(model.x[i], model.y[i]);
    const Point g =
        Gradient(image, static_cast<int>(std::lround(at.x)), static_cast<int>(std::lround(at.y)));
    const Point m = turn.At(model.gradientX[i], model.gradientY[i]);
    const double length = std::hypot(g.x, g.y) * std::hypot(m.x, m.y);
    if (length > 0) sum += (g.x * m.x + g.y * m.y) / length;
  }
  return sum / model.count;
}

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
  const Point centre = match->At((model.width - 1) / 2.0 - model.referenceX,
                                 (model.height - 1) / 2.0 - model.referenceY);
  searched.Dots({kEdges, kFirstRow}, EdgePoints(model, *match));
  searched.TurnedBox({kOutline, kFirstRow}, centre, model.width, model.height, match->degrees);
  searched.Cross({kPlace, kFirstRow}, {match->x, match->y});
  return report;
}

Tool Teach(const Options& options, const GreyImage& pattern) {
  const double low = options.edges[0], high = options.edges[1];
  Tool tool(IxCreateGeoTool());
  if (!tool || !IxCreateGeoMatchModel(&pattern, tool.get(), high, low)) {
    throw Failure("no memory for the edges of template '" + options.pattern + "'");
  }
  if (tool->model->count == 0) {
    throw Failure("template '" + options.pattern + "' has no edges");
  }
  return tool;
}

void Locate(const Options& options) {
  const bool anyAngle = !options.angle.empty();
  const double lowest = anyAngle ? options.angle[0] : 0, highest = anyAngle ? options.angle[1] : 0;
  if (lowest > highest) throw Failure("--angle: MIN is greater than MAX");
  GreyImage pattern, image;
  ReadImage(options.pattern, pattern);
  ReadImage(options.image, image);
  const Tool tool = Teach(options, pattern);
  const GeoModelLevel& model = *tool->model;

  int position[2] = {-1, -1};
  Pose pose = {};
  {
    const Progress progress("searching");
    pose.degrees = IxFindGeoMatchModel(&image, tool.get(), options.minScore, options.greediness,
                                       position, highest, lowest, anyAngle);
  }
  pose.x = position[0];
  pose.y = position[1];
  const double score = position[0] < 0 ? 0 : Agreement(image, model, pose);
  const bool found = position[0] >= 0 && score >= options.minScore;

  Findings findings = MakeFindings(model, score);
  if (found) {
    findings.rows.push_back({int64_t{position[0]}, int64_t{position[1]}, pose.degrees, score});
  }
  Print(options.output, findings);
  if (options.output.report.empty()) return;
  WriteReport(options.output.report,
              MakeReport(options, pattern, image, model, found ? &pose : nullptr), findings);
}

void AddLocate(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      app.add_subcommand("locate", "Find a part by its edges, however bright it is and it lies");
  AddPictureToRead(*command, "TEMPLATE", options->pattern);
  AddPictureToRead(*command, "IMAGE", options->image);
  command->add_option("--angle", options->angle, "search these angles, in degrees clockwise")
      ->expected(2)
      ->type_name("MIN MAX")
      ->check(CLI::Range(-360.0, 360.0));
  command->add_option("--min-score", options->minScore, "agreement of the edges that is a match")
      ->check(CLI::Range(0.0, 1.0))
      ->capture_default_str();
  command
      ->add_option("--greediness", options->greediness,
                   "how early a place is given up: 0 never wrongly, 0.99 fastest")
      ->check(CLI::Range(0.0, 0.99))
      ->capture_default_str();
  command->add_option("--edges", options->edges, "limits of edge strength, 255 for the strongest")
      ->expected(2)
      ->type_name("LOW HIGH")
      ->check(CLI::Range(0.0, 255.0))
      ->capture_default_str();
  AddOutputOptions(*command, options->output);
  command->callback([options] { Locate(*options); });
}

}  // namespace

const Family kEdgeMatching = {"edge-based matching", AddLocate, kOperations};

}  // namespace quillon::app
