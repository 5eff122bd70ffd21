// quillon teach TEMPLATE MODEL: what the finder needs of a part, as one file.
#include <algorithm>
#include <array>
#include <memory>
#include <span>

#include "arguments.h"
#include "commands.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/images/pixels.h"
#include "kit/operations/matching.h"
#include "kit/search/part_search.h"
#include "kit/text/text.h"
#include "options.h"

namespace quillon::app {
namespace {

// Which part of a picture is the template, and what of it counts, said as finding says it.
const Operation& Masking() {
  static const Operation operation = {
      .name = "teach",
      .family = "matching",
      .summary = "",
      .arguments = {Rectangle("region", finder::kMaxSide,
                              "these pixels of the picture are the template; without: all of it")
                        .Optional(),
                    MaskOfTemplate(), PolygonOfTemplate()}};
  return operation;
}

struct Options {
  std::string pattern, model, way = kByEdges;
  Arguments masking{Masking()};
  Reading reading;
  Output output;
};

// ---- the template with what is doubtful about it ------------------------------------------------

enum Layers { kEdges, kCounts, kLikest, kSlides, kTurns };

Report PageOf(const Options& options, const GreyImage& pattern, const PartMask& mask,
              const finder::Model& model) {
  Report report{.title = options.pattern + " as a template"};
  report.layers = {{"Taught edges", Tone::kGreen},
                   {"What counts", Tone::kCyan},
                   {"Its best false place, with the score there", Tone::kRed},
                   {"It slides along", Tone::kAmber},
                   {"Turned so it looks the same", Tone::kMagenta}};
  Picture& picture = report.pictures.emplace_back("Template", pattern);
  const double x = (model.width - 1) / 2.0, y = (model.height - 1) / 2.0;
  const double reach = 0.4 * std::min(model.width, model.height);
  std::vector<Point> points;
  for (const finder::ModelPoint& point : model.level[0].points) {
    points.push_back({x + point.u, y + point.v});
  }
  picture.Dots({kEdges}, points);
  points.clear();
  for (const auto& [u, v] : mask.polygon) points.push_back({double(u), double(v)});
  if (!points.empty()) picture.Polygon({kCounts}, points);
  if (model.doubts & finder::kRepeats) {
    const std::array<double, 8> corners =
        TurnedBox{{model.likest.x, model.likest.y, model.likest.degrees},
                  static_cast<double>(model.width),
                  static_cast<double>(model.height)}
            .Corners();
    points.clear();
    for (size_t i = 0; i < 8; i += 2) points.push_back({corners[i], corners[i + 1]});
    picture.Polygon({kLikest}, points);
    picture.Score({kLikest}, points[0], model.likeness);
  }
  const Pose centre = {x, y, 0};
  if (model.doubts & finder::kSlides) {
    const Pose along = {x, y, model.slideDegrees};
    picture.Arrow({kSlides}, centre.At(0, 0), along.At(reach, 0));
    picture.Arrow({kSlides}, centre.At(0, 0), along.At(-reach, 0));
  }
  // An arrow for each turn that looks the same; of a round template a dozen for all.
  if (model.doubts & finder::kSymmetric) {
    constexpr int kForAll = 12;
    const int turns = model.symmetry == 0 ? kForAll : model.symmetry;
    for (int i = 0; i < turns; ++i) {
      const Pose turned = {x, y, i * 360.0 / turns};
      picture.Arrow({kTurns}, centre.At(0, 0), turned.At(0, -0.6 * reach));
    }
    picture.Label({kTurns}, {x, y}, model.symmetry == 0 ? "any" : std::to_string(turns));
  }
  return report;
}

void Teach(const Options& options) {
  const Values values = options.masking.Read();
  GreyImage whole, cut, masked;
  ReadImage(options.pattern, whole, options.reading);
  const bool hasRegion = values.Has("region");
  if (hasRegion) {
    const auto region = values.List<int>("region");
    CutOut(whole, std::span<const int, 4>(region), "--region of '" + options.pattern + "'", cut);
  }
  const GreyImage& pattern = hasRegion ? cut : whole;
  PartMask mask;
  if (values.Has("mask")) {
    ReadImage(values.Text("mask"), masked, options.reading);
    mask.picture = &masked;
  }
  if (values.Has("polygon")) mask.polygon = values.List<std::array<int, 2>>("polygon");
  const PartModel model = TeachPart(options.pattern, pattern, WayNamed(options.way), mask);
  WritePart(options.model, *model);
  Findings findings{
      .key = "doubts",
      .facts = {{"by", "Taught by", options.way},
                {"width", "Width", int64_t{model->width}},
                {"height", "Height", int64_t{model->height}},
                {"levels", "Levels", int64_t{model->levels}},
                {"likeness", "Score of its best false place", model->likeness},
                {"symmetry", "Order of its symmetry, 0 for any turn", int64_t{model->symmetry}}},
      .columns = {{"doubt", "doubt"}},
      .rows = {}};
  for (const std::string& doubt : DoubtsOf(*model)) findings.rows.push_back({doubt});
  Print(options.output, findings);
  if (options.output.WantsPictures()) {
    WritePictures(options.output, PageOf(options, pattern, mask, *model), findings);
  }
}

}  // namespace

void AddTeach(Command top) {
  auto options = std::make_shared<Options>();
  const Command command =
      top.Add("teach", "Teach a part for find, once, and say and show what is doubtful about it")
          .Under("matching");
  AddPictureToRead(command, "TEMPLATE", options->pattern);
  command.AddFileToWrite("MODEL", options->model, "the model to write").Required();
  AddReadingOptions(command, options->reading);
  command.AddOption("--by", options->way, "look at directions of edges, or at grey values")
      .ShownAs("NAME")
      .OneOf({kByEdges, kByGray})
      .DefaultShown(kByEdges);
  options->masking.AddOptions(command);
  AddOutputOptions(command, options->output);
  command.Runs([options] { Teach(*options); });
}

}  // namespace quillon::app
