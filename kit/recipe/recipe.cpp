#include "kit/recipe/recipe.h"

#include <algorithm>
#include <set>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/operations/places.h"
#include "kit/recipe/fields.h"
#include "kit/recipe/parse_measurement.h"
#include "kit/text/text.h"

namespace quillon::kit::recipe {

namespace {

constexpr const char* kFollow = "follow";

class Parser {
 public:
  explicit Parser(Problems& problems) : problems_(problems) {}

  Recipe Parse(const Json& json) {
    recipe_.slots = {{"image", Kind::kPicture, 0}, {"color", Kind::kColour, 0}};
    Fields fields(json, problems_);
    if (!fields.IsObject()) return recipe_;
    recipe_.name = fields.Name("name", true);
    fields.Note(recipe_.note);
    fields.Find("$schema");  // for editors
    ParseScale(fields);
    const Json* steps = fields.List("steps", kMostSteps);
    const Json* measurements = fields.List("measurements", kMostMeasurements);
    fields.RefuseOthers();
    for (size_t i = 0; steps && i < steps->size(); ++i) ParseStep((*steps)[i], i);
    for (size_t i = 0; measurements && i < measurements->size(); ++i) {
      ParseMeasurement((*measurements)[i], i);
    }
    recipe_.canonical = Canonical(json);
    return std::move(recipe_);
  }

 private:
  void ParseScale(Fields& fields) {
    const Json* value = fields.Find(kScale);
    if (!value) return;
    const Argument scale = Number(kScale, kLeastScale, kMostScale, "");
    if (!scale.Fits(*value)) {
      fields.Wrong(kScale, InMessage(*value) + " is not " + scale.Expected());
      return;
    }
    recipe_.mmPerPixel = value->get<double>();
    for (Slot& slot : recipe_.slots) slot.hasScale = true;
  }

  // Without what changes nothing: the order of fields, spaces, notes.
  static std::string Canonical(const Json& json) {
    nlohmann::json sorted = nlohmann::json::parse(json.dump());
    sorted.erase("$schema");
    sorted.erase("note");
    for (const char* list : {"steps", "measurements"}) {
      if (!sorted.contains(list) || !sorted[list].is_array()) continue;
      for (auto& entry : sorted[list]) {
        if (entry.is_object()) entry.erase("note");
      }
    }
    return sorted.dump();
  }

  void ParseStep(const Json& json, size_t index) {
    Fields fields(json, "step", index, problems_);
    if (!fields.IsObject()) return;
    Step step;
    std::string note;
    step.name = fields.Name("name", true);
    fields.Note(note);
    if (!step.name.empty() && !stepNames_.insert(step.name).second) {
      fields.Wrong("name", "another step has this name");
    }
    const std::string operation = fields.Name("operation", true);
    if (!operation.empty()) step.operation = FindOperation(operation);
    if (!step.operation) {
      if (!operation.empty()) UnknownOperation(fields, operation);
      // Later steps may use what this one would have made: its kind is not known.
      Declare(fields, step.name, Kind::kNone, 0);
      return;
    }
    const int frame = ParseInputs(fields, step);
    ParseFollow(fields, step);
    step.values = ReadValues(
        step.operation->arguments, [&](const std::string& field) { return fields.Find(field); },
        [&](const char* field, const std::string& what) { fields.Wrong(field, what); });
    step.output = Declare(fields, step.name, step.operation->output, frame);
    recipe_.slots.back().hasScale = HasScale(step);
    fields.RefuseOthers();
    recipe_.steps.push_back(std::move(step));
  }

  static void UnknownOperation(const Fields& fields, const std::string& operation) {
    std::vector<std::string> names;
    for (const Operation& row : Operations()) names.emplace_back(row.name);
    const std::string suggestion = DidYouMean(operation, names);
    fields.Wrong("operation",
                 "there is no operation " + Quote(operation) +
                     (suggestion.empty() ? "; quillon recipe operations names them" : suggestion));
  }

  // Where pixels move, nobody knows how long one is any more, unless the operation tells.
  bool HasScale(const Step& step) const {
    if (step.operation->knowsScale) return true;
    if (step.operation->movesPixels || step.inputs.empty()) return false;
    return recipe_.slots[static_cast<size_t>(step.inputs[0])].hasScale;
  }

