#include "kit/recipe/recipe.h"

#include <algorithm>
#include <set>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/operations/places.h"
#include "kit/text/text.h"

namespace quillon::kit::recipe {

namespace {

std::string Quote(std::string_view text) { return "'" + std::string(text) + "'"; }

// ---- text to JSON -------------------------------------------------------------------------------

// Stops at fields that are given twice, which would otherwise hide each other, and at depths that
// no recipe has.
Json ParseJson(std::string_view text, Problems& problems) {
  constexpr int kDeepest = 16;
  std::vector<std::set<std::string>> open;
  const auto look = [&](int depth, Json::parse_event_t event, Json& value) {
    using Event = Json::parse_event_t;
    if (depth > kDeepest) throw Failure("lists and objects are nested too deeply for a recipe");
    if (event == Event::object_start) open.emplace_back();
    if (event == Event::object_end) open.pop_back();
    if (event == Event::key && !open.back().insert(value.get<std::string>()).second) {
      throw Failure("field " + Quote(value.get<std::string>()) + " is given twice in one object");
    }
    return true;
  };
  try {
    return Json::parse(text, look);
  } catch (const Failure& failure) {
    problems.emplace_back(failure.what());
  } catch (const Json::exception& error) {
    // The parser's text begins with its own name and number in brackets.
    const std::string what = error.what();
    const size_t end = what.find("] ");
    problems.push_back("this is no JSON: " +
                       (end == std::string::npos ? what : what.substr(end + 2)));
  }
  return nullptr;
}

// ---- JSON to recipe -----------------------------------------------------------------------------

// One object of the recipe, and what is wrong with it.
class Fields {
 public:
  Fields(const Json& object, std::string where, Problems& problems)
      : object_(object), where_(std::move(where)), problems_(problems) {
    if (!object_.is_object())
      problems_.push_back(Prefix() + InMessage(object_) + " is not an object");
  }

  bool IsObject() const { return object_.is_object(); }

  void Wrong(const std::string& field, const std::string& what) const {
    problems_.push_back(where_ + (where_.empty() ? "" : ", ") + "field " + Quote(field) + ": " +
                        what);
  }

  const Json* Find(const std::string& field) {
    known_.push_back(field);
    const auto found = object_.find(field);
    return found == object_.end() ? nullptr : &*found;
  }

  const Json* Require(const std::string& field, const std::string& expected) {
    const Json* value = Find(field);
    if (!value) Wrong(field, "is missing: " + expected + " is expected");
    return value;
  }

  // A text with at least one character; empty where there is none.
  std::string Name(const std::string& field, bool isRequired) {
    const std::string expected = "a text that is not empty";
    const Json* value = isRequired ? Require(field, expected) : Find(field);
    if (!value) return "";
    if (value->is_string() && !value->get_ref<const std::string&>().empty()) {
      return value->get<std::string>();
    }
    Wrong(field, InMessage(*value) + " is not " + expected);
    return "";
  }

  void Note(std::string& note) {
    const Json* value = Find("note");
    if (!value) return;
    if (value->is_string()) {
      note = value->get<std::string>();
    } else {
      Wrong("note", InMessage(*value) + " is not a text");
    }
  }

  const Json* List(const std::string& field, size_t most) {
    const std::string expected = "a list of 1 to " + std::to_string(most) + " objects";
    const Json* value = Require(field, expected);
    if (!value) return nullptr;
    if (value->is_array() && !value->empty() && value->size() <= most) return value;
    const bool isLong = value->is_array() && !value->empty();
    Wrong(field,
          (isLong ? "has " + std::to_string(value->size()) + " entries and" : InMessage(*value)) +
              " is not " + expected);
    return nullptr;
  }

  // Whatever was not asked for has no meaning.
  void RefuseOthers() const {
    if (!object_.is_object()) return;
    for (const auto& item : object_.items()) {
      if (std::find(known_.begin(), known_.end(), item.key()) != known_.end()) continue;
      Wrong(item.key(), "has no meaning here" + DidYouMean(item.key(), known_));
    }
  }

 private:
  std::string Prefix() const { return where_.empty() ? "" : where_ + ": "; }

