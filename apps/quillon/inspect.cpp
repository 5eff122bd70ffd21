// quillon inspect GOOD TEST...: where boards differ from a good one; of folders, whether they do.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <vector>

#include "arguments.h"
#include "batch.h"
#include "commands.h"
#include "kit/boards/good_boards.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/operations/queries.h"
#include "kit/report/report.h"
#include "options.h"
#include "progress.h"
#include "standard_streams.h"

namespace quillon::app {
namespace {

struct Options {
  std::string good;
  Reading reading;
  std::vector<std::string> moreGood, tested;
  Output output;
  BatchOptions batch;
};

// Layers of the report.
enum { kMissingBox, kExtraBox, kMissingPixels, kExtraPixels, kNumber };

// What has been inspected so far.
struct Results {
  Findings findings{.key = "defects",
                    .facts = {},
                    .columns = {{"board", "BOARD"},
                                {"n", "N"},
                                {"kind", "KIND"},
                                {"x", "X", 1},
                                {"y", "Y", 1},
                                {"left", "LEFT"},
                                {"top", "TOP"},
                                {"right", "RIGHT"},
                                {"bottom", "BOTTOM"},
                                {"missing", "MISSING"},
                                {"extra", "EXTRA"}},
                    .rows = {}};
  Report report;
  int inspected = 0, passed = 0;
};

void DrawBox(Picture& picture, const Defect& d, int row, int dx, int dy) {
  const int layer = d.Kind() == Difference::kMissing ? kMissingBox : kExtraBox;
  picture.Box({layer, row}, d.left - dx, d.top - dy, d.right - dx, d.bottom - dy);
}

void Record(const std::string& path, const GreyImage& tested, const BoardInspector& inspector,
            const BoardInspection& inspection, bool drawn, Results& results) {
  ++results.inspected;
  if (inspection.defects.empty()) ++results.passed;
  if (drawn) results.report.pictures.emplace_back(path, tested);
  for (size_t i = 0; i < inspection.defects.size(); ++i) {
    const Defect& d = inspection.defects[i];
    const int row = static_cast<int>(results.findings.rows.size());
    results.findings.rows.push_back({path, static_cast<int64_t>(i), Name(d.Kind()),
                                     (d.left + d.right) / 2.0, (d.top + d.bottom) / 2.0,
                                     int64_t{d.left}, int64_t{d.top}, int64_t{d.right},
                                     int64_t{d.bottom}, int64_t{d.missing}, int64_t{d.extra}});
    if (!drawn) continue;
    DrawBox(results.report.pictures.front(), d, row, d.shiftX, d.shiftY);
    Picture& picture = results.report.pictures.back();
    picture.Dots({kMissingPixels, row}, inspector.Pixels(d, Difference::kMissing));
    picture.Dots({kExtraPixels, row}, inspector.Pixels(d, Difference::kExtra));
    DrawBox(picture, d, row, 0, 0);
    picture.Label({kNumber, row}, {d.left + 0.0, d.top + 0.0}, std::to_string(i));
  }
}

void RequireInspected(size_t failed, size_t boards) {
  if (failed == 0) return;
  throw Failure(std::to_string(failed) + " of " + std::to_string(boards) +
                " boards could not be inspected");
}

void RunInspect(const Options& options, const Values& values) {
  const Progress progress("inspecting");
  const bool drawn = options.output.WantsPictures();
  Results results;
  results.report = {.title = "Boards against " + options.good,
                    .layers = {{"Missing", Tone::kMagenta},
                               {"Extra", Tone::kCyan},
                               {"Missing pixels", Tone::kMagenta},
                               {"Extra pixels", Tone::kCyan},
                               {"Number", Tone::kWhite}},
                    .pictures = {}};

  const auto inspector =
      TeachBoards(values.List<std::string>("good"), values, {"", options.reading});
  if (drawn) {
    GreyImage good;
    ReadImage(options.good, good, options.reading);
    results.report.pictures.emplace_back("Good: " + options.good, good);
  }
  size_t failed = 0;
  for (const std::string& path : options.tested) {
    try {
      GreyImage image;
      ReadImage(path, image, options.reading);
      try {
        Record(path, image, *inspector, inspector->Inspect(image), drawn, results);
      } catch (const Failure& failure) {
        throw Failure("'" + path + "' " + failure.what());
      }
    } catch (const Failure& failure) {
      Warn(failure.what());
      ++failed;
    }
  }
  results.findings.facts = {
      {"good", "Good board", options.good},
      {"tolerance", "Tolerance at edges, pixels", int64_t{inspector->Tolerance()}},
      {"inspected", "Boards inspected", int64_t{results.inspected}},
      {"passed", "Boards without defects", int64_t{results.passed}},
      {"found", "Defects", static_cast<int64_t>(results.findings.rows.size())}};
  Print(options.output, results.findings);
  if (drawn) WritePictures(options.output, results.report, results.findings);
  RequireInspected(failed, options.tested.size());
  if (results.passed < results.inspected) throw NotAllPassed();
}

// ---- folders ------------------------------------------------------------------------------------

bool IsFolder(const std::string& path) {
  std::error_code error;
  return std::filesystem::is_directory(path, error);
}

// Whether boards are judged one by one, as `quillon run` does, and not told defect by defect.
bool IsBatch(const Options& options) {
  const BatchOptions& batch = options.batch;
  return IsFolder(options.good) ||
         std::any_of(options.tested.begin(), options.tested.end(), IsFolder) || batch.jobs > 0 ||
         batch.objects || !batch.folder.empty();
}

// The command as a recipe. `good` in the values are all good boards, for what the results are of.
kit::recipe::Recipe RecipeOf(const Options& options, const Values& values) {
  kit::recipe::Recipe recipe = kit::recipe::MakeRecipe(R"({
    "name": "Boards",
    "steps": [{"name": "defects", "operation": "inspect", "input": "image", "good": ["good"]}],
    "measurements": [
      {"name": "defects", "input": "defects", "value": "count", "max": 0},
      {"name": "missing", "input": "defects", "value": "missing", "which": "sum"},
      {"name": "extra", "input": "defects", "value": "extra", "which": "sum"}
    ]
  })");
  recipe.name = "Boards against " + options.good;
  kit::recipe::Step& step = recipe.steps[0];
  step.values = values;
  for (const Argument& argument : step.operation->arguments) {
    if (argument.type != Argument::Type::kFiles) {
      recipe.canonical += values.At(argument.name).dump() + ' ';
    }
  }
  return recipe;
}

void InspectFolders(const Options& options, const Arguments& arguments) {
  for (const auto& [name, isGiven] : {std::pair("--report", !options.output.report.empty()),
                                      std::pair("--draw", !options.output.drawn.empty())}) {
    if (isGiven) {
      RefuseUsage(name, "shows boards that are named one by one; --out makes a page for each");
    }
  }
  const bool arePairs = IsFolder(options.good);
  if (arePairs && !options.moreGood.empty()) {
    RefuseUsage("--good", "is for one good board, and " + options.good + " is a folder of them");
  }
  const std::vector<std::string> tested = ListImages(options.tested);
  std::vector<std::string> good = {options.good};
  good.insert(good.end(), options.moreGood.begin(), options.moreGood.end());
  const auto valuesWith = [&](const std::vector<std::string>& boards) {
    Values values = arguments.Read({{"good", {"good"}}});
    values.Set("good", boards);
    return values;
  };
  std::map<std::string, std::string> pairs;
  if (arePairs) {
    const GoodBoards boards(ListImages({options.good}));
    good.clear();
    for (const std::string& path : tested) {
      good.push_back(boards.Of(path));
      pairs[path] = good.back();
    }
  }
  kit::recipe::Recipe recipe = RecipeOf(options, valuesWith(good));
  if (arePairs) {
    recipe.steps[0].valuesOf = [&](const std::string& image) {
      return valuesWith({pairs.at(image)});
    };
  }
  BatchOptions batch = options.batch;
  batch.json = options.output.json;
  batch.csv = options.output.csv;
  const kit::recipe::Counts counts = RunBatch(recipe, {"", options.reading}, tested, batch);
  RequireInspected(counts.unreadable + counts.error, counts.images);
  if (counts.fail > 0) throw NotAllPassed();
}

}  // namespace

