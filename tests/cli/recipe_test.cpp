// Recipes: what is refused and how it is said, and that everything else knows the same operations.
#include "kit/recipe/recipe.h"

#include <gtest/gtest.h>

#include "cli/host.h"
#include "kit/recipe/schema.h"

namespace quillon::test {
namespace {

using kit::Json;
using kit::recipe::ParseRecipe;
using kit::recipe::Problems;

Problems ProblemsOf(const std::string& text) {
  Problems problems;
  ParseRecipe(text, problems);
  return problems;
}

std::string Joined(const Problems& problems) {
  std::string text;
  for (const std::string& problem : problems) text += problem + "\n";
  return text;
}

// The recipe of a case, and one for each entry that is wrong by itself.
std::vector<Json> Variants(const Json& test) {
  Json recipe = test["recipe"];
  if (recipe.dump().find("\"LONG\"") != std::string::npos) {
    Json region = Json::array();
    for (int i = 0; i < 600; ++i) region.push_back({i % 2 ? 32767 : -32767, 0});
    recipe["steps"][0]["polygon"] = region;
  }
  std::vector<Json> variants = {recipe};
  if (!test.contains("each")) return variants;
  const std::string list = test["each"];
  for (const Json& entry : recipe[list]) {
    Json& single = variants.emplace_back(recipe);
    single[list] = Json::array({entry});
    if (list == "steps") {
      const Json mean = {{"name", "m"}, {"input", "image"}, {"value", "mean"}};
      single["measurements"] = Json::array({mean});
    }
  }
  return variants;
}

// The same table is held against the schema by scripts/check-recipe-schema.py.
TEST(Recipes, GoodOnesHaveNoProblemsAndBadOnesAreToldByStepAndField) {
  const Json cases = Json::parse(ReadText(InProgramFolder("recipe_cases.json")));
  ASSERT_GT(cases.size(), 15u);
  for (const Json& test : cases) {
    const bool isGood = !test.contains("says");
    for (const Json& recipe : Variants(test)) {
      const Problems problems = ProblemsOf(recipe.dump());
      EXPECT_EQ(problems.empty(), isGood) << test["case"] << recipe.dump() << Joined(problems);
    }
    if (isGood) continue;
    const Problems problems = ProblemsOf(Variants(test)[0].dump());
    const std::string told = Joined(problems);
    for (const Json& words : test["says"]) {
      EXPECT_NE(told.find(words.get<std::string>()), std::string::npos)
          << test["case"] << " lacks " << words << ":\n"
          << told;
    }
    EXPECT_EQ(problems.size(), test["says"].size()) << test["case"] << '\n' << told;
  }
}

TEST(Recipes, AnyBytesAreAnswered) {
  const std::string good =
      R"({"name":"r","steps":[{"name":"a","operation":"otsu","input":"image"}],)"
      R"("measurements":[{"name":"m","input":"a","value":"mean"}]})";
  ASSERT_EQ(Joined(ProblemsOf(good)), "");
  for (size_t length = 0; length < good.size(); ++length) {
    EXPECT_EQ(ProblemsOf(good.substr(0, length)).size(), 1u) << length;
  }
  for (size_t at = 0; at < good.size(); ++at) {
    std::string changed = good;
    for (const char byte : {'\0', '\xff', '"', '}', '1'}) {
      changed[at] = byte;
      ProblemsOf(changed);  // whatever it is, it is answered
    }
  }
  const std::pair<std::string, const char*> cases[] = {
      {"", "this is no JSON"},
      {std::string(100'000, '['), "nested too deeply"},
      {R"({"name":"r","name":"s"})", "field 'name' is given twice"},
      {"{\"name\":\"\xff\"}", "this is no JSON"},
      {R"({"name":1e999})", "this is no JSON"},
      {R"({"name":"\ud800"})", "this is no JSON"},
      {"null", "null is not an object"},
  };
  for (const auto& [text, words] : cases) {
    const std::string told = Joined(ProblemsOf(text));
    EXPECT_NE(told.find(words), std::string::npos) << text.substr(0, 50) << ": " << told;
  }
  Json many = Json::parse(good);
  for (int i = 0; i < 200; ++i) {
    Json step = many["steps"][0];
    step["name"] = "s" + std::to_string(i);
    many["steps"].push_back(step);
  }
  EXPECT_EQ(Joined(ProblemsOf(many.dump())),
            "field 'steps': has 201 entries and is not a list of 1 to 200 objects\n"
            "measurement 'm', field 'input': nothing before this is called 'a'\n");
}

TEST(Recipes, DocumentsAreThoseOfTheTableOfOperations) {
  const Json schema = kit::recipe::RecipeSchema();
  EXPECT_EQ(schema.dump(2) + "\n", ReadText(InProgramFolder("recipe.schema.json")))
      << "renew it: scripts/operations";
  EXPECT_NE(ReadText(InProgramFolder("recipes.md")).find(kit::recipe::OperationsInMarkdown()),
            std::string::npos)
      << "renew its tables: scripts/operations";
  for (const auto& operation : kit::Operations()) {
    EXPECT_TRUE(schema["$defs"].contains(operation.name)) << operation.name;
    for (const auto& argument : operation.arguments) {
      for (const char* reserved : {"name", "operation", "input", "output", "note"}) {
        EXPECT_STRNE(argument.name, reserved) << operation.name;
      }
      if (argument.otherwise && std::string_view(argument.otherwise) != "null") {
        EXPECT_TRUE(argument.Fits(Json::parse(argument.otherwise))) << argument.name;
      }
    }
  }
}

}  // namespace
}  // namespace quillon::test