  const Json& object_;
  std::string where_;
  Problems& problems_;
  std::vector<std::string> known_;
};

std::string PlaceOf(const char* what, const Json& object, size_t index) {
  std::string number = std::string(what) + " " + std::to_string(index + 1);
  if (!object.is_object()) return number;
  const auto name = object.find("name");
  if (name == object.end() || !name->is_string() || name->get_ref<const std::string&>().empty()) {
    return number;
  }
  return std::string(what) + " " + Quote(name->get<std::string>());
}

constexpr const char *kScale = "mm_per_pixel", *kFollow = "follow";
constexpr const char* kNoNames = " is not a name, or a list of two names";

class Parser {
 public:
  explicit Parser(Problems& problems) : problems_(problems) {}

  Recipe Parse(const Json& json) {
    recipe_.slots = {{"image", Kind::kPicture, 0}, {"color", Kind::kColour, 0}};
    Fields fields(json, "", problems_);
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
    Fields fields(json, PlaceOf("step", json, index), problems_);
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

  // Pixels that move keep no scale, but where the operation knows it.
  bool HasScale(const Step& step) const {
    if (step.operation->knowsScale) return true;
    if (step.operation->movesPixels || step.inputs.empty()) return false;
    return recipe_.slots[static_cast<size_t>(step.inputs[0])].hasScale;
  }

  // The name of one thing, or of two whose directions cross.
  void ParseFollow(Fields& fields, Step& step) {
    const Json* value = fields.Find(kFollow);
    if (!value) return;
    if (!HasPlaces(*step.operation)) {
      fields.Wrong(kFollow, "'" + std::string(step.operation->name) +
                                "' has no place that could follow something");
      return;
    }
    if (!IsNameOrTwo(*value)) {
      fields.Wrong(kFollow, InMessage(*value) + kNoNames);
      return;
    }
    const bool isPair = value->is_array();
    const std::vector<Kind>& kinds = isPair ? KindsWithDirection() : Quantities()[0].inputs;
    for (const Json& item : isPair ? *value : Json::array({*value})) {
      const auto name = item.get<std::string>();
      const int slot = FindInput(fields, name, kinds, kFollow);
      if (slot < 0) continue;
      if (!step.inputs.empty() && FrameOf(slot) != FrameOf(step.inputs[0])) {
        fields.Wrong(kFollow,
                     Quote(name) + " was found where pixels lie elsewhere than in the input");
        continue;
      }
      step.follows.push_back(slot);
    }
  }

  // Of things whose angle is a direction.
  static const std::vector<Kind>& KindsWithDirection() {
    const auto& all = Quantities();
    return std::find_if(all.begin(), all.end(),
                        [](const Quantity& row) { return row.member == &Thing::angle; })
        ->inputs;
  }

  int FrameOf(int slot) const { return recipe_.slots[static_cast<size_t>(slot)].frame; }

  static bool IsNameOrTwo(const Json& value) {
    return IsName(value) ||
           (value.is_array() && value.size() == 2 && IsName(value[0]) && IsName(value[1]));
  }

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
    if (names.size() != count ||
        !std::all_of(names.begin(), names.end(), [](const Json& name) { return IsName(name); })) {
      fields.Wrong("input", InMessage(*value) + " is not " + expected);
      return 0;
    }
    int frame = 0;
    for (size_t i = 0; i < count; ++i) {
      std::vector<Kind> kinds = {operation.inputs[i]};
      if (operation.takesGrey) kinds.push_back(Kind::kPicture);
      const int slot = FindInput(fields, names[i].get<std::string>(), kinds);
      step.inputs.push_back(std::max(slot, 0));
      if (i == 0) frame = FrameOf(step.inputs[0]);
    }
    return operation.movesPixels ? ++frames_ : frame;
  }

  static bool IsName(const Json& value) {
    return value.is_string() && !value.get_ref<const std::string&>().empty();
  }

