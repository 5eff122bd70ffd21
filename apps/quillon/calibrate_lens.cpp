// quillon calibrate-lens: the bend of a lens from the points of a square grid.
#include <memory>
#include <vector>

#include "commands.h"
#include "kit/calibration/lens.h"
#include "kit/images/image_files.h"
#include "options.h"

namespace quillon::app {
namespace {

struct Options {
  std::string source, parameters;
  Reading reading;
  std::vector<double> step;  // across, and down where it differs
  std::string image;         // that shows the grid; may be empty
  Grid grid;
  Output output;
};

// Each point where it was seen, and an arrow from where the fit has it, ten times as long.
void Draw(const GreyImage& image, const LensFit& fit, kit::Report& report) {
  constexpr double kLonger = 10;
  report.layers = {{"Seen", Tone::kCyan}, {"Residual, ten times as long", Tone::kMagenta}};
  Picture& picture = report.pictures.emplace_back("", image);
  for (size_t i = 0; i < fit.points.size(); ++i) {
    const auto& [seen, fitted] = fit.points[i];
    const int row = static_cast<int>(i);
    picture.Cross({0, row}, seen);
    picture.Arrow(
        {1, row}, fitted,
        {fitted.x + kLonger * (seen.x - fitted.x), fitted.y + kLonger * (seen.y - fitted.y)});
  }
}

void Run(const Options& options) {
  Grid grid = options.grid;
  grid.step = {options.step.front(), options.step.back()};
  GreyImage image;
  if (!options.image.empty()) {
    ReadImage(options.image, image, options.reading);
    grid.size = {image.width, image.height};
  } else if (options.output.WantsPictures()) {
    throw Failure("--report and --draw need the picture of the grid (--image)");
  }
  const LensFit fit = FitLens(options.source, grid, options.parameters);
  const double worst = fit.points[fit.worst].Residual();
  Findings findings{.key = "points"};
  findings.facts = {{"points", "", static_cast<int64_t>(fit.points.size())},
                    {"rms", "Residuals, pixels (RMS)", fit.rms},
                    {"worst", "The worst, pixels", worst},
                    {"worstPoint", "The worst point", static_cast<int64_t>(fit.worst + 1)}};
  if (grid.pitch > 0) {
    const double unit = grid.pitch / grid.step.across;
    findings.facts.push_back({"rmsUnit", "Residuals, " + grid.unit + " (RMS)", fit.rms * unit});
    findings.facts.push_back({"worstUnit", "The worst, " + grid.unit, worst * unit});
  }
  findings.columns = {{"x", "x", 0, Shown::kNowhere},
                      {"y", "y", 0, Shown::kNowhere},
                      {"fittedX", "fitted x", 2, Shown::kNowhere},
                      {"fittedY", "fitted y", 2, Shown::kNowhere},
                      {"residual", "residual", 2, Shown::kNowhere}};
  Findings shown = findings;
  for (const GridPoint& point : fit.points) {
    findings.rows.push_back(
        {point.seen.x, point.seen.y, point.fitted.x, point.fitted.y, point.Residual()});
  }
  Print(options.output, options.output.json || options.output.csv ? findings : shown);
  if (!options.output.WantsPictures()) return;
  for (Column& column : findings.columns) column.shown = Shown::kEverywhere;
  kit::Report report{.title = "Lens fit of " + options.source};
  Draw(image, fit, report);
  WritePictures(options.output, report, findings);
}

}  // namespace

void AddLensCalibration(Command top) {
  auto options = std::make_shared<Options>();
  const Command command =
      top.Add("calibrate-lens", "Fit the bend of a lens to the points of a square grid")
          .Under("calibration");
  command
      .AddFileToRead("POINTS", options->source,
                     "lines x,y: an odd number of points a side, row by row from the top left")
      .Required();
  command.AddFileToWrite("PARAMS", options->parameters, "parameter file to write").Required();
  command
      .AddOption("--step", options->step,
                 "pixels from point to point in corrected pictures: one number, or across and down")
      .Required()
      .Values(1, 2)
      .ShownAs("PIXELS")
      .Within(1.0, 10000.0);
  command
      .AddFileToRead("--image", options->image,
                     "the picture of the grid: its size is kept beside the parameters")
      .ShownAs("FILE");
  command.AddOption("--pitch", options->grid.pitch, "length from point to point, in --unit")
      .Within(1e-6, 1e6);
  command.AddOption("--unit", options->grid.unit, "unit of --pitch").WithDefaultShown();
  command
      .AddOption("--max-residual", options->grid.maxResidual,
                 "pixels that a point may lie from its place (default: a quarter of the step)")
      .ShownAs("PIXELS")
      .Within(1e-6, 1e6);
  AddReadingOptions(command, options->reading);
  AddOutputOptions(command, options->output);
  command.Runs([options] { Run(*options); });
}

}  // namespace quillon::app
