// Recipes of any bytes. One that is free of problems is the same when its canonical text is read
// again, and can be run on an image: it ends with a verdict.
#include <algorithm>
#include <cmath>

#include "fuzz/file.h"
#include "fuzz/input.h"
#include "kit/errors.h"
#include "kit/recipe/inspector.h"
#include "kit/recipe/recipe.h"

namespace quillon::fuzz {
namespace {

using namespace kit::recipe;

// What scaled images and templates from files cost is bounded by their own fuzzers.
bool IsQuick(const Recipe& recipe) {
  if (recipe.steps.size() > 8) return false;
  const auto isFile = [](const kit::Argument& argument) {
    return argument.type == kit::Argument::Type::kFile ||
           argument.type == kit::Argument::Type::kFiles;
  };
  for (const Step& step : recipe.steps) {
    const auto& arguments = step.operation->arguments;
    const bool readsFiles = std::any_of(arguments.begin(), arguments.end(), isFile);
    if (readsFiles || step.operation->name == std::string("scale")) return false;
  }
  return true;
}

void Inspect(const Recipe& recipe) {
  std::string picture = "P5 40 30 255\n";
  for (int i = 0; i < 40 * 30; ++i) picture += static_cast<char>(i * i / 7);
  const char* path = FileOf(reinterpret_cast<const uint8_t*>(picture.data()), picture.size());
  Inspector inspector(recipe, {});
  const ImageRecord record = inspector.Inspect(path);
  Require(record.verdict != Verdict::kUnreadable, "the picture is one");
  Require(record.values.size() == recipe.measurements.size() || record.verdict == Verdict::kError,
          "every measurement has its value");
  for (const auto& value : record.values) {
    Require(!value || std::isfinite(*value), "a value is a number");
  }
}

}  // namespace
}  // namespace quillon::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  using namespace quillon::fuzz;
  Problems problems;
  const Recipe recipe = ParseRecipe({reinterpret_cast<const char*>(bytes), size}, problems);
  if (!problems.empty()) return 0;
  const Recipe again = ParseRecipe(recipe.canonical, problems);
  Require(problems.empty() && again.canonical == recipe.canonical,
          "the canonical text is the same recipe");
  try {
    if (IsQuick(recipe)) Inspect(recipe);
  } catch (const quillon::kit::Failure&) {  // a message to the user, by design
  }
  return 0;
}
