#include "kit/recipe/run_folder.h"

#include <cctype>
#include <filesystem>
#include <fstream>

#include "kit/errors.h"

namespace quillon::kit::recipe {
namespace {

namespace fs = std::filesystem;

// In the order in which they take their places.
constexpr const char* kParts[] = {"pages", "thumbs", "index.html", "results.jsonl"};

// The stages of a run that replaces another one: it works in the first; when it is whole that gets
// the second name, and the old files are removed; then it gets the third, and the new ones take
// their places. A program that is killed at any point leaves a name that tells what is still to be
// done.
constexpr const char* kUnfinished = "unfinished";
constexpr const char* kFinished = "finished";
constexpr const char* kPlacing = "placing";

std::string In(const std::string& folder, const std::string& name) { return folder + "/" + name; }

bool IsThere(const std::string& path) {
  std::error_code error;
  return fs::exists(fs::symlink_status(path, error));
}

std::string Beginning(const fs::path& path) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return "not a file of ours";
  std::string text(1024, '\0');
  std::ifstream file(path, std::ios::binary);
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(file.gcount()));
  return text;
}

// Whether a run of ours wrote the file. It may be empty, where a run was killed before the first
// line.
bool IsOurResults(const fs::path& path) {
  const std::string text = Beginning(path);
  return text.empty() ||
         (text.starts_with("{\"recipe\":") && text.find("\"fingerprint\":") != std::string::npos);
}

bool IsOurPage(const fs::path& path) {
  return Beginning(path).find("<meta name='generator' content='quillon ") != std::string::npos;
}

bool IsNumbered(const fs::path& path, const char* ending) {
  const std::string name = path.filename().string();
  return std::isdigit(static_cast<unsigned char>(name[0])) && name.ends_with(ending);
}

bool IsLeftover(const fs::path& path) {
  const std::string name = path.filename().string();
  return name.starts_with(".quillon-") && name.ends_with(".part");
}

// Files that a killed program was writing. Whoever holds the lock may remove them.
void RemoveLeftovers(const std::string& folder) {
  for (const char* part : {"pages", "thumbs"}) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(In(folder, part), error)) {
      if (IsLeftover(entry.path())) fs::remove(entry.path(), error);
    }
  }
}

// The first thing under the names of a run's files that no run wrote; empty where there is none.
std::string ForeignIn(const std::string& folder) {
  std::string index = In(folder, "index.html"), results = ResultsIn(folder);
  if (IsThere(results) && !IsOurResults(results)) return results;
  if (IsThere(index) && !IsOurPage(index)) return index;
  for (const char* part : {"pages", "thumbs"}) {
    std::string path = In(folder, part);
    std::error_code error;
    if (!IsThere(path)) continue;
    if (!fs::is_directory(path, error)) return path;
    const bool arePages = std::string(part) == "pages";
    for (const auto& entry : fs::directory_iterator(path, error)) {
      const fs::path& file = entry.path();
      const bool isOurs =
          IsLeftover(file) ||
          (arePages ? IsNumbered(file, ".html") && IsOurPage(file) : IsNumbered(file, ".jpg"));
      if (!isOurs) return file.generic_string();
    }
  }
  return "";
}

// A run would write over what is there, and no results say that it is a run's.
void RequireNoFiles(const std::string& folder) {
  for (const char* part : kParts) {
    if (!IsThere(In(folder, part))) continue;
    throw Failure("'" + In(folder, part) +
                  "' is there already, without the results of a run: name another folder");
  }
}

void RequireOurs(const std::string& folder) {
  const std::string foreign = ForeignIn(folder);
  if (foreign.empty()) return;
  const bool isResults = foreign == ResultsIn(folder);
  throw Failure("'" + foreign + "' " +
                (isResults ? "holds no results of a run" : "was not written by a run") +
                ", and is not overwritten: move it away, or name another folder");
}

std::string Made(std::string folder) {
  MakeFolder(folder);
  return folder;
}

void Rename(const std::string& from, const std::string& to) {
  std::error_code error;
  fs::rename(from, to, error);
  if (error) throw Failure("cannot rename '" + from + "' to '" + to + "': " + error.message());
}

}  // namespace

std::string ResultsIn(const std::string& folder) try {
  return In(folder, "results.jsonl");
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the name of a file");
}

RunFolder::RunFolder(std::string folder, Mode mode) try
    : folder_(Made(std::move(folder))), work_(folder_), lock_(folder_) {
  TakePlace();  // for a run that was whole, but killed before its files had their places
  const std::string unfinished = In(folder_, kUnfinished);
  const bool hasResults = IsThere(ResultsIn(folder_)), hasUnfinished = IsThere(unfinished);
  if (mode == Mode::kNew && hasResults) {
    throw Failure("'" + ResultsIn(folder_) +
                  "' holds the results of a run already: --resume goes on with it, --overwrite "
                  "begins anew");
  }
  if (mode == Mode::kResume && hasUnfinished) {
    work_ = unfinished;
  } else if (hasResults) {
    if (mode == Mode::kOverwrite) {
      RequireOurs(folder_);
      RequireOurs(unfinished);
      std::error_code ignored;
      fs::remove_all(unfinished, ignored);
      MakeFolder(unfinished);
      work_ = unfinished;
    }
  } else {
    RequireNoFiles(folder_);
  }
  RemoveLeftovers(work_);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the folder of a run");
}

void RunFolder::Finish() try {
  if (!KeepsARunBefore()) return;
  RequireOurs(folder_);
  Rename(work_, In(folder_, kFinished));
  TakePlace();
  work_ = folder_;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the folder of a run");
}

void RunFolder::TakePlace() {
  const std::string finished = In(folder_, kFinished), placing = In(folder_, kPlacing);
  if (IsThere(finished)) {
    RequireOurs(finished);
    for (const char* part : kParts) {
      std::error_code error;
      fs::remove_all(In(folder_, part), error);
      if (error) throw Failure("cannot remove '" + In(folder_, part) + "': " + error.message());
    }
    Rename(finished, placing);
  }
  if (!IsThere(placing)) return;
  RequireOurs(placing);
  for (const char* part : kParts) {
    if (IsThere(In(placing, part))) Rename(In(placing, part), In(folder_, part));
  }
  std::error_code ignored;
  fs::remove(placing, ignored);
}

}  // namespace quillon::kit::recipe
