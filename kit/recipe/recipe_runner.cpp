#include "quillon/recipe.h"

#include <filesystem>

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

RecipeRunner::RecipeRunner(const std::string& path) : inside_(std::make_unique<Inside>(path)) {}
RecipeRunner::RecipeRunner(RecipeRunner&&) noexcept = default;
RecipeRunner::~RecipeRunner() = default;

RecipeResult RecipeRunner::RunFile(const std::string& path) {
  return inside_->Told(inside_->inspector.Inspect(path));
}
RecipeResult RecipeRunner::Run(const GreyImage& image, const std::string& name) {
  return inside_->Told(inside_->inspector.Inspect(image, name));
}
RecipeResult RecipeRunner::Run(const ColourImage& image, const std::string& name) {
  return inside_->Told(inside_->inspector.Inspect(image, name));
}

}  // namespace quillon
