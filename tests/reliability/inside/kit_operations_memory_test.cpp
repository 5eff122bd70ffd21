// The same of operations, all of them, and of recipes from their text to the pages of a run.
#include <algorithm>
#include <memory>

#include "kit/files/files.h"
#include "kit/operations/exports.h"
#include "kit/operations/operation.h"
#include "kit/recipe/inspector.h"
#include "kit/recipe/objects.h"
#include "kit/recipe/results.h"
#include "kit/recipe/run_folder.h"
#include "kit/recipe/run_pages.h"
#include "kit/recipe/runner.h"
#include "kit/recipe/schema.h"
#include "kit/text/text.h"
#include "quillon/recipe.h"
#include "reliability/inside/kit_memory.h"

namespace quillon::kit::test {
namespace {

// A value that the argument takes; nothing where there is none to be had here.
Json ValueFor(const Argument& argument) {
  switch (argument.type) {
    case Argument::Type::kFile:
      return "pattern";
    case Argument::Type::kFiles:
      return {"tray"};
    case Argument::Type::kChoice:
      return argument.choices[0];
    case Argument::Type::kBox:
      return {100, 75, 120, 30, 10};
    case Argument::Type::kRing:
      return {90, 70, 5, 60};
    case Argument::Type::kRectangle:
      return {10, 10, 100, 80};
    case Argument::Type::kPoints:
      return {{5, 5}, {100, 5}, {5, 100}};
    case Argument::Type::kRange:
    case Argument::Type::kWholeRange:
      return {std::max(argument.min, 0.0), std::min(argument.max, 100.0)};
    case Argument::Type::kWholes:
      return Json(std::vector<int>(argument.count, 1));
    default:
      return std::clamp(3.0, argument.min, argument.max) == 3 ? Json(3) : Json(int(argument.max));
  }
}

TEST_F(KitMemory, EveryOperation) {
  EndsWell("Exports", [] { return Exports().size(); });
  const Sources sources = [&] {
    Sources made;
    made.pictures["pattern"] = {&pattern, &colourPattern};
    made.pictures["tray"] = {&grey, &colour};
    return made;
  }();
  int done = 0;
  for (const Operation& operation : Operations()) {
    Json given = Json::object();
    bool hasFiles = false;
    for (const Argument& argument : operation.arguments) {
      hasFiles |= argument.IsRequired() && argument.holds == Argument::Holds::kParameters;
      if (argument.IsRequired()) given[argument.name] = ValueFor(argument);
    }
    if (hasFiles) continue;  // Calibration has them
    EndsWell(
        operation.name,
        [&] {
          ReadyOperation ready(operation, ReadValues(operation, given), sources);
          Content content;
          ready.Run({&grey, &colour}, {&grey, &colour}, content);
          return Greys(content.picture) + Greys(content.colour) +
                 Sum(content.things, [](const Thing& thing) {
                   return std::isfinite(thing.x) ? thing.x + thing.area : 0;
                 });
        },
        But::kMakesJson);
    ++done;
  }
  EXPECT_GT(done, 50);
}

TEST_F(KitMemory, Recipes) {
  const std::string recipeText = R"({"name": "parts", "steps": [
      {"name": "bright", "operation": "otsu", "input": "image"},
      {"name": "red", "operation": "hsi", "input": "color", "channel": "hue"},
      {"name": "parts", "operation": "blobs", "input": "bright", "min_area": 50},
      {"name": "found", "operation": "locate", "input": "image", "template": "pattern.png"}],
    "measurements": [
      {"name": "count", "input": "parts", "value": "count", "min": 1},
      {"name": "mean", "input": "red", "value": "mean"},
      {"name": "twice", "value": "2 * count"}]})";
  EndsWell(
      "MakeRecipe", [&] { return recipe::MakeRecipe(recipeText).canonical; }, But::kMakesJson);
  const std::string path = std::string("recipe.json");
  WriteFile(path, recipeText);
  EndsWell(
      "ReadRecipe", [&] { return recipe::ReadRecipe(path).canonical; }, But::kMakesJson);
  const recipe::Recipe made = recipe::MakeRecipe(recipeText);
  const Sources sources;
  const auto told = [&](recipe::ImageRecord record) {
    if (!record.error.empty()) throw Failure(record.error);
    return std::pair(record.verdict, std::move(record.values));
  };
  EndsWell(
      "Inspector", [&] { return told(recipe::Inspector(made, sources).Inspect(picture)); },
      But::kMakesJson);
  recipe::Inspector inspector(made, sources);
  EndsWell(
      "Inspector again", [&] { return told(inspector.Inspect(colour, picture)); },
      But::kKeepsMemory);
  const recipe::ImageRecord record = inspector.Inspect(picture);
  EndsWell(
      "ToLine", [&] { return ToLine(made, record); }, But::kMakesJson);
  EndsWell(
      "FromLine", [&, line = ToLine(made, record)] { return recipe::FromLine(made, line).values; },
      But::kMakesJson);
  EndsWell("Objects", [&] {
    const auto kinds = recipe::KindsOfThings(made);
    return recipe::ObjectRows(recipe::AllFound(made, inspector), kinds).size() +
           recipe::ObjectColumns(kinds).size();
  });
  const std::vector<recipe::ImageRecord> records(3, record);
  EndsWell(
      "ToFindings", [&] { return JsonText(ToJson(recipe::ToFindings(made, records))); },
      But::kMakesJson);
  EndsWell(
      "Fingerprint", [&] { return recipe::Fingerprint(made, sources); }, But::kMakesJson);
  EndsWell(
      "Pages",
      [&, run = std::string("run")] {
        MakeFolder(run);
        const recipe::Pages pages(made, run);
        if (!pages.Write(0, record, inspector)) throw OutOfMemory("pictures");
        pages.WriteIndex(records);
        return true;
      },
      But::kMakesJson);
  EndsWell(
      "ResultsFile",
      [&, name = std::string("results.jsonl"), images = std::vector{record.image}] {
        recipe::ResultsFile::Begin(name, made, {"print"}).Append(made, record);
        std::vector<recipe::ImageRecord> done;
        recipe::ResultsFile::Resume(name, made, {"print"}, images, done);
        return done.size();
      },
      But::kMakesJson);
  EndsWell("RunFolder", [&, name = std::string("runs")] {
    const recipe::RunFolder held(name, recipe::RunFolder::Mode::kOverwrite);
    return true;
  });
  const std::vector<std::string> images = {picture, picture};
  std::vector<std::unique_ptr<recipe::Inspector>> inspectors;
  inspectors.push_back(std::make_unique<recipe::Inspector>(made, sources));
  size_t received = 0;
  const recipe::Work work = {
      images, 0, [&](recipe::Inspector& one, size_t index) { return one.Inspect(images[index]); },
      [&](size_t, recipe::ImageRecord one) {
        told(std::move(one));
        ++received;
      }};
  EndsWell(
      "RunAll",
      [&] {
        received = 0;
        recipe::RunAll(work, inspectors);
        return received;
      },
      But::kKeepsMemory);
  EndsWell(
      "RecipeRunner",
      [&] {
        RecipeResult result = RecipeRunner(path).RunFile(picture);
        if (result.verdict == "error") throw OutOfMemory(result.error);
        return std::move(result.line);
      },
      But::kMakesJson);
  EndsWell(
      "RecipeSchema", [] { return recipe::RecipeSchema().size(); }, But::kMakesJson);
}

}  // namespace
}  // namespace quillon::kit::test
