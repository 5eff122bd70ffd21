#include "kit/operations/operation.h"

#include <algorithm>
#include <filesystem>

namespace quillon::kit {

const char* NameOf(Kind kind) {
  switch (kind) {
    case Kind::kNone:
      return "nothing";
    case Kind::kPicture:
      return "picture";
    case Kind::kColour:
      return "colour picture";
    case Kind::kBlobs:
      return "blobs";
    case Kind::kMatches:
      return "matches";
  }
  return "";
}

std::string WithArticle(Kind kind) {
  const bool isOne = kind == Kind::kPicture || kind == Kind::kColour;
  return (isOne ? "a " : "") + std::string(NameOf(kind));
}

const std::vector<RecipeOperation>& Operations() {
  static const std::vector<RecipeOperation> operations = [] {
    std::vector<RecipeOperation> all;
    for (auto family : {PointOperations, FilterOperations, MorphologyOperations,
                        CalibrationOperations, ObjectOperations}) {
      for (RecipeOperation& operation : family()) all.push_back(std::move(operation));
    }
    return all;
  }();
  return operations;
}

const RecipeOperation* FindOperation(const std::string& name) {
  const auto& all = Operations();
  const auto found = std::find_if(all.begin(), all.end(),
                                  [&](const RecipeOperation& row) { return row.name == name; });
  return found == all.end() ? nullptr : &*found;
}

std::string InFolder(const std::string& folder, const std::string& name) {
  return (std::filesystem::path(folder) / name).generic_string();
}

}  // namespace quillon::kit
