// quillon run RECIPE IMAGE...: inspects images by a recipe. quillon recipe: checks recipes, and
// says what they can be made of.
#include <filesystem>
#include <iostream>
#include <memory>

#include "batch.h"
#include "commands.h"
#include "kit/recipe/schema.h"
#include "kit/text/text.h"
#include "options.h"

namespace quillon::app {
namespace {

using namespace kit::recipe;

std::string FolderOf(const std::string& path) {
  return std::filesystem::path(path).parent_path().string();
}

void AddRun(Command top) {
  struct Options {
    std::string recipe;
    std::vector<std::string> images;
    Reading reading;
    BatchOptions batch;
  };
  auto options = std::make_shared<Options>();
  const Command command =
      top.Add("run", "Inspect images by a recipe of steps and limits").Under("recipes");
  command.AddFileToRead("RECIPE", options->recipe, "recipe to read (JSON; docs/recipes.md)")
      .Required();
  command.AddFileToRead("IMAGE", options->images, "pictures, or folders of pictures").Required();
  AddBatchOptions(command, options->batch);
  AddReadingOptions(command, options->reading);
  const Option json = command.AddFlag("--json", options->batch.json,
                                      "print a line of JSON for each image as soon as it is known");
  command.AddFlag("--csv", options->batch.csv, "print CSV instead of a table").Excludes(json);
  command.Runs([options] {
    const Recipe recipe = ReadRecipe(options->recipe);
    const Counts counts = RunBatch(recipe, {FolderOf(options->recipe), options->reading},
                                   ListImages(options->images), options->batch);
    if (counts.pass < counts.images) throw NotAllPassed();
  });
}

void AddRecipe(Command top) {
  const Command command =
      top.Add("recipe", "Check recipes, and what they are made of").Under("recipes");
  command.NeedsSubcommand();

  struct Options {
    std::string path;
    Reading reading;
  };
  auto options = std::make_shared<Options>();
  const Command check =
      command.Add("check", "Say all that is wrong with a recipe and what it names");
  check.AddFileToRead("RECIPE", options->path, "recipe to read").Required();
  AddReadingOptions(check, options->reading);
  check.Runs([options] {
    const Recipe recipe = ReadRecipe(options->path);
    const Inspector inspector(recipe, {FolderOf(options->path), options->reading});
    std::cout << Visible(options->path) << ": " << recipe.steps.size() << " steps, "
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
