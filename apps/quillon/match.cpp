// quillon match TEMPLATE IMAGE: where a template lies, found by correlating grey values or colours.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

#include "commands.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/report/report.h"
#include "kit/search/pattern_search.h"
#include "options.h"
#include "progress.h"
#include "quillon/quillon.h"

namespace quillon::app {
namespace {

constexpr Operation kOperations[] = {
    {"IxImgPyramid", "", "an image reduced by 16"},
    {"IxCreateNCCTool", "match TEMPLATE IMAGE", "a tool that will hold a template"},
    {"IxCreateNCCMatchModel", "match TEMPLATE IMAGE --mask", "teach a grey template"},
    {"IxCreateNCCMatchColorModel", "match TEMPLATE IMAGE --color", "teach a colour template"},
    {"IxGet_DefaultPyramidLevel", "match TEMPLATE IMAGE", "the coarsest level of the template"},
    {"IxGet_CurrentPyramidLevel", "match TEMPLATE IMAGE", "the level where a search starts"},
    {"IxSetPyramidLevel", "match TEMPLATE IMAGE --level N", "start searches at another level"},
    {"IxGet_Pyramid_GrayImage", "", "a level of a grey template"},
    {"IxGet_Pyramid_ColorImage", "", "a level of a colour template"},
    {"IxFindNCCMatchModel", "match TEMPLATE IMAGE --angle MIN MAX", "find a grey template"},
    {"IxFindNCCMatchColorModel", "match TEMPLATE IMAGE --color", "find a colour template"},
    {"IxGetNCCMatchResults", "match TEMPLATE IMAGE", "one match of the last search"},
    {"IxCreateNCCMatchColorModel_ROI", "", "teach a colour template for one position"},
    {"IxFindNCCMatchColorModel_ROI", "", "the correlation of an image of the template's size"},
    {"IxDestroyNCCModel", "match TEMPLATE IMAGE", "release the tool"},
};

struct Options {
  std::string pattern, image;
  std::vector<double> angle;  // empty: as the template lies
  std::vector<double> scale = {1, 1};
  double minScore = 0.7;
  int most = 50;
  std::optional<int> level;
  bool mask = false, colour = false;
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
    // At the template's upper left corner: that shows which way up it is, and leaves the centre
    // free.
    constexpr double kRadians = 3.14159265358979323846 / 180;
    const double c = std::cos(m.angle * kRadians), s = std::sin(m.angle * kRadians);
    const double left = -width / 2, top = -height / 2;
    char score[16];
    std::snprintf(score, sizeof score, "%.2f", m.score);
    const double x = m.x + left * c - top * s, y = m.y + left * s + top * c;
    searched.Label({kScore, row}, {std::clamp(x, 0.0, image.width * 0.95), y}, score);
  }
  return report;
}

template <class Image>
void Match(const Options& options) {
  Image pattern, image;
  ReadImage(options.pattern, pattern);
  ReadImage(options.image, image);
  const PatternTool tool = TeachPattern(options.pattern, pattern, options.mask);
  ChooseStartLevel(options.pattern, options.scale[0], options.level, tool.get());
  const auto matches = [&] {
    const Progress progress("searching");
    return FindPattern(image, tool.get(),
                       {options.minScore, options.angle, options.scale, options.most});
  }();
  const Findings findings = MakeFindings(tool.get(), matches);
  Print(options.output, findings);
  if (!options.output.WantsPictures()) return;
  WritePictures(options.output, MakeReport(options, pattern, image, matches), findings);
}

void RunMatch(const Options& options) {
  RequireOrder("--angle", options.angle);
  RequireOrder("--scale", options.scale);
  if (options.colour) {
    Match<ColourImage>(options);
  } else {
    Match<GreyImage>(options);
  }
}

void AddMatch(Command app) {
  auto options = std::make_shared<Options>();
  const Command command =
      app.Add("match", "Find a template by its grey values or colours, to fractions of a pixel");
  AddPictureToRead(command, "TEMPLATE", options->pattern);
  AddPictureToRead(command, "IMAGE", options->image);
  AddAngleOption(command, options->angle);
  command.AddOption("--scale", options->scale, "search these sizes, relative to the template")
      .Values(2)
      .ShownAs("MIN MAX")
      .Within(0.1, 10.0)
      .WithDefaultShown();
  command.AddOption("--min-score", options->minScore, "correlation that is a match")
      .Within(0.0, 1.0)
      .WithDefaultShown();
  command.AddOption("--max", options->most, "report at most this many")
      .Within(1, 500)
      .WithDefaultShown();
  command
      .AddOption("--level", options->level,
                 "start the search at this level of the pyramid: 0 is full resolution, slow and "
                 "sure; default: as coarse as the template and --scale allow")
      .Within(0, 6);
  command.AddFlag("--mask", options->mask, "black pixels of the template do not count");
  command.AddFlag("--color", options->colour, "match colours, not grey values");
  AddOutputOptions(command, options->output);
  command.Runs([options] { RunMatch(*options); });
}

}  // namespace

const Family kTemplateMatching = {"template matching", AddMatch, kOperations};

}  // namespace quillon::app
