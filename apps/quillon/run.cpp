// quillon run RECIPE IMAGE...: inspects images by a recipe. quillon recipe: checks recipes, and
// says what they can be made of.
#include <algorithm>
#include <atomic>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <thread>

#include "commands.h"
#include "kit/errors.h"
#include "kit/interrupt/interrupt.h"
#include "kit/recipe/objects.h"
#include "kit/recipe/results.h"
#include "kit/recipe/run_folder.h"
#include "kit/recipe/run_pages.h"
#include "kit/recipe/runner.h"
#include "kit/recipe/schema.h"
#include "kit/text/text.h"
#include "options.h"
#include "progress.h"
#include "standard_streams.h"

namespace quillon::app {
namespace {

using namespace kit::recipe;
namespace fs = std::filesystem;

struct Options {
  std::string recipe;
  std::vector<std::string> images;
  int jobs = 0;
  Reading reading;
  std::string folder;  // empty: nothing is written
  bool resume = false, overwrite = false, noPages = false;
  bool json = false, csv = false, objects = false;
};

bool IsImageName(const fs::path& path) {
  std::string ending = path.extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const auto known = {".png", ".jpg", ".jpeg", ".tif", ".tiff", ".bmp", ".pgm", ".ppm"};
  return std::find(known.begin(), known.end(), ending) != known.end();
}

// Files as they are given, folders as the images in them, by name; with the same slashes on every
// system, so that results can be compared.
std::vector<std::string> ListImages(const std::vector<std::string>& given) {
  std::vector<std::string> images;
  for (const std::string& path : given) {
    std::error_code error;
    if (!fs::exists(fs::symlink_status(path, error))) {
      throw Failure("there is no image or folder '" + path + "'");
    }
    if (!fs::is_directory(path, error)) {
      images.push_back(fs::path(path).generic_string());
      continue;
    }
    std::vector<std::string> found;
    for (auto entry = fs::directory_iterator(path, error);
         !error && entry != fs::directory_iterator(); entry.increment(error)) {
      std::error_code ignored;  // a link that leads to itself is no folder
      if (!entry->is_directory(ignored) && IsImageName(entry->path())) {
        found.push_back(entry->path().generic_string());
      }
    }
    if (error) throw Failure("cannot read folder '" + path + "': " + error.message());
    if (found.empty()) {
      throw Failure("there is no image in folder '" + path + "' (" + kReadFormats + ")");
    }
    std::sort(found.begin(), found.end());
    images.insert(images.end(), found.begin(), found.end());
  }
  return images;
}

std::string FolderOf(const std::string& path) { return fs::path(path).parent_path().string(); }

Sources SourcesOf(const Options& options) { return {FolderOf(options.recipe), options.reading}; }

// Thousands of images of one camera have one thing to say.
void SayOneNote(Reading& reading) {
  reading.note = [say = reading.note,
                  isSaid = std::make_shared<std::atomic_flag>()](const std::string& note) {
    if (!isSaid->test_and_set()) say(note + "; further notes are left out");
  };
}

size_t JobsOf(const Options& options, size_t images) {
  const size_t wanted = options.jobs > 0 ? static_cast<size_t>(options.jobs)
                                         : std::max(1u, std::thread::hardware_concurrency());
  return std::clamp<size_t>(wanted, 1, std::max<size_t>(1, images));
}

std::optional<RunFolder> OpenFolder(const Options& options) {
  if (options.folder.empty()) return {};
  using enum RunFolder::Mode;
  return std::optional<RunFolder>(std::in_place, options.folder,
                                  options.resume      ? kResume
                                  : options.overwrite ? kOverwrite
                                                      : kNew);
}

std::optional<ResultsFile> OpenResults(const Options& options,
                                       const std::optional<RunFolder>& folder, const Recipe& recipe,
                                       const std::vector<std::string>& images,
                                       std::vector<ImageRecord>& done) {
  if (!folder) return {};
  const std::string path = ResultsIn(folder->Work());
  const RunHead head = {Fingerprint(recipe, SourcesOf(options)), options.objects};
  if (options.resume) return ResultsFile::Resume(path, recipe, head, images, done);
  return ResultsFile::Begin(path, recipe, head);
}

void PrintSummary(const Recipe& recipe, const std::vector<ImageRecord>& records,
                  const Options& options) {
  const Findings findings = ToFindings(recipe, records);
  std::ostringstream text;
  if (options.csv) PrintCsv(findings, text);
  if (options.csv && options.objects) {
    text << '\n';
    PrintCsv(ObjectsToFindings(recipe, records), text);
  }
  if (!options.csv && !options.json) PrintText(findings, text);
  PrintAtOnce(text.str());
}

// Everything that was found out is written, also where the run ends early.
void InspectAll(const Options& options, const Recipe& recipe,
                const std::vector<std::string>& images,
                std::vector<std::unique_ptr<Inspector>>& inspectors,
                std::optional<ResultsFile>& file, const std::optional<Pages>& pages,
                std::vector<ImageRecord>& records) {
  const auto print = [&](const ImageRecord& record) {
    if (options.json) PrintAtOnce(ToLine(recipe, record, options.objects) + '\n');
  };
  for (const ImageRecord& record : records) print(record);
  const std::vector<Kind> kinds = KindsOfThings(recipe);
  std::exception_ptr failure;
  {
    Progress progress("inspecting");
    const int total = static_cast<int>(images.size());
    progress.Step(static_cast<int>(records.size()), total);
    const Work work = {.images = images,
                       .first = records.size(),
                       .inspect =
                           [&](Inspector& inspector, size_t index) {
                             ImageRecord record = inspector.Inspect(images[index]);
                             if (options.objects && record.error.empty()) {
                               record.objects = ObjectRows(AllFound(recipe, inspector), kinds);
                             }
                             if (pages && !pages->Write(index, record, inspector)) {
                               Warn("there is not enough memory for the pictures of the page of '" +
                                    images[index] + "'");
                             }
                             return record;
                           },
                       .receive =
                           [&](size_t index, ImageRecord record) {
                             if (file) file->Append(recipe, record);
                             records.push_back(std::move(record));
                             print(records.back());
                             if (!options.csv) records.back().objects = {};
                             progress.Step(static_cast<int>(index + 1), total);
                           }};
    try {
      RunAll(work, inspectors);
    } catch (...) {
      failure = std::current_exception();
    }
  }
  try {
    if (pages) pages->WriteIndex(records);
  } catch (...) {
    if (!failure) throw;
  }
  if (failure) std::rethrow_exception(failure);
}

void Run(const Options& options) {
  const InterruptGuard guard;
  const Recipe recipe = ReadRecipe(options.recipe);
  const std::vector<std::string> images = ListImages(options.images);
  std::vector<std::unique_ptr<Inspector>> inspectors;
  for (size_t i = JobsOf(options, images.size()); i > 0; --i) {
    inspectors.push_back(std::make_unique<Inspector>(recipe, SourcesOf(options)));
  }
  std::optional<RunFolder> folder = OpenFolder(options);
  std::vector<ImageRecord> records;
  std::optional<ResultsFile> file = OpenResults(options, folder, recipe, images, records);
  std::optional<Pages> pages;
  if (folder && !options.noPages) pages.emplace(recipe, folder->Work());

  InspectAll(options, recipe, images, inspectors, file, pages, records);
  const bool isWhole = records.size() == images.size();
  file.reset();
  if (folder && isWhole) folder->Finish();
  PrintSummary(recipe, records, options);
  if (!isWhole) {
    std::string rest = folder ? "; --resume goes on" : "";
    if (folder && folder->KeepsARunBefore()) rest += ", until then the run before stays";
    throw Failure("interrupted after " + std::to_string(records.size()) + " of " +
                  std::to_string(images.size()) + " images" + rest);
  }
  if (Count(records).pass < records.size()) throw NotAllPassed();
}

void AddRun(Command top) {
  auto options = std::make_shared<Options>();
  const Command command =
      top.Add("run", "Inspect images by a recipe of steps and limits").Under("recipes");
  command.AddFileToRead("RECIPE", options->recipe, "recipe to read (JSON; docs/recipes.md)")
      .Required();
  command.AddFileToRead("IMAGE", options->images, "pictures, or folders of pictures").Required();
  constexpr int kMostJobs = 256;
  command.AddOption("--jobs", options->jobs, "threads (default: one for each processor)")
      .Within(1, kMostJobs);
  AddReadingOptions(command, options->reading);
  SayOneNote(options->reading);
  const Option folder =
      command.AddOption("--out", options->folder, "folder for results and pages; made if missing");
  folder.ShownAs("FOLDER");
  const Option resume = command.AddFlag("--resume", options->resume,
                                        "go on with the run whose results are in that folder");
  resume.Needs(folder);
  command.AddFlag("--overwrite", options->overwrite, "begin anew in a folder that holds results")
      .Needs(folder)
      .Excludes(resume);
  command.AddFlag("--no-pages", options->noPages, "write the results alone into that folder")
      .Needs(folder);
  command.AddFlag("--objects", options->objects,
                  "tell every blob and match too: with --json in each line, with --csv in a second "
                  "table, and in the results");
  const Option json = command.AddFlag("--json", options->json,
                                      "print a line of JSON for each image as soon as it is known");
  command.AddFlag("--csv", options->csv, "print CSV instead of a table").Excludes(json);
  command.Runs([options] { Run(*options); });
}

void AddRecipe(Command top) {
  const Command command =
      top.Add("recipe", "Check recipes, and what they are made of").Under("recipes");
  command.NeedsSubcommand();

  auto path = std::make_shared<std::string>();
  const Command check =
      command.Add("check", "Say all that is wrong with a recipe and what it names");
  check.AddFileToRead("RECIPE", *path, "recipe to read").Required();
  check.Runs([path] {
    const Recipe recipe = ReadRecipe(*path);
    const Inspector inspector(recipe, FolderOf(*path));
    std::cout << Visible(*path) << ": " << recipe.steps.size() << " steps, "
              << recipe.measurements.size() << " measurements\n";
  });

  command.Add("schema", "Print the JSON Schema of recipes").Runs([] {
    std::cout << RecipeSchema().dump(2) << '\n';
  });
  command.Add("operations", "Print the operations and their arguments (Markdown)").Runs([] {
    std::cout << OperationsInMarkdown();
  });
}

}  // namespace

void AddRecipes(Command top) {
  AddRun(top);
  AddRecipe(top);
}

}  // namespace quillon::app