void AddInspect(Command top) {
  const Operation& operation = *FindOperation("inspect");
  auto options = std::make_shared<Options>();
  const Command command = AddOperation(top, operation);
  command.Footer(
      "Folders, --jobs, --out and --objects: a verdict for each board, as quillon run gives it. Of "
      "a "
      "folder of good boards each is compared with the tested ones of its name.\n"
      "Exit codes: 0 no defects, 3 defects found, 1 a board could not be inspected, "
      "2 wrong usage.");
  command.AddFileToRead("GOOD", options->good, "picture of the good board, or a folder of them")
      .Required();
  AddReadingOptions(command, options->reading);
  command
      .AddFileToRead("TEST", options->tested,
                     "pictures of the boards to inspect, or folders of them")
      .Required();
  command
      .AddFileToRead("--good", options->moreGood,
                     "another good board, to learn from; may be repeated")
      .ShownAs("FILE")
      .MayBeRepeated();
  const auto arguments = Arguments::Add(command, operation, {"good"});
  AddOutputOptions(command, options->output);
  AddBatchOptions(command, options->batch);
  command.Runs([options, arguments] {
    if (IsBatch(*options)) return InspectFolders(*options, *arguments);
    std::vector<std::string> good = {options->good};
    good.insert(good.end(), options->moreGood.begin(), options->moreGood.end());
    RunInspect(*options, arguments->Read({{"good", good}}));
  });
}

}  // namespace quillon::app
