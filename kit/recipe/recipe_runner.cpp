#include "quillon/recipe.h"

#include <filesystem>

#include "kit/errors.h"
#include "kit/recipe/inspector.h"
#include "kit/recipe/results.h"

namespace quillon {

struct RecipeRunner::Inside {
  explicit Inside(const std::string& path)
      : recipe(kit::recipe::ReadRecipe(path)),
        inspector(recipe, kit::Sources(std::filesystem::path(path).parent_path().string())) {}

  RecipeResult Told(const kit::recipe::ImageRecord& record) const {
    return {NameOf(record.verdict), record.error, ToLine(recipe, record)};
  }

  kit::recipe::Recipe recipe;
  kit::recipe::Inspector inspector;
};

RecipeRunner::RecipeRunner(const std::string& path) try : inside_(std::make_unique<Inside>(path)) {
} catch (const std::bad_alloc&) {
  throw kit::OutOfMemory("a recipe");
}
RecipeRunner::RecipeRunner(RecipeRunner&&) noexcept = default;
RecipeRunner::~RecipeRunner() = default;

RecipeResult RecipeRunner::RunFile(const std::string& path) try {
  return inside_->Told(inside_->inspector.Inspect(path));
} catch (const std::bad_alloc&) {
  throw kit::OutOfMemory("the record of an image");
}
RecipeResult RecipeRunner::Run(const GreyImage& image, const std::string& name) try {
  return inside_->Told(inside_->inspector.Inspect(image, name));
} catch (const std::bad_alloc&) {
  throw kit::OutOfMemory("the record of an image");
}
RecipeResult RecipeRunner::Run(const ColourImage& image, const std::string& name) try {
  return inside_->Told(inside_->inspector.Inspect(image, name));
} catch (const std::bad_alloc&) {
  throw kit::OutOfMemory("the record of an image");
}

}  // namespace quillon