  // The slot, or -1 where there is none that fits.
  int FindInput(const Fields& fields, const std::string& name, const std::vector<Kind>& kinds,
                const char* field = "input") {
    const auto& slots = recipe_.slots;
    const auto found = std::find_if(slots.begin(), slots.end(),
                                    [&](const Slot& slot) { return slot.name == name; });
    if (found == slots.end()) {
      std::vector<std::string> names;
      names.reserve(slots.size());
      for (const Slot& slot : slots) names.push_back(slot.name);
      fields.Wrong(field, "nothing before this is called " + Quote(name) + DidYouMean(name, names));
      return -1;
    }
    const bool fits = std::find(kinds.begin(), kinds.end(), found->kind) != kinds.end();
    if (found->kind != Kind::kNone && !fits) {
      std::string expected;
      for (const Kind kind : kinds)
        expected += (expected.empty() ? "" : " or ") + WithArticle(kind);
      fields.Wrong(field, Quote(name) + " is " + WithArticle(found->kind) + ", not " + expected);
      return -1;
    }
    return static_cast<int>(found - slots.begin());
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
    Fields fields(json, PlaceOf("measurement", json, index), problems_);
    if (!fields.IsObject()) return;
    Measurement measurement;
    std::string note;
    measurement.name = fields.Name("name", true);
    fields.Note(note);
    if (!measurement.name.empty() && !measurementNames_.insert(measurement.name).second) {
      fields.Wrong("name", "another measurement has this name");
    }
    const Json* input = fields.Find("input");
    if (input && input->is_array()) {
      ParseBetween(fields, *input, measurement);
    } else if (input) {
      ParseMeasured(fields, measurement);
    } else {
      ParseFormula(fields, measurement);
    }
    ParseUnit(fields, measurement);
    measurement.min = ParseLimit(fields, "min");
    measurement.max = ParseLimit(fields, "max");
    if (measurement.min && measurement.max && *measurement.min > *measurement.max) {
      fields.Wrong(
          "min", Plain(*measurement.min) + " is above the field 'max', " + Plain(*measurement.max));
    }
    fields.RefuseOthers();
    recipe_.measurements.push_back(std::move(measurement));
  }

  void ParseMeasured(Fields& fields, Measurement& measurement) {
    measurement.quantity = ParseQuantity(fields);
    const std::string input = fields.Name("input", true);
    if (!input.empty()) {
      std::vector<Kind> any = {Kind::kPicture};
      const std::vector<Kind>& things = Quantities()[0].inputs;  // whatever can be counted
      any.insert(any.end(), things.begin(), things.end());
      const int slot =
          FindInput(fields, input, measurement.quantity ? measurement.quantity->inputs : any);
      measurement.input = std::max(slot, 0);
    }
    if (measurement.quantity) measurement.unit = UnitOf(*measurement.quantity);
    ParseWhich(fields, measurement);
  }

  // Between the things of two steps: the first of one and the first of the other, and so on.
  void ParseBetween(Fields& fields, const Json& names, Measurement& measurement) {
    if (!IsNameOrTwo(names)) {
      fields.Wrong("input", InMessage(names) + kNoNames);
    } else {
      const std::vector<Kind>& things = Quantities()[0].inputs;
      measurement.input = std::max(FindInput(fields, names[0].get<std::string>(), things), 0);
      measurement.other = std::max(FindInput(fields, names[1].get<std::string>(), things), 0);
      if (FrameOf(measurement.input) != FrameOf(measurement.other)) {
        fields.Wrong("input", "the two were found where pixels lie differently");
      }
    }
    const std::string name = fields.Name("value", true);
    std::vector<std::string> known;
    std::string list;
    for (const Between& between : Betweens()) {
      if (between.name == name) measurement.between = &between;
      known.emplace_back(between.name);
      list += (list.empty() ? "" : ", ") + known.back();
    }
    if (measurement.between) {
      measurement.unit = measurement.between->unit;
      const Slot& first = recipe_.slots[static_cast<size_t>(measurement.input)];
      if (measurement.between->isOfLine && first.kind != Kind::kLines) {
        fields.Wrong("input", "'" + name + "' is measured of lines first, and " +
                                  Quote(first.name) + " is " + WithArticle(first.kind));
      }
    } else if (!name.empty()) {
      fields.Wrong("value", Quote(name) + " is not measured between two things: " + list +
                                DidYouMean(name, known));
    }
    ParseWhich(fields, measurement);
  }

