// quillon sample: pictures to try the other commands on, drawn here, with the truth about them.
#include <climits>
#include <filesystem>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

#include "commands.h"
#include "kit/errors.h"
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

// The files of a folder by their names, whole before the first is written.
class Files {
 public:
  template <class Image>
  void Add(const std::string& name, const Image& picture) {
    const auto bytes = EncodePng(picture);
    files_[name].assign(bytes.begin(), bytes.end());
  }
  void Add(const std::string& name, std::string text) { files_[name] = std::move(text); }

  // Throws Failure where a name is taken by another file than this one.
  void WriteTo(const std::string& folder, bool overwrite) const {
    MakeFolder(folder);
    for (const auto& [name, bytes] : files_) {
      const std::string path = folder + "/" + name;
      std::error_code error;
      const auto status = std::filesystem::symlink_status(path, error);
      if (overwrite || !std::filesystem::exists(status) || ReadFile(path) == bytes) continue;
      throw Failure("'" + path +
                    "' is there already, and is another file than this sample: name another "
                    "folder, or --overwrite");
    }
    for (const auto& [name, bytes] : files_) WriteFile(folder + "/" + name, bytes);
  }

 private:
  std::map<std::string, std::string> files_;
};

// A good board; another of its kind that lies a little askew, with defects; one without.
void AddBoards(uint32_t seed, Files& files) {
  constexpr int kSide = 640, kDefects = 8;
  const SampleBoard board(seed, kSide, kSide);
  GreyImage image;
  board.DrawGood(image);
  files.Add("board.png", image);
  board.DrawGood(image, {.x = 3, .y = -5, .degrees = 0.2});
  files.Add("board-passing.png", image);
  const auto defects = board.DrawTested(
      kDefects, image, {.x = -6, .y = 4, .degrees = -0.4, .stretchX = 1.004, .stretchY = 0.997});
  files.Add("board-failing.png", image);
  files.Add("board-failing.json", BoardTruth(defects).dump(2) + '\n');
}

Files DrawSamples(uint32_t seed) {
  Files files;
  ColourImage image;
  std::vector<DrawnPart> parts;
  DrawTray(seed, kWidth, kHeight, image, parts);
  files.Add("tray.png", image);
  files.Add("tray.json", Truth(seed, parts).dump(2) + '\n');
  DrawBracket(image);
  files.Add("bracket.png", image);

  GreyImage grid;
  std::vector<Point> centres;
  DrawDotGrid(kWidth, kHeight, grid, centres);
  files.Add("grid.png", grid);
  std::ostringstream points;
  points << "x,y\n";
  for (const Point& centre : centres) points << centre.x << ',' << centre.y << '\n';
  files.Add("grid.csv", points.str());
  AddBoards(seed, files);
  return files;
}

}  // namespace

void AddSample(Command top) {
  struct Options {
    std::string folder;
    uint32_t seed = 1;
    bool overwrite = false;
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
      .Within(0, INT_MAX)
      .WithDefaultShown();
  command.AddFlag("--overwrite", options->overwrite,
                  "replace other files of these names, which stops the command otherwise");
  command.Runs(
      [options] { DrawSamples(options->seed).WriteTo(options->folder, options->overwrite); });
}

}  // namespace quillon::app
