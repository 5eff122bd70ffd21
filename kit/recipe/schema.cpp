#include "kit/recipe/schema.h"

#include "kit/errors.h"
#include "kit/operations/places.h"
#include "kit/recipe/recipe.h"

namespace quillon::kit::recipe {
namespace {

Json Text(const char* description) {
  return {{"type", "string"}, {"minLength", 1}, {"description", description}};
}

Json Note() { return {{"type", "string"}, {"description", "for people; changes nothing"}}; }

Json Object(Json properties, Json required) {
  return {{"type", "object"},
          {"properties", std::move(properties)},
          {"required", std::move(required)},
          {"additionalProperties", false}};
}

Json StepSchema(const Operation& operation) {
  const bool isPair = operation.InputCount() == 2;
  Json input = Text("what it works on: image, color, or the output of a step before");
  if (isPair) {
    input = {{"type", "array"},
             {"items", {{"type", "string"}, {"minLength", 1}}},
             {"minItems", 2},
             {"maxItems", 2},
             {"description", "the two pictures that it works on"}};
  }
  Json properties = {{"name", Text("of the step, in messages and on pages")},
                     {"operation", {{"const", operation.name}}},
                     {"input", std::move(input)},
                     {"output", Text("name of the result; the step's name where it is not given")},
                     {"note", Note()}};
  if (HasPlaces(operation)) {
    const Json name = {{"type", "string"}, {"minLength", 1}};
    properties["follow"] = {
        {"anyOf", {name, {{"type", "array"}, {"items", name}, {"minItems", 2}, {"maxItems", 2}}}},
        {"description",
         "things of a step before, in whose directions places are given; or of two, such as lines, "
         "where they cross"}};
  }
  Json required = {"name", "operation", "input"};
  for (const Argument& argument : operation.arguments) {
    properties[argument.name] = argument.Schema();
    if (argument.IsRequired()) required.push_back(argument.name);
  }
  Json schema = Object(std::move(properties), std::move(required));
  schema["description"] = operation.summary;
  return schema;
}

Json ListOf(Json items, size_t most, const char* description) {
  return {{"type", "array"},
          {"items", std::move(items)},
          {"minItems", 1},
          {"maxItems", most},
          {"description", description}};
}

enum class Measured { kCount, kValue, kBetween, kFormula };

// What is counted or calculated has no `which`; everything else may have.
Json MeasurementSchema(Measured measured) {
  Json values = Json::array(), whiches = Json::array();
  for (const Quantity& quantity : Quantities()) {
    const bool isCount = std::string_view(quantity.name) == "count";
    if (isCount == (measured == Measured::kCount)) values.push_back(quantity.name);
  }
  for (const NamedWhich& which : Whiches()) whiches.push_back(which.name);
  const auto limit = [](const char* name, const char* description) {
    Json schema = Limit(name).Schema();
    schema["description"] = description;
    return schema;
  };
  Json properties = {{"name", Text("of the measurement, in results and on pages")},
                     {"input", Text("what is measured: the output of a step")},
                     {"value", {{"enum", values}}},
                     {"min", limit("min", "the image fails below it")},
                     {"max", limit("max", "the image fails above it")},
                     {"unit",
                      {{"enum", {"px", "mm", "px2", "mm2", "deg"}},
                       {"description", "of the value and its limits"}}},
                     {"note", Note()}};
  if (measured == Measured::kBetween) {
    values = Json::array();
    for (const Between& between : Betweens()) values.push_back(between.name);
    properties["value"] = {{"enum", values}};
    properties["input"] =
        ListOf({{"type", "string"}, {"minLength", 1}}, 2, "two things: the outputs of two steps");
    properties["input"]["minItems"] = 2;
  }
  if (measured == Measured::kFormula) {
    properties.erase("input");
    properties["value"] = Text("a formula of measurements before");
    properties["value"]["maxLength"] = kLongestFormula;
    return Object(std::move(properties), {"name", "value"});
  }
  if (measured != Measured::kCount) {
    properties["which"] = {{"enum", whiches},
                           {"default", "first"},
                           {"description", "which of several blobs or matches"}};
  }
  return Object(std::move(properties), {"name", "input", "value"});
}

Json AnyOf(const Json& definitions) {
  Json references = Json::array();
  for (const auto& item : definitions.items()) {
    references.push_back({{"$ref", "#/$defs/" + item.key()}});
  }
  return {{"anyOf", references}};
}

std::string Escaped(std::string text) {
  for (size_t at = 0; (at = text.find('|', at)) != std::string::npos; at += 2) {
    text.insert(at, "\\");
  }
  return text;
}

std::string InputsOf(const Operation& operation) {
  std::string text = NameOf(operation.inputs[0]);
  return operation.InputCount() == 2 ? "[" + text + ", " + NameOf(operation.inputs[1]) + "]" : text;
}

std::string ArgumentsOf(const Operation& operation) {
  std::string text;
  for (const Argument& argument : operation.arguments) {
    if (!text.empty()) text += "<br>";
    text +=
        "`" + std::string(argument.name) + "` " + argument.Expected() + ": " + argument.Meaning();
    if (argument.IsRequired()) continue;
    text += argument.HasDefault() ? " (`" + std::string(argument.otherwise) + "`)" : " (optional)";
  }
  return text;
}

}  // namespace

Json RecipeSchema() try {
  Json steps = Json::object();
  for (const Operation& operation : Operations()) {
    steps[operation.name] = StepSchema(operation);
  }
  const Json measurements = {{"measured-count", MeasurementSchema(Measured::kCount)},
                             {"measured-value", MeasurementSchema(Measured::kValue)},
                             {"measured-between", MeasurementSchema(Measured::kBetween)},
                             {"measured-formula", MeasurementSchema(Measured::kFormula)}};
  Json properties = {{"$schema", {{"type", "string"}, {"description", "this schema, for editors"}}},
                     {"name", Text("of the recipe, on pages")},
                     {"note", Note()},
                     {"mm_per_pixel",
                      {{"type", "number"},
                       {"minimum", kLeastScale},
                       {"maximum", kMostScale},
                       {"description", "how long a pixel of the image is, for limits in mm"}}},
                     {"steps", ListOf(AnyOf(steps), kMostSteps, "done one after the other")},
                     {"measurements", ListOf(AnyOf(measurements), kMostMeasurements,
                                             "an image passes when all are within their limits")}};
  Json schema = {{"$schema", "https://json-schema.org/draft/2020-12/schema"},
                 {"title", "Quillon recipe"}};
  schema.update(Object(std::move(properties), {"name", "steps", "measurements"}));
  Json& definitions = schema["$defs"] = std::move(steps);
  definitions.update(measurements);
  return schema;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the schema of recipes");
}

std::string OperationsInMarkdown() try {
  std::string text =
      "| operation | input | output | what it does | arguments |\n|---|---|---|---|---|\n";
  for (const Operation& operation : Operations()) {
    text += "| `" + std::string(operation.name) + "` | " + InputsOf(operation) + " | " +
            NameOf(operation.output) + " | " + Escaped(operation.summary) + " | " +
            Escaped(ArgumentsOf(operation)) + " |\n";
  }
  text += "\n| `value` | of | what it is |\n|---|---|---|\n";
  for (const Quantity& quantity : Quantities()) {
    std::string kinds;
    for (const Kind kind : quantity.inputs) {
      kinds += (kinds.empty() ? "" : ", ") + std::string(NameOf(kind));
    }
    text += "| `" + std::string(quantity.name) + "` | " + kinds + " | " + quantity.summary + " |\n";
  }
  text += "\n| `value` | between two inputs |\n|---|---|\n";
  for (const Between& between : Betweens()) {
    text += "| `" + std::string(between.name) + "` | " + between.summary + " |\n";
  }
  text += "\n| `which` | of several blobs or matches |\n|---|---|\n";
  for (const NamedWhich& which : Whiches()) {
    text += "| `" + std::string(which.name) + "` | " + which.summary + " |\n";
  }
  return text;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the list of operations");
}

}  // namespace quillon::kit::recipe
