#include "kit/recipe/fields.h"

#include <algorithm>
#include <set>

#include "kit/errors.h"
#include "kit/text/text.h"

namespace quillon::kit::recipe {

std::string Quote(std::string_view text) { return "'" + std::string(text) + "'"; }

bool IsName(const Json& value) {
  return value.is_string() && !value.get_ref<const std::string&>().empty();
}

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

namespace {

std::string PlaceOf(const char* what, const Json& object, size_t index) {
  std::string number = std::string(what) + " " + std::to_string(index + 1);
  if (!object.is_object()) return number;
  const auto name = object.find("name");
  if (name == object.end() || !IsName(*name)) return number;
  return std::string(what) + " " + Quote(name->get<std::string>());
}

}  // namespace

Fields::Fields(const Json& object, const char* what, size_t index, Problems& problems)
    : Fields(object, PlaceOf(what, object, index), problems) {}

Fields::Fields(const Json& object, std::string where, Problems& problems)
    : object_(object), where_(std::move(where)), problems_(problems) {
  if (!object_.is_object())
    problems_.push_back(Prefix() + InMessage(object_) + " is not an object");
}

void Fields::Wrong(const std::string& field, const std::string& what) const {
  problems_.push_back(where_ + (where_.empty() ? "" : ", ") + "field " + Quote(field) + ": " +
                      what);
}

const Json* Fields::Find(const std::string& field) {
  known_.push_back(field);
  const auto found = object_.find(field);
  return found == object_.end() ? nullptr : &*found;
}

const Json* Fields::Require(const std::string& field, const std::string& expected) {
  const Json* value = Find(field);
  if (!value) Wrong(field, "is missing: " + expected + " is expected");
  return value;
}

std::string Fields::Name(const std::string& field, bool isRequired) {
  const std::string expected = "a text that is not empty";
  const Json* value = isRequired ? Require(field, expected) : Find(field);
  if (!value) return "";
  if (IsName(*value)) return value->get<std::string>();
  Wrong(field, InMessage(*value) + " is not " + expected);
  return "";
}

std::vector<std::string> Fields::OneNameOrTwo(const std::string& field) {
  const Json* value = Find(field);
  if (!value) return {};
  if (IsName(*value)) return {value->get<std::string>()};
  if (value->is_array() && value->size() == 2 && IsName((*value)[0]) && IsName((*value)[1])) {
    return value->get<std::vector<std::string>>();
  }
  Wrong(field, InMessage(*value) + " is not a name, or a list of two names");
  return {};
}

void Fields::Note(std::string& note) {
  const Json* value = Find("note");
  if (!value) return;
  if (value->is_string()) {
    note = value->get<std::string>();
  } else {
    Wrong("note", InMessage(*value) + " is not a text");
  }
}

const Json* Fields::List(const std::string& field, size_t most) {
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

void Fields::RefuseOthers() const {
  if (!object_.is_object()) return;
  for (const auto& item : object_.items()) {
    if (std::find(known_.begin(), known_.end(), item.key()) != known_.end()) continue;
    Wrong(item.key(), "has no meaning here" + DidYouMean(item.key(), known_));
  }
}

int FindSlot(const Recipe& recipe, const Fields& fields, const char* field, const std::string& name,
             const std::vector<Kind>& kinds) {
  const auto& slots = recipe.slots;
  const auto found =
      std::find_if(slots.begin(), slots.end(), [&](const Slot& slot) { return slot.name == name; });
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
    for (const Kind kind : kinds) expected += (expected.empty() ? "" : " or ") + WithArticle(kind);
    fields.Wrong(field, Quote(name) + " is " + WithArticle(found->kind) + ", not " + expected);
    return -1;
  }
  return static_cast<int>(found - slots.begin());
}

}  // namespace quillon::kit::recipe
