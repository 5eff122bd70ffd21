// One object of a recipe's JSON, and what is wrong with its fields.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kit/recipe/recipe.h"

namespace quillon::kit::recipe {

constexpr const char* kScale = "mm_per_pixel";

std::string Quote(std::string_view text);

// Text to JSON. Stops at fields that are given twice, which would otherwise hide each other, and at
// depths that no recipe has.
Json ParseJson(std::string_view text, Problems& problems);

class Fields {
 public:
  // `what` and its name, or its number where it has none, tell in messages which object it is.
  Fields(const Json& object, const char* what, size_t index, Problems& problems);
  Fields(const Json& recipe, Problems& problems) : Fields(recipe, std::string(), problems) {}

  bool IsObject() const { return object_.is_object(); }

  void Wrong(const std::string& field, const std::string& what) const;

  // Null where the field is not there.
  const Json* Find(const std::string& field);
  const Json* Require(const std::string& field, const std::string& expected);

  // A text with at least one character; empty where there is none.
  std::string Name(const std::string& field, bool isRequired);
  // One name, or a list of two; none where it is neither.
  std::vector<std::string> OneNameOrTwo(const std::string& field);
  void Note(std::string& note);
  const Json* List(const std::string& field, size_t most);

  // Whatever was not asked for has no meaning.
  void RefuseOthers() const;

 private:
  Fields(const Json& object, std::string where, Problems& problems);
  std::string Prefix() const { return where_.empty() ? "" : where_ + ": "; }

  const Json& object_;
  std::string where_;
  Problems& problems_;
  std::vector<std::string> known_;
};

bool IsName(const Json& value);

// The slot that the field names, or -1 where there is none that fits.
int FindSlot(const Recipe& recipe, const Fields& fields, const char* field, const std::string& name,
             const std::vector<Kind>& kinds);

}  // namespace quillon::kit::recipe
