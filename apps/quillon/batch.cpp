#include "batch.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>
#include <thread>

#include "apps/quillon/system/interrupt.h"
#include "apps/quillon/system/standard_streams.h"
#include "commands.h"
#include "kit/errors.h"
#include "kit/recipe/objects.h"
#include "kit/recipe/run_folder.h"
#include "kit/recipe/run_pages.h"
#include "kit/recipe/runner.h"
#include "progress.h"

namespace quillon::app {
namespace {

using namespace kit::recipe;
namespace fs = std::filesystem;

bool IsImageName(const fs::path& path) {
  std::string ending = path.extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const auto known = {".png", ".jpg", ".jpeg", ".tif", ".tiff", ".bmp", ".pgm", ".ppm"};
  return std::find(known.begin(), known.end(), ending) != known.end();
}

// Thousands of images of one camera have one thing to say.
Sources WithOneNote(Sources sources) {
  if (!sources.reading.note) return sources;
  sources.reading.note = [say = sources.reading.note,
                          isSaid = std::make_shared<std::atomic_flag>()](const std::string& note) {
    if (!isSaid->test_and_set()) say(note + "; further notes are left out");
  };
  return sources;
}

size_t JobsOf(const BatchOptions& options, size_t images) {
  const size_t wanted = options.jobs > 0 ? static_cast<size_t>(options.jobs)
                                         : std::max(1u, std::thread::hardware_concurrency());
  return std::clamp<size_t>(wanted, 1, std::max<size_t>(1, images));
}

std::optional<RunFolder> OpenFolder(const BatchOptions& options) {
  if (options.folder.empty()) return {};
  using enum RunFolder::Mode;
  return std::optional<RunFolder>(std::in_place, options.folder,
                                  options.resume      ? kResume
                                  : options.overwrite ? kOverwrite
                                                      : kNew);
}

std::optional<ResultsFile> OpenResults(const BatchOptions& options,
                                       const std::optional<RunFolder>& folder, const Recipe& recipe,
                                       const Sources& sources,
                                       const std::vector<std::string>& images,
                                       std::vector<ImageRecord>& done) {
  if (!folder) return {};
  const std::string path = ResultsIn(folder->Work());
  const RunHead head = {Fingerprint(recipe, sources), options.objects};
  if (options.resume) return ResultsFile::Resume(path, recipe, head, images, done);
  return ResultsFile::Begin(path, recipe, head);
}

void PrintSummary(const Recipe& recipe, const std::vector<ImageRecord>& records,
                  const BatchOptions& options) {
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
void InspectAll(const BatchOptions& options, const Recipe& recipe,
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
                           },
                       .isStopped = IsInterrupted};
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

}  // namespace

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

void AddBatchOptions(Command command, BatchOptions& options) {
  constexpr int kMostJobs = 256;
  command.AddOption("--jobs", options.jobs, "threads (default: one for each processor)")
      .Within(1, kMostJobs);
  const Option folder =
      command.AddOption("--out", options.folder, "folder for results and pages; made if missing");
  folder.ShownAs("FOLDER");
  const Option resume = command.AddFlag("--resume", options.resume,
                                        "go on with the run whose results are in that folder");
  resume.Needs(folder);
  command.AddFlag("--overwrite", options.overwrite, "begin anew in a folder that holds results")
      .Needs(folder)
      .Excludes(resume);
  command.AddFlag("--no-pages", options.noPages, "write the results alone into that folder")
      .Needs(folder);
  command.AddFlag(
      "--objects", options.objects,
      "tell every blob, match and defect too: with --json in each line, with --csv in a "
      "second table, and in the results");
}

Counts RunBatch(const Recipe& recipe, const Sources& given, const std::vector<std::string>& images,
                const BatchOptions& options) {
  const InterruptGuard guard;
  const Sources sources = WithOneNote(given);
  std::vector<std::unique_ptr<Inspector>> inspectors;
  for (size_t i = JobsOf(options, images.size()); i > 0; --i) {
    inspectors.push_back(std::make_unique<Inspector>(recipe, sources));
  }
  std::optional<RunFolder> folder = OpenFolder(options);
  std::vector<ImageRecord> records;
  std::optional<ResultsFile> file = OpenResults(options, folder, recipe, sources, images, records);
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
  return Count(records);
}

}  // namespace quillon::app
