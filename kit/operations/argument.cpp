#include "kit/operations/argument.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "kit/errors.h"
#include "kit/search/blob_search.h"

namespace quillon::kit {
namespace {

constexpr size_t kMostFiles = 1000;
constexpr double kFullTurn = 360;

std::string Limits(const Argument& argument) {
  return "from " + Plain(argument.min) + " to " + Plain(argument.max);
}

bool IsNumber(const Json& value, double min, double max) {
  return value.is_number() && value.get<double>() >= min && value.get<double>() <= max;
}

// 5.0 is whole too, as JSON Schema has it.
bool IsWhole(const Json& value, double min, double max) {
  return IsNumber(value, min, max) && std::trunc(value.get<double>()) == value.get<double>();
}

bool IsName(const Json& value) {
  return value.is_string() && !value.get_ref<const std::string&>().empty();
}

template <class Test>
bool AreAll(const Json& value, size_t fewest, size_t most, Test test) {
  return value.is_array() && value.size() >= fewest && value.size() <= most &&
         std::all_of(value.begin(), value.end(), test);
}

Json NumberSchema(const char* type, double min, double max) {
  return {
      {"type", type}, {"minimum", Json::parse(Plain(min))}, {"maximum", Json::parse(Plain(max))}};
}

Json ListSchema(Json items, size_t fewest, size_t most) {
  return {{"type", "array"}, {"items", std::move(items)}, {"minItems", fewest}, {"maxItems", most}};
}

}  // namespace

std::string Plain(double value) try {
  if (std::trunc(value) == value && std::fabs(value) < 1e15) {
    return std::to_string(static_cast<int64_t>(value));
  }
  return Json(value).dump();
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a number as text");
}

Argument Argument::Or(const char* json) const {
  Argument argument = *this;
  argument.otherwise = json;
  return argument;
}

Argument Argument::In(const char* its) const {
  Argument argument = *this;
  argument.unit = its;
  return argument;
}

Argument Argument::Excludes(const char* other) const {
  Argument argument = *this;
  argument.excludes = other;
  return argument;
}

Argument Argument::ByPlace() const {
  Argument argument = *this;
  argument.isByPlace = true;
  return argument;
}

Argument Argument::Holding(Holds what) const {
  Argument argument = *this;
  argument.holds = what;
  return argument;
}

Argument Argument::OfTemplate() const {
  Argument argument = *this;
  argument.isOfTemplate = true;
  return argument;
}

std::string Argument::Meaning() const try {
  return unit ? std::string(summary) + ", in " + unit : summary;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("an argument");
}

std::string Argument::Expected() const try {
  switch (type) {
    case Type::kWhole:
      return "a whole number " + Limits(*this);
    case Type::kOdd:
      return "an odd whole number " + Limits(*this);
    case Type::kNumber:
      return "a number " + Limits(*this);
    case Type::kFlag:
      return "true or false";
    case Type::kChoice: {
      std::string text = "one of ";
      for (const char* choice : choices)
        text += (choice == choices[0] ? "" : ", ") + std::string(choice);
      return text;
    }
    case Type::kFile:
      return "the name of a file";
    case Type::kFiles:
      return "a list of 1 to " + std::to_string(kMostFiles) + " names of files";
    case Type::kRange:
      return "[low, high], numbers " + Limits(*this);
    case Type::kWholeRange:
      return "[low, high], whole numbers " + Limits(*this);
    case Type::kWholes:
      return "a list of " + std::to_string(count) + " whole numbers " + Limits(*this);
    case Type::kPoints:
      return "a list of " + std::to_string(kFewestPoints) + " to " + std::to_string(kMostPoints) +
             " points [x, y], whole numbers " + Limits(*this);
    case Type::kRectangle:
      return "[left, top, width, height], whole numbers up to " + Plain(max) +
             ", width and height from 1";
    case Type::kBox:
      return "[x, y, width, height, angle], numbers " + Limits(*this) +
             ", width and height from 1, the angle from -360 to 360";
    case Type::kRing:
      return "[x, y, inner radius, outer radius], numbers " + Limits(*this) + ", radii from 1";
  }
  return "";
} catch (const std::bad_alloc&) {
  throw OutOfMemory("an argument");
}

bool Argument::Fits(const Json& value) const try {
  const auto isWhole = [this](const Json& item) { return IsWhole(item, min, max); };
  const auto isNumber = [this](const Json& item) { return IsNumber(item, min, max); };
  switch (type) {
    case Type::kWhole:
      return isWhole(value);
    case Type::kOdd:
      return isWhole(value) && std::fmod(value.get<double>(), 2) != 0;
    case Type::kNumber:
      return IsNumber(value, min, max);
    case Type::kFlag:
      return value.is_boolean();
    case Type::kChoice:
      // As texts: values of the JSON library cannot say that memory ended while they are compared.
      return value.is_string() &&
             std::any_of(choices.begin(), choices.end(), [&](const char* choice) {
               return value.get_ref<const std::string&>() == choice;
             });
    case Type::kFile:
      return IsName(value);
    case Type::kFiles:
      return AreAll(value, 1, kMostFiles, IsName);
    case Type::kRange:
      return AreAll(value, 2, 2, isNumber);
    case Type::kWholeRange:
      return AreAll(value, 2, 2, isWhole);
    case Type::kWholes:
      return AreAll(value, count, count, isWhole);
    case Type::kPoints:
      return AreAll(value, kFewestPoints, kMostPoints,
                    [&](const Json& point) { return AreAll(point, 2, 2, isWhole); });
    case Type::kRectangle:
      return AreAll(value, 4, 4, isWhole) && value[2] >= 1 && value[3] >= 1;
    case Type::kBox:
      return AreAll(value, 5, 5, isNumber) && value[2] >= 1 && value[3] >= 1 &&
             IsNumber(value[4], -kFullTurn, kFullTurn);
    case Type::kRing:
      return AreAll(value, 4, 4, isNumber) && value[2] >= 1 && value[3] >= 1;
  }
  return false;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("an argument");
}

std::string Argument::Contradiction(const Json& value) const try {
  const bool isRange = type == Type::kRange || type == Type::kWholeRange;
  if (isRange && value[0].get<double>() > value[1].get<double>()) return "low is above high";
  if (type == Type::kRing && value[2].get<double>() >= value[3].get<double>()) {
    return "the inner radius is not below the outer one";
  }
  if (type != Type::kPoints) return "";
  std::vector<int> points;
  for (const Json& point : value) {
    for (const Json& coordinate : point) points.push_back(coordinate.get<int>());
  }
  const int64_t length = BoundaryLength(points);
  if (length <= kLongestBoundary) return "";
  return "a boundary of " + std::to_string(length) + " steps is longer than " +
         std::to_string(kLongestBoundary);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("an argument");
}

Json Argument::Schema() const try {
  Json schema;
  switch (type) {
    case Type::kWhole:
      schema = NumberSchema("integer", min, max);
      break;
    case Type::kOdd:
      schema = NumberSchema("integer", min, max);
      schema["not"] = {{"multipleOf", 2}};
      break;
    case Type::kNumber:
      schema = NumberSchema("number", min, max);
      break;
    case Type::kFlag:
      schema = {{"type", "boolean"}};
      break;
    case Type::kChoice:
      schema = {{"enum", choices}};
      break;
    case Type::kFile:
      schema = {{"type", "string"}, {"minLength", 1}};
      break;
    case Type::kFiles:
      schema = ListSchema({{"type", "string"}, {"minLength", 1}}, 1, kMostFiles);
      break;
    case Type::kRange:
      schema = ListSchema(NumberSchema("number", min, max), 2, 2);
      break;
    case Type::kWholeRange:
      schema = ListSchema(NumberSchema("integer", min, max), 2, 2);
      break;
    case Type::kWholes:
      schema = ListSchema(NumberSchema("integer", min, max), count, count);
      break;
    case Type::kPoints:
      schema = ListSchema(ListSchema(NumberSchema("integer", min, max), 2, 2), kFewestPoints,
                          kMostPoints);
      break;
    case Type::kRectangle: {
      const Json place = NumberSchema("integer", min, max), side = NumberSchema("integer", 1, max);
      schema = {{"type", "array"},
                {"prefixItems", {place, place, side, side}},
                {"minItems", 4},
                {"maxItems", 4}};
      break;
    }
    case Type::kBox:
    case Type::kRing: {
      const Json place = NumberSchema("number", min, max), size = NumberSchema("number", 1, max);
      Json items = {place, place, size, size};
      if (type == Type::kBox) items.push_back(NumberSchema("number", -kFullTurn, kFullTurn));
      const size_t numbers = items.size();
      schema = {{"type", "array"},
                {"prefixItems", std::move(items)},
                {"minItems", numbers},
                {"maxItems", numbers}};
      break;
    }
  }
  schema["description"] = Meaning();
  if (HasDefault()) schema["default"] = Json::parse(otherwise);
  return schema;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the schema of an argument");
}

Argument Whole(const char* name, double min, double max, const char* summary) {
  return {name, Argument::Type::kWhole, summary, min, max};
}
Argument Odd(const char* name, double min, double max, const char* summary) {
  return {name, Argument::Type::kOdd, summary, min, max};
}
Argument Number(const char* name, double min, double max, const char* summary) {
  return {name, Argument::Type::kNumber, summary, min, max};
}
Argument Flag(const char* name, const char* summary) {
  return {name, Argument::Type::kFlag, summary};
}
Argument Choice(const char* name, std::vector<const char*> choices, const char* summary) {
  return {name, Argument::Type::kChoice, summary, 0, 0, std::move(choices)};
}
Argument File(const char* name, const char* summary) {
  return {name, Argument::Type::kFile, summary};
}
Argument Files(const char* name, const char* summary) {
  return {name, Argument::Type::kFiles, summary};
}
Argument Range(const char* name, double min, double max, const char* summary) {
  return {name, Argument::Type::kRange, summary, min, max};
}
Argument WholeRange(const char* name, double min, double max, const char* summary) {
  return {name, Argument::Type::kWholeRange, summary, min, max};
}
Argument Wholes(const char* name, size_t count, const char* summary) {
  constexpr double kLargest = 1e6;
  return {name, Argument::Type::kWholes, summary, -kLargest, kLargest, {}, count};
}
Argument Points(const char* name, const char* summary) {
  return {name, Argument::Type::kPoints, summary, -kFarthest, kFarthest};
}
Argument Rectangle(const char* name, double longest, const char* summary) {
  return {name, Argument::Type::kRectangle, summary, 0, longest};
}

Argument Box(const char* name, const char* summary) {
  return {name, Argument::Type::kBox, summary, -kFarthest, kFarthest};
}
Argument Ring(const char* name, const char* summary) {
  return {name, Argument::Type::kRing, summary, -kFarthest, kFarthest};
}

std::string InMessage(const Json& value) try {
  constexpr size_t kMost = 60;
  std::string text = value.dump(-1, ' ', true);  // escaped, so that it can be cut anywhere
  if (text.size() > kMost) text = text.substr(0, kMost) + "...";
  return text;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a value as text");
}

Values ReadValues(const std::vector<Argument>& arguments,
                  const std::function<const Json*(const std::string& name)>& find,
                  const std::function<void(const char* name, const std::string& what)>& wrong) try {
  Values values;
  std::set<std::string> given;
  for (const Argument& argument : arguments) {
    const char* const name = argument.name;
    const Json* const value = find(name);
    if (!value) {
      if (argument.IsRequired()) wrong(name, "is missing: " + argument.Expected() + " is expected");
      values.Set(name, argument.otherwise ? Json::parse(argument.otherwise) : Json());
      continue;
    }
    if (!argument.Fits(*value)) {
      wrong(name, InMessage(*value) + " is not " + argument.Expected());
    } else if (const std::string problem = argument.Contradiction(*value); !problem.empty()) {
      wrong(name, InMessage(*value) + ": " + problem);
    } else if (argument.type != Argument::Type::kFlag || value->get<bool>()) {
      given.insert(name);
    }
    values.Set(name, *value);
  }
  // Of two arguments that exclude each other only one may be given.
  for (const Argument& argument : arguments) {
    const std::string name = argument.name;
    if (!given.contains(name)) continue;
    if (argument.excludes && given.contains(argument.excludes)) {
      wrong(argument.name,
            "cannot be given together with '" + std::string(argument.excludes) + "'");
    }
    if (!name.starts_with("min_")) continue;
    const std::string most = "max_" + name.substr(4);
    if (!given.contains(most)) continue;
    const double low = values.Number(name.c_str()), high = values.Number(most.c_str());
    if (low > high) {
      wrong(argument.name, Plain(low) + " is above '" + most + "', " + Plain(high));
    }
  }
  return values;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the values of arguments");
}

}  // namespace quillon::kit
