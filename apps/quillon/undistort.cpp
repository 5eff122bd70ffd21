// quillon undistort: the bend of a lens, fitted to a grid, kept in a file, and taken out of
// pictures.
#include <charconv>
#include <cmath>
#include <memory>
#include <sstream>
#include <vector>

#include "commands.h"
#include "kit/calibration/lens.h"
#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/images/image_files.h"
#include "kit/report/before_after.h"
#include "options.h"
#include "quillon/quillon.h"

namespace quillon::app {
namespace {

constexpr Operation kOperations[] = {
    {"IxDistortionParaBuild", "undistort build POINTS.csv PARAMS --step PIXELS",
     "fits the bend of a lens to the points of a grid"},
    {"IxDistortionParaLoad", "undistort apply IN PARAMS OUT", "the fit of a file"},
    {"IxDistortionPreCalculate", "undistort apply IN PARAMS OUT", "where each pixel comes from"},
    {"IxDistortionCalibrate", "undistort apply IN PARAMS OUT", "a picture without the bend"},
};

struct Options {
  std::string points, parameters;
  std::vector<double> step;  // across, and down where it differs
  Correction correction;
};

// Numbers to the nearest pixel, from "x,y" lines; a first line of names is passed over.
std::vector<int> ReadPoints(const std::string& path) {
  std::istringstream file(ReadFile(path));
  std::vector<int> points;
  std::string line;
  const auto refuseLine = [&](int number) {
    throw Failure("'" + path + "' line " + std::to_string(number) + ": '" + line +
                  "' is not a point x,y with numbers up to 32767");
  };
  for (int number = 1; std::getline(file, line); ++number) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) continue;
    const char *at = line.data(), *end = at + line.size();
    double pair[2];
    bool read = true;
    for (int i = 0; i < 2 && read; ++i) {
      while (at < end && (*at == ' ' || (i == 1 && *at == ','))) ++at;
      const auto result = std::from_chars(at, end, pair[i]);
      read = result.ec == std::errc() && std::fabs(pair[i]) <= 32767;
      at = result.ptr;
    }
    if (!read || at != end) {
      if (number == 1) continue;
      refuseLine(number);
    }
    for (double value : pair) points.push_back(static_cast<int>(std::lround(value)));
  }
  return points;
}

void Build(const Options& options) {
  std::vector<int> points = ReadPoints(options.points);
  const auto count = static_cast<int>(points.size() / 2);
  const auto side = static_cast<int>(std::lround(std::sqrt(count)));
  if (count < 9 || side * side != count || side % 2 == 0) {
    throw Failure(
        "'" + options.points + "' has " + std::to_string(count) +
        " points: a square grid with an odd side is needed, 9, 25, 49, ... points, row by "
        "row from the top left");
  }
  GreyImage image;
  image.Create(1, 1);
  constexpr float kPixelSize = 10000;  // then a pitch is a step in pixels
  const auto xPitch = static_cast<float>(options.step.front());
  const auto yPitch = static_cast<float>(options.step.back());
  constexpr size_t kFileSize = 208;
  ReplaceFile(options.parameters, kFileSize, [&](const std::string& file) {
    IxDistortionParaBuild(&image, points.data(), count, xPitch, yPitch, kPixelSize, kPixelSize,
                          file.c_str());
  });
}

void Apply(const Correction& files) {
  GreyImage image, corrected;
  ReadImage(files.in, image);
  LensCorrection correction(files.parameters);
  correction.Apply(image, corrected);
  WriteImage(files.out, corrected);
  if (files.report.empty()) return;
  const GreyImage& work = correction.Map();
  const Findings findings = {
      .key = "rectangles",
      .columns = {{"xMin", "left"},
                  {"yMin", "top"},
                  {"xMax", "right"},
                  {"yMax", "bottom"},
                  {"centreX", "centre x"},
                  {"centreY", "centre y"}},
      .rows = {{int64_t{work.xMin}, int64_t{work.yMin}, int64_t{work.xMax}, int64_t{work.yMax},
                int64_t{work.centreX}, int64_t{work.centreY}}}};
  WriteBeforeAfter(files.report, "Lens correction of " + files.in, image, corrected, findings);
}

void AddUndistort(Command app) {
  const Command undistort = app.Add("undistort", "Take the bend of a lens out of pictures");
  undistort.NeedsSubcommand();
  auto options = std::make_shared<Options>();

  const Command build = undistort.Add("build", "Fit the bend to the points of a square grid");
  build
      .AddFileToRead("POINTS", options->points,
                     "lines x,y: an odd number of points a side, row by row from the top left")
      .Required();
  build.AddFileToWrite("PARAMS", options->parameters, "parameter file to write").Required();
  build
      .AddOption("--step", options->step,
                 "pixels from point to point in corrected pictures: one number, or across and down")
      .Required()
      .Values(1, 2)
      .ShownAs("PIXELS")
      .Within(1.0, 10000.0);
  build.Runs([options] { Build(*options); });

  const Command apply =
      undistort.Add("apply", "Correct a picture; what lies outside the grid becomes black");
  AddCorrectionArguments(apply, options->correction);
  apply.Runs([options] { Apply(options->correction); });
}

}  // namespace

const Family kLens = {"lens distortion", AddUndistort, kOperations};

}  // namespace quillon::app