  // The name of one thing, or of two whose directions cross.
  void ParseFollow(Fields& fields, Step& step) {
    if (!fields.Find(kFollow)) return;
    if (!HasPlaces(*step.operation)) {
      fields.Wrong(kFollow, "'" + std::string(step.operation->name) +
                                "' has no place that could follow something");
      return;
    }
    const std::vector<std::string> names = fields.OneNameOrTwo(kFollow);
    const std::vector<Kind>& kinds =
        names.size() == 2 ? KindsWithDirection() : Quantities()[0].inputs;
    for (const std::string& name : names) {
      const int slot = FindSlot(recipe_, fields, kFollow, name, kinds);
      if (slot < 0) continue;
      if (!step.inputs.empty() && FrameOf(slot) != FrameOf(step.inputs[0])) {
        fields.Wrong(kFollow,
                     Quote(name) + " was found where pixels lie elsewhere than in the input");
        continue;
      }
      step.follows.push_back(slot);
    }
  }

  // The kinds of things whose angle is a direction, so that two of them can cross.
  static const std::vector<Kind>& KindsWithDirection() {
    const auto& all = Quantities();
    return std::find_if(all.begin(), all.end(),
                        [](const Quantity& row) { return row.member == &Thing::angle; })
        ->inputs;
  }

  int FrameOf(int slot) const { return recipe_.slots[static_cast<size_t>(slot)].frame; }

  // Returns the frame of the output.
  int ParseInputs(Fields& fields, Step& step) {
    const Operation& operation = *step.operation;
    const size_t count = operation.InputCount();
    const std::string expected = count == 1 ? "the name of " + WithArticle(operation.inputs[0])
                                            : "a list of two names of pictures";
    const Json* value = fields.Require("input", expected);
    if (!value) return 0;
    const bool isList = value->is_array() && value->size() == count && count == 2;
    const Json names = isList ? *value : Json::array({*value});
    if (names.size() != count || !std::all_of(names.begin(), names.end(), IsName)) {
      fields.Wrong("input", InMessage(*value) + " is not " + expected);
      return 0;
    }
    int frame = 0;
    for (size_t i = 0; i < count; ++i) {
      std::vector<Kind> kinds = {operation.inputs[i]};
      if (operation.takesGrey) kinds.push_back(Kind::kPicture);
      const int slot = FindSlot(recipe_, fields, "input", names[i].get<std::string>(), kinds);
      step.inputs.push_back(std::max(slot, 0));
      if (i == 0) frame = FrameOf(step.inputs[0]);
    }
    return operation.movesPixels ? ++frames_ : frame;
  }

  // The slot of a step's output, which has the step's name unless it is given another.
  int Declare(Fields& fields, const std::string& stepName, Kind kind, int frame) {
    const std::string given = fields.Name("output", false);
    const std::string& name = given.empty() ? stepName : given;
    const bool isTaken = std::any_of(recipe_.slots.begin(), recipe_.slots.end(),
                                     [&](const Slot& slot) { return slot.name == name; });
    if (isTaken && !name.empty()) {
      fields.Wrong(given.empty() ? "name" : "output",
                   Quote(name) + " is the name of something else already");
    }
    recipe_.slots.push_back({name, kind, frame});
    return static_cast<int>(recipe_.slots.size()) - 1;
  }

  void ParseMeasurement(const Json& json, size_t index) {
    Fields fields(json, "measurement", index, problems_);
    if (!fields.IsObject()) return;
    recipe_.measurements.push_back(recipe::ParseMeasurement(fields, recipe_));
  }

  Problems& problems_;
  Recipe recipe_;
  std::set<std::string> stepNames_;
  int frames_ = 0;
};

}  // namespace

Recipe ParseRecipe(std::string_view text, Problems& problems) try {
  const Json json = ParseJson(text, problems);
  if (!problems.empty()) return {};
  return Parser(problems).Parse(json);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a recipe");
}

Recipe MakeRecipe(std::string_view text, const std::string& name) try {
  Problems problems;
  Recipe recipe = ParseRecipe(text, problems);
  if (problems.empty()) return recipe;
  std::string message = name + " cannot be used:";
  for (const std::string& problem : problems) message += "\n  " + problem;
  throw Failure(message);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a recipe");
}

Recipe ReadRecipe(const std::string& path) try {
  return MakeRecipe(ReadFile(path), "recipe '" + path + "'");
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a recipe");
}

}  // namespace quillon::kit::recipe
