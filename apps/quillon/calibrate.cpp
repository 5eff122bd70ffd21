// quillon calibrate: a camera and its lens from pictures of a chessboard or a grid of dots.
#include <algorithm>
#include <memory>
#include <sstream>

#include "commands.h"
#include "kit/calibration/camera.h"
#include "kit/calibration/lens.h"
#include "kit/files/files.h"
#include "kit/images/image_files.h"
#include "options.h"
#include "progress.h"

namespace quillon::app {
namespace {

struct Options {
  std::string camera, plane, table;
  std::vector<std::string> images;
  std::vector<int> board;  // inner corners a side
  bool dots = false;
  double square = 0, maxRms = kMostResiduals, maxResidual = kMostTableResidual;
  Reading reading;
  Output output;
};

// The views in the order of the pictures, but that of the measuring plane first.
std::vector<BoardView> FindBoards(const Options& options, const std::vector<std::string>& names,
                                  PictureSize& size) {
  std::vector<BoardView> views;
  const Progress progress("looking for the board");
  for (const std::string& name : names) {
    GreyImage image;
    ReadImage(name, image, options.reading);
    if (size.width == 0) size = {image.width, image.height};
    RequirePictureSize("the pictures before '" + name, size, image);
    const BoardSize board = {options.board[0], options.board[1]};
    views.push_back(options.dots ? ViewOfDots(name, image, board)
                                 : ViewOfChessboard(name, image, board));
  }
  return views;
}

// Each corner, and an arrow from where it was seen to where the fit has it, a hundred times as
// long.
void Draw(const Options& options, const std::vector<BoardView>& views, const Camera& camera,
          kit::Report& report) {
  constexpr double kLonger = 100;
  report.layers = {{"Seen", Tone::kCyan}, {"Residual, a hundred times as long", Tone::kMagenta}};
  for (size_t i = views.size(); i-- > 0;) {  // the measuring plane last: --draw shows that
    GreyImage image;
    ReadImage(views[i].name, image, options.reading);
    Picture& picture = report.pictures.emplace_back(views[i].name, image);
    for (size_t k = 0; k < views[i].points.size(); ++k) {
      const Point seen = views[i].points[k].at, fitted = camera.views[i].fitted[k];
      const int row = static_cast<int>(i);
      picture.Cross({0, row}, seen);
      picture.Arrow(
          {1, row}, seen,
          {seen.x + kLonger * (fitted.x - seen.x), seen.y + kLonger * (fitted.y - seen.y)});
    }
  }
}

Findings Tell(const std::vector<BoardView>& views, const Camera& camera) {
  const double step = UnitPerPixel(camera);
  Findings findings{.key = "views"};
  findings.facts = {{"views", "Pictures", static_cast<int64_t>(views.size())},
                    {"rms", "Residuals, pixels (RMS)", camera.rms},
                    {"worst", "The worst, pixels", camera.worst},
                    {"rmsMm", "Residuals, mm in the plane (RMS)", camera.rms * step},
                    {"worstMm", "The worst, mm in the plane", camera.worst * step},
                    {"mmPerPixel", "mm per pixel in the plane", step},
                    {"fx", "Focal length, pixels across", camera.lens.fx},
                    {"fy", "Focal length, pixels down", camera.lens.fy},
                    {"cx", "Centre, column", camera.lens.cx},
                    {"cy", "Centre, row", camera.lens.cy}};
  const char* const names[] = {"k1", "k2", "p1", "p2", "k3"};
  for (size_t i = 0; i < camera.lens.bend.size(); ++i) {
    findings.facts.push_back({names[i], "", camera.lens.bend[i]});
  }
  findings.columns = {{"image", "PICTURE"},  {"corners", "POINTS"}, {"rms", "RMS", 3},
                      {"worst", "WORST", 3}, {"x", "AT X", 1},      {"y", "AT Y", 1}};
  for (size_t i = 0; i < views.size(); ++i) {
    const FittedView& fitted = camera.views[i];
    const Point worst = views[i].points[fitted.worstPoint].at;
    findings.rows.push_back({views[i].name, static_cast<int64_t>(views[i].points.size()),
                             fitted.rms, fitted.worst, worst.x, worst.y});
  }
  return findings;
}

void Run(const Options& options) {
  std::vector<std::string> names = options.images;
  if (!options.plane.empty()) {
    std::erase(names, options.plane);
    names.insert(names.begin(), options.plane);
  }
  PictureSize size;
  const std::vector<BoardView> views = FindBoards(options, names, size);
  Camera camera = FitCamera(views, size);
  camera.square = options.square;
  camera.unit = "mm";
  RequireResidualsWithin(options.maxRms, camera, views);
  Findings findings = Tell(views, camera);
  if (!options.table.empty()) {
    const LensFit table = FitLensToCamera(camera, options.maxResidual, options.table);
    findings.facts.push_back({"tableRms", "Residuals of the table, pixels (RMS)", table.rms});
    findings.facts.push_back(
        {"tableWorst", "The worst of them, pixels", table.points[table.worst].Residual()});
  }
  WriteFile(options.camera, CameraText(camera, views));
  Print(options.output, findings);
  if (!options.output.WantsPictures()) return;
  kit::Report report{.title = "Camera " + options.camera};
  Draw(options, views, camera, report);
  WritePictures(options.output, report, findings);
}

}  // namespace

void AddCameraCalibration(Command top) {
  auto options = std::make_shared<Options>();
  const Command command =
      top.Add("calibrate",
              "Fit a camera and its lens to pictures of a chessboard or of a grid of dots")
          .Under("calibration");
  command.AddFileToWrite("CAMERA", options->camera, "camera file to write (.json)").Required();
  command
      .AddFileToRead("IMAGE", options->images,
                     "pictures of the board; the first shows it lying where is measured")
      .Required();
  command.AddOption("--board", options->board, "inner corners, or dots, across and down")
      .Required()
      .Values(2)
      .ShownAs("ACROSS DOWN")
      .Within(3, kMostCorners);
  command
      .AddOption("--square", options->square,
                 "side of the board's squares, or from dot to dot, in mm")
      .Required()
      .Within(1e-6, 1e6);
  command.AddFlag("--dots", options->dots, "the board is a grid of dots");
  command
      .AddFileToRead("--plane", options->plane,
                     "the picture whose board lies where is measured (default: the first)")
      .ShownAs("FILE");
  command
      .AddOption("--max-rms", options->maxRms,
                 "refuse a fit whose residuals are larger than this, in pixels (RMS)")
      .ShownAs("PIXELS")
      .Within(1e-6, 1e6)
      .WithDefaultShown();
  command
      .AddFileToWrite("--table", options->table,
                      "write the same bend and slant for undistort and for hosts of the exports")
      .ShownAs("FILE");
  command
      .AddOption("--max-residual", options->maxResidual,
                 "refuse a table that lies farther than this from the camera anywhere, in pixels")
      .ShownAs("PIXELS")
      .Within(1e-6, 1e6)
      .WithDefaultShown();
  AddReadingOptions(command, options->reading);
  AddOutputOptions(command, options->output);
  command.Runs([options] { Run(*options); });
}

}  // namespace quillon::app
