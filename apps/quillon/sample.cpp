// quillon sample: pictures to try the other commands on, drawn here, with the truth about them.
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

#include "commands.h"
#include "kit/files/files.h"
#include "kit/images/image_files.h"
#include "kit/samples/dot_grid.h"
#include "kit/samples/sample_board.h"
#include "kit/samples/tray.h"
#include "options.h"

namespace quillon::app {
namespace {

constexpr int kWidth = 1200, kHeight = 900;

// The truth in the form in which `quillon blobs --json` prints what it found.
nlohmann::ordered_json Truth(uint32_t seed, const std::vector<DrawnPart>& parts) {
  Findings findings{
      .key = "blobs",
      .facts = {{"image", "", "tray.png"},
                {"seed", "", int64_t{seed}},
                {"width", "", int64_t{kWidth}},
                {"height", "", int64_t{kHeight}},
                {"low", "", int64_t{kPartLevel}},
                {"high", "", int64_t{255}}},
      .columns = {
          {"kind"}, {"area"}, {"x"}, {"y"}, {"left"}, {"top"}, {"right"}, {"bottom"}, {"degrees"}}};
  for (const DrawnPart& part : parts) {
    findings.rows.push_back({part.kind, part.area, part.x, part.y, int64_t{part.left},
                             int64_t{part.top}, int64_t{part.right}, int64_t{part.bottom},
                             part.degrees});
  }
  return ToJson(findings);
}

// The truth about a board, in the form of `quillon inspect --json`.
nlohmann::ordered_json BoardTruth(const std::vector<DrawnDefect>& defects) {
  Findings findings{.key = "defects",
                    .facts = {},
                    .columns = {{"name"}, {"kind"}, {"left"}, {"top"}, {"right"}, {"bottom"}},
                    .rows = {}};
  for (const DrawnDefect& d : defects) {
    findings.rows.push_back({d.name, Name(d.kind), int64_t{d.left}, int64_t{d.top},
                             int64_t{d.right}, int64_t{d.bottom}});
  }
  return ToJson(findings);
}

// A good board; another of its kind that lies a little askew, with defects; one without.
void DrawBoards(const std::string& folder, uint32_t seed) {
  constexpr int kSide = 640, kDefects = 8;
  const SampleBoard board(seed, kSide, kSide);
  GreyImage image;
  board.DrawGood(image);
  WriteImage(folder + "/board.png", image);
  board.DrawGood(image, {.x = 3, .y = -5, .degrees = 0.2});
  WriteImage(folder + "/board-passing.png", image);
  const auto defects = board.DrawTested(
      kDefects, image, {.x = -6, .y = 4, .degrees = -0.4, .stretchX = 1.004, .stretchY = 0.997});
  WriteImage(folder + "/board-failing.png", image);
  WriteFile(folder + "/board-failing.json", BoardTruth(defects).dump(2) + '\n');
}

void DrawSamples(const std::string& folder, uint32_t seed) {
  MakeFolder(folder);
  ColourImage image;
  std::vector<DrawnPart> parts;
  DrawTray(seed, kWidth, kHeight, image, parts);
  WriteImage(folder + "/tray.png", image);
  WriteFile(folder + "/tray.json", Truth(seed, parts).dump(2) + '\n');
  DrawBracket(image);
  WriteImage(folder + "/bracket.png", image);

  GreyImage grid;
  std::vector<Point> centres;
  DrawDotGrid(kWidth, kHeight, grid, centres);
  WriteImage(folder + "/grid.png", grid);
  std::ostringstream points;
  points << "x,y\n";
  for (const Point& centre : centres) points << centre.x << ',' << centre.y << '\n';
  WriteFile(folder + "/grid.csv", points.str());
  DrawBoards(folder, seed);
}

}  // namespace

void AddSample(Command top) {
  struct Options {
    std::string folder;
    uint32_t seed = 1;
  };
  auto options = std::make_shared<Options>();
  const Command command =
      top.Add("sample",
              "Draw a tray of parts (tray.png), one part of it (bracket.png) and the truth about "
              "them (tray.json); circuit boards (board.png, board-passing.png, board-failing.png) "
              "and "
              "the defects (board-failing.json); a grid of dots seen through a lens (grid.png) and "
              "where "
              "the dots lie (grid.csv)")
          .Under("general");
  command.AddOption("OUTDIR", options->folder, "folder for the files; made if missing").Required();
  command.AddOption("--seed", options->seed, "other numbers, other trays and boards")
      .WithDefaultShown();
  command.Runs([options] { DrawSamples(options->folder, options->seed); });
}

}  // namespace quillon::app
