// A command for each operation that finds faults: quillon NAME GOOD TEST... tells where pictures
// differ from a good one; of folders, whether they do.
#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "apps/quillon/system/standard_streams.h"
#include "arguments.h"
#include "batch.h"
#include "commands.h"
#include "kit/boards/good_boards.h"
#include "kit/errors.h"
#include "options.h"
#include "progress.h"

namespace quillon::app {
namespace {

struct Options {
  Reading reading;
  std::vector<std::string> tested;
  Output output;
  BatchOptions batch;
};

// What has been inspected so far.
struct Results {
  Findings findings;
  Report report;
  int inspected = 0, passed = 0;
};

void Record(const Searched& searched, const ReadyOperation& ready, bool drawn, Results& results) {
  ++results.inspected;
  if (searched.things.empty()) ++results.passed;
  const int firstRow = static_cast<int>(results.findings.rows.size());
  for (auto& row : ready.Tell(searched).rows) {
    row.insert(row.begin(), searched.name);
    results.findings.rows.push_back(std::move(row));
  }
  if (drawn) ready.Draw(searched, firstRow, results.report);
}

void RequireInspected(size_t failed, size_t boards) {
  if (failed == 0) return;
  throw Failure(std::to_string(failed) + " of " + std::to_string(boards) +
                " boards could not be inspected");
}

// The files that teach what is good.
const char* GoodOf(const Operation& operation) {
  for (const Argument& argument : operation.arguments) {
    if (argument.type == Argument::Type::kFiles) return argument.name;
  }
  throw Failure(std::string(operation.name) + " learns from no files");
}

// A board that is compared with itself passes, whatever is wrong with it.
void SayOwnGood(const std::vector<std::string>& good, const std::vector<std::string>& tested) {
  for (const std::string& path : tested) {
    const auto isSame = [&](const std::string& other) {
      std::error_code error;
      return std::filesystem::equivalent(path, other, error);
    };
    if (std::any_of(good.begin(), good.end(), isSame)) {
      Warn("note: '" + path + "' is compared with itself: it is a good board, too");
    }
  }
}

void Run(const Operation& operation, const Options& options, Values values) {
  SayOwnGood(values.List<std::string>(GoodOf(operation)), options.tested);
  const Progress progress("inspecting");
  const bool drawn = options.output.WantsPictures();
  ReadyOperation ready(operation, std::move(values), {"", options.reading});
  Content found;
  Results results = {.findings = ready.Tell({"", {}, operation.output, found.things}),
                     .report = drawn ? ready.Page("") : Report{}};
  results.findings.columns.insert(results.findings.columns.begin(), {"board", "board"});
  size_t failed = 0;
  for (const std::string& path : options.tested) {
    try {
      Source image;
      image.Read(path, operation.inputs[0], options.reading);
      try {
        ready.Run(image.View(), {}, found);
        Record({path, image.View(), operation.output, found.things}, ready, drawn, results);
      } catch (const OutOfMemory&) {
        throw;
      } catch (const Failure& failure) {
        throw Failure("'" + path + "' " + failure.what());
      }
    } catch (const Failure& failure) {
      Warn(failure.what());
      ++failed;
    }
  }
  std::vector<Fact>& facts = results.findings.facts;
  facts.insert(facts.end(),
               {{"inspected", "Boards inspected", int64_t{results.inspected}},
                {"passed", "Boards without defects", int64_t{results.passed}},
                {"found", "Defects", static_cast<int64_t>(results.findings.rows.size())}});
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
bool IsBatch(const Options& options, const std::string& good) {
  const BatchOptions& batch = options.batch;
  return IsFolder(good) || std::any_of(options.tested.begin(), options.tested.end(), IsFolder) ||
         batch.jobs > 0 || batch.objects || !batch.folder.empty();
}

// The command as a recipe. The values name all good boards, for what the results are of: their
// names are not part of what it does.
kit::recipe::Recipe RecipeOf(const Operation& operation, const Values& values) {
  const char* const good = GoodOf(operation);
  const Json step = {{"name", "defects"},
                     {"operation", operation.name},
                     {"input", "image"},
                     {good, Json::array({"good"})}};
  const Json measurements = Json::parse(R"([
      {"name": "defects", "input": "defects", "value": "count", "max": 0},
      {"name": "missing", "input": "defects", "value": "missing", "which": "sum"},
      {"name": "extra", "input": "defects", "value": "extra", "which": "sum"}])");
  const Json text = {{"name", "Boards"}, {"steps", {step}}, {"measurements", measurements}};
  kit::recipe::Recipe recipe = kit::recipe::MakeRecipe(text.dump());
  recipe.steps[0].values = values;
  for (const Argument& argument : operation.arguments) {
    if (argument.name != good) recipe.canonical += values.At(argument.name).dump() + ' ';
  }
  return recipe;
}

// A tested board that is missing is no board that passed.
void SayIdle(const std::vector<std::string>& boards, const std::vector<std::string>& used,
             const std::vector<std::string>& tested) {
  std::set<std::string> idle(boards.begin(), boards.end());
  for (const auto* paths : {&used, &tested}) {
    for (const std::string& path : *paths) idle.erase(path);
  }
  if (idle.empty()) return;
  Warn("note: no tested board is there for " + std::to_string(idle.size()) + " of " +
       std::to_string(boards.size()) + " good ones, the first of them '" + *idle.begin() + "'");
}

void RunFolders(const Operation& operation, const Options& options, Values values) {
  for (const auto& [name, isGiven] : {std::pair("--report", !options.output.report.empty()),
                                      std::pair("--draw", !options.output.drawn.empty())}) {
    if (isGiven) {
      RefuseUsage(name, "shows boards that are named one by one; --out makes a page for each");
    }
  }
  const char* const key = GoodOf(operation);
  const auto good = values.List<std::string>(key);
  const bool arePairs = IsFolder(good[0]);
  if (arePairs && good.size() > 1) {
    RefuseUsage(OptionName(key), "is for one good board, and " + good[0] + " is a folder of them");
  }
  const std::vector<std::string> tested = ListImages(options.tested);
  std::map<std::string, std::string> pairs;
  if (!arePairs) SayOwnGood(good, tested);
  if (arePairs) {
    const std::vector<std::string> boards = ListImages({good[0]});
    const GoodBoards byName(boards);
    std::vector<std::string> paired = good;
    for (const std::string& path : tested) {
      paired.push_back(byName.Of(path));
      pairs[path] = paired.back();
    }
    SayIdle(boards, paired, tested);
    values.Set(key, std::vector<std::string>(paired.begin() + 1, paired.end()));
  }
  kit::recipe::Recipe recipe = RecipeOf(operation, values);
  recipe.name = "Boards against " + good[0];
  if (arePairs) {
    recipe.steps[0].valuesOf = [&](const std::string& image) {
      Values its = values;
      its.Set(key, Json::array({pairs.at(image)}));
      return its;
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

void AddJudgingOperation(Command top, const Operation& operation) {
  auto options = std::make_shared<Options>();
  const auto arguments = std::make_shared<Arguments>(operation);
  const Command command = AddOperation(top, operation);
  command.Footer(
      "Folders, --jobs, --out and --objects: a verdict for each board, as quillon run gives it. Of "
      "a folder of good boards each is compared with the tested ones of its name.\n"
      "Exit codes: 0 no defects, 3 defects found, 1 a board could not be inspected, "
      "2 wrong usage.");
  arguments->AddByPlace(command, "; or a folder of them");
  AddReadingOptions(command, options->reading);
  command
      .AddFileToRead("TEST", options->tested,
                     "pictures of the boards to inspect, or folders of them")
      .Required();
  arguments->AddOptions(command);
  AddOutputOptions(command, options->output);
  AddBatchOptions(command, options->batch);
  command.Runs([&operation, options, arguments] {
    const Values values = arguments->Read();
    const std::string good = values.List<std::string>(GoodOf(operation))[0];
    (IsBatch(*options, good) ? RunFolders : Run)(operation, *options, values);
  });
}

}  // namespace quillon::app