  void ParseFormula(Fields& fields, Measurement& measurement) {
    const std::string text = fields.Name("value", true);
    if (text.empty()) return;
    const auto& all = Quantities();
    if (std::any_of(all.begin(), all.end(),
                    [&](const Quantity& row) { return row.name == text; })) {
      fields.Require("input", "the name of what is measured");
      return;
    }
    const auto find = [&](const std::string& name) -> std::optional<Formula::Named> {
      for (size_t i = 0; i < recipe_.measurements.size(); ++i) {
        if (recipe_.measurements[i].name != name) continue;
        return Formula::Named{i, recipe_.measurements[i].unit};
      }
      return {};
    };
    std::string wrong;
    measurement.formula = Formula::Read(text, find, wrong);
    if (!wrong.empty()) fields.Wrong("value", "in the formula, " + wrong);
    if (measurement.formula) measurement.unit = measurement.formula->ItsUnit();
  }

  // The unit that is given must be that of the value; pixels become millimetres where it is known
  // how, and a formula that is a plain number may be called anything.
  void ParseUnit(Fields& fields, Measurement& measurement) {
    const std::string expected = "px, mm, px2, mm2 or deg";
    const std::string name = fields.Name("unit", false);
    const Unit own = measurement.unit;
    const bool hasScale =
        !measurement.formula && recipe_.slots[static_cast<size_t>(measurement.input)].hasScale;
    if (name.empty()) {
      const bool hasLimits = fields.Find("min") || fields.Find("max");
      if (hasScale && hasLimits && own.px > 0) {
        fields.Wrong("unit", "is missing: limits here may be in " + NameOf(own) + " or in " +
                                 NameOf(Unit{0, own.px, 0}));
      }
      return;
    }
    const auto given = UnitNamed(name);
    if (!given) {
      fields.Wrong("unit", Quote(name) + " is not " + expected);
      return;
    }
    const bool isFree = measurement.formula && own.IsPlain();
    if (*given == own || isFree) {
      measurement.unit = *given;
    } else if (!measurement.formula && own.px > 0 && *given == Unit{0, own.px, 0}) {
      if (hasScale) {
        measurement.unit = *given;
      } else {
        fields.Wrong("unit", "it is not known here how long a pixel is (" + std::string(kScale) +
                                 ", or the step rectify)");
      }
    } else if (measurement.quantity || measurement.between || measurement.formula) {
      fields.Wrong("unit", Quote(name) + " is not the unit of this value, which is " + NameOf(own));
    }
  }

  static const Quantity* ParseQuantity(Fields& fields) {
    const std::string name = fields.Name("value", true);
    if (name.empty()) return nullptr;
    std::vector<std::string> names;
    std::string list;
    for (const Quantity& quantity : Quantities()) {
      if (quantity.name == name) return &quantity;
      names.emplace_back(quantity.name);
      list += (list.empty() ? "" : ", ") + names.back();
    }
    fields.Wrong("value", Quote(name) + " is not one of " + list + DidYouMean(name, names));
    return nullptr;
  }

  void ParseWhich(Fields& fields, Measurement& measurement) {
    const bool isCount =
        measurement.quantity && std::string_view(measurement.quantity->name) == "count";
    const std::string name = fields.Name("which", false);
    if (name.empty()) return;
    if (isCount) {
      fields.Wrong("which", "a count is of all");
      return;
    }
    if (recipe_.slots[static_cast<size_t>(measurement.input)].kind == Kind::kPicture &&
        measurement.quantity && !measurement.quantity->inputs.empty() &&
        measurement.quantity->inputs[0] == Kind::kPicture) {
      fields.Wrong("which", "a picture has one mean");
      return;
    }
    std::string list;
    for (const NamedWhich& named : Whiches()) {
      if (named.name == name) {
        measurement.which = named.which;
        return;
      }
      list += (list.empty() ? "" : ", ") + std::string(named.name);
    }
    fields.Wrong("which", Quote(name) + " is not one of " + list);
  }

  static std::optional<double> ParseLimit(Fields& fields, const char* name) {
    const Json* value = fields.Find(name);
    if (!value) return {};
    const Argument limit = Limit(name);
    if (limit.Fits(*value)) return value->get<double>();
    fields.Wrong(name, InMessage(*value) + " is not " + limit.Expected());
    return {};
  }

  Problems& problems_;
  Recipe recipe_;
  std::set<std::string> stepNames_, measurementNames_;
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
