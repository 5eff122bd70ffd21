#include "kit/recipe/parse_measurement.h"

#include <algorithm>

#include "kit/text/text.h"

namespace quillon::kit::recipe {

namespace {

const Quantity* ParseQuantity(Fields& fields) {
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

void ParseWhich(Fields& fields, const Recipe& before, Measurement& measurement) {
  const bool isCount =
      measurement.quantity && std::string_view(measurement.quantity->name) == "count";
  const std::string name = fields.Name("which", false);
  if (name.empty()) return;
  if (isCount) {
    fields.Wrong("which", "a count is of all");
    return;
  }
  if (before.slots[static_cast<size_t>(measurement.input)].kind == Kind::kPicture &&
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

void ParseMeasured(Fields& fields, const Recipe& before, Measurement& measurement) {
  measurement.quantity = ParseQuantity(fields);
  const std::string input = fields.Name("input", true);
  if (!input.empty()) {
    std::vector<Kind> any = {Kind::kPicture};
    const std::vector<Kind>& things = Quantities()[0].inputs;  // whatever can be counted
    any.insert(any.end(), things.begin(), things.end());
    const int slot = FindSlot(before, fields, "input", input,
                              measurement.quantity ? measurement.quantity->inputs : any);
    measurement.input = std::max(slot, 0);
  }
  if (measurement.quantity) measurement.unit = UnitOf(*measurement.quantity);
  ParseWhich(fields, before, measurement);
}

// Between the things of two steps: the first of one and the first of the other, and so on.
void ParseBetween(Fields& fields, const Recipe& before, Measurement& measurement) {
  const std::vector<std::string> names = fields.OneNameOrTwo("input");
  if (names.size() == 2) {
    const auto& slots = before.slots;
    const std::vector<Kind>& things = Quantities()[0].inputs;
    const auto find = [&](const std::string& name) {
      return std::max(FindSlot(before, fields, "input", name, things), 0);
    };
    measurement.input = find(names[0]);
    measurement.other = find(names[1]);
    if (slots[static_cast<size_t>(measurement.input)].frame !=
        slots[static_cast<size_t>(measurement.other)].frame) {
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
    const Slot& first = before.slots[static_cast<size_t>(measurement.input)];
    if (measurement.between->isOfLine && first.kind != Kind::kLines) {
      fields.Wrong("input", "'" + name + "' is measured of lines first, and " + Quote(first.name) +
                                " is " + WithArticle(first.kind));
    }
  } else if (!name.empty()) {
    fields.Wrong("value", Quote(name) + " is not measured between two things: " + list +
                              DidYouMean(name, known));
  }
  ParseWhich(fields, before, measurement);
}

void ParseFormula(Fields& fields, const Recipe& before, Measurement& measurement) {
  const std::string text = fields.Name("value", true);
  if (text.empty()) return;
  const auto& all = Quantities();
  if (std::any_of(all.begin(), all.end(), [&](const Quantity& row) { return row.name == text; })) {
    fields.Require("input", "the name of what is measured");
    return;
  }
  const auto find = [&](const std::string& name) -> std::optional<Formula::Named> {
    for (size_t i = 0; i < before.measurements.size(); ++i) {
      if (before.measurements[i].name != name) continue;
      return Formula::Named{i, before.measurements[i].unit};
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
void ParseUnit(Fields& fields, const Recipe& before, Measurement& measurement) {
  const std::string expected = "px, mm, px2, mm2 or deg";
  const std::string name = fields.Name("unit", false);
  const Unit own = measurement.unit;
  const bool hasScale =
      !measurement.formula && before.slots[static_cast<size_t>(measurement.input)].hasScale;
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

std::optional<double> ParseLimit(Fields& fields, const char* name) {
  const Json* value = fields.Find(name);
  if (!value) return {};
  const Argument limit = Limit(name);
  if (limit.Fits(*value)) return value->get<double>();
  fields.Wrong(name, InMessage(*value) + " is not " + limit.Expected());
  return {};
}

}  // namespace

Measurement ParseMeasurement(Fields& fields, const Recipe& before) {
  Measurement measurement;
  std::string note;
  measurement.name = fields.Name("name", true);
  fields.Note(note);
  const auto& all = before.measurements;
  if (!measurement.name.empty() && std::any_of(all.begin(), all.end(), [&](const Measurement& row) {
        return row.name == measurement.name;
      })) {
    fields.Wrong("name", "another measurement has this name");
  }
  const Json* input = fields.Find("input");
  if (input && input->is_array()) {
    ParseBetween(fields, before, measurement);
  } else if (input) {
    ParseMeasured(fields, before, measurement);
  } else {
    ParseFormula(fields, before, measurement);
  }
  ParseUnit(fields, before, measurement);
  measurement.min = ParseLimit(fields, "min");
  measurement.max = ParseLimit(fields, "max");
  if (measurement.min && measurement.max && *measurement.min > *measurement.max) {
    fields.Wrong("min",
                 Plain(*measurement.min) + " is above the field 'max', " + Plain(*measurement.max));
  }
  fields.RefuseOthers();
  return measurement;
}

}  // namespace quillon::kit::recipe
