#include "kit/boards/good_boards.h"

#include <filesystem>
#include <utility>

#include "kit/errors.h"

namespace quillon::kit {
namespace {

std::string NameOf(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

std::string StemOf(const std::string& path) { return std::filesystem::path(path).stem().string(); }

std::string BeginningOf(const std::string& path) {
  const std::string stem = StemOf(path);
  return stem.substr(0, stem.find_last_of("_-"));
}

}  // namespace

GoodBoards::GoodBoards(const std::vector<std::string>& paths) try {
  for (const std::string& path : paths) {
    byName_.emplace(NameOf(path), path);
    byStem_.emplace(StemOf(path), path);
    byBeginning_.emplace(BeginningOf(path), path);
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the names of good boards");
}

const std::string& GoodBoards::Of(const std::string& tested) const try {
  for (const auto& [paths, key] :
       {std::pair(&byName_, NameOf(tested)), std::pair(&byStem_, StemOf(tested)),
        std::pair(&byBeginning_, BeginningOf(tested))}) {
    const std::string* found = nullptr;
    const auto [first, last] = paths->equal_range(key);
    for (auto entry = first; entry != last; ++entry) {
      std::error_code error;
      if (std::filesystem::equivalent(entry->second, tested, error)) continue;
      if (found) {
        throw Failure("two good boards could be that of '" + tested + "': '" + *found + "' and '" +
                      entry->second + "'");
      }
      found = &entry->second;
    }
    if (found) return *found;
  }
  throw Failure("no good board has the name of '" + tested + "'");
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the names of good boards");
}

}  // namespace quillon::kit
