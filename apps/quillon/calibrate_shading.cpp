// quillon calibrate-shading: an offset and a gain for each pixel, from pictures of dark and of
// white.
#include <memory>

#include "commands.h"
#include "kit/calibration/shading.h"
#include "kit/files/files.h"
#include "kit/images/image_files.h"
#include "options.h"

namespace quillon::app {
namespace {

struct Options {
  std::string parameters;
  std::vector<std::string> dark, white;
  ShadingLimits limits;
  Reading reading;
  Output output;
};

Findings Tell(const ShadingFit& fit) {
  const Shading& shading = fit.shading;
  Findings findings{.key = "dead"};
  findings.facts = {{"darkPictures", "Dark pictures", int64_t{shading.darkPictures}},
                    {"whitePictures", "White pictures", int64_t{shading.whitePictures}},
                    {"dark", "Dark, mean", fit.dark},
                    {"white", "White, mean", fit.white},
                    {"target", "White becomes", int64_t{shading.target}},
                    {"leastGain", "Least gain", fit.leastGain},
                    {"greatestGain", "Greatest gain", fit.greatestGain},
                    {"deadPixels", "Dead pixels", static_cast<int64_t>(fit.dead.size())}};
  findings.columns = {{"x", "X"}, {"y", "Y"}, {"dark", "DARK", 1}, {"white", "WHITE", 1}};
  for (const DeadPixel& pixel : fit.dead) {
    findings.rows.push_back({int64_t{pixel.x}, int64_t{pixel.y}, pixel.dark, pixel.white});
  }
  return findings;
}

void Run(const Options& options) {
  GreyImage image;
  const auto mean = [&](const std::vector<std::string>& names) {
    MeanPicture sum;
    for (const std::string& name : names) {
      ReadImage(name, image, options.reading);
      sum.Add(name, image);
    }
    return sum;
  };
  const MeanPicture dark = mean(options.dark), white = mean(options.white);
  const ShadingFit fit = FitShading(dark, white, options.limits);
  WriteFile(options.parameters, ShadingText(fit.shading));
  const Findings findings = Tell(fit);
  Print(options.output, findings);
  if (!options.output.WantsPictures()) return;
  kit::Report report{.title = "Shading " + options.parameters,
                     .layers = {{"Dead pixel", Tone::kMagenta}}};
  Picture& picture = report.pictures.emplace_back(options.white.back(), image);
  for (size_t i = 0; i < fit.dead.size(); ++i) {
    picture.Cross({0, static_cast<int>(i)}, {double(fit.dead[i].x), double(fit.dead[i].y)});
  }
  WritePictures(options.output, report, findings);
}

}  // namespace

void AddShadingCalibration(Command top) {
  auto options = std::make_shared<Options>();
  const Command command =
      top.Add("calibrate-shading",
              "Make an offset and a gain for each pixel, from pictures of dark and of white")
          .Under("calibration");
  command.AddFileToWrite("PARAMS", options->parameters, "shading file to write").Required();
  command
      .AddFileToRead("--dark", options->dark,
                     "pictures without light: the lens covered; their mean is taken")
      .Required()
      .ShownAs("FILE...");
  command
      .AddFileToRead("--white", options->white,
                     "pictures of an even white, in the light of the parts; their mean is taken")
      .Required()
      .ShownAs("FILE...");
  command
      .AddOption(
          "--target", options->limits.target,
          "grey value that the white comes out at (default: as bright as it is, in the mean)")
      .Within(1, 255);
  command
      .AddOption("--max-dead", options->limits.mostDead,
                 "refuse more dead pixels than these (default: a thousandth of all)")
      .ShownAs("PIXELS")
      .Within(0, 1'000'000'000);
  AddReadingOptions(command, options->reading);
  AddOutputOptions(command, options->output);
  command.Runs([options] { Run(*options); });
}

}  // namespace quillon::app
