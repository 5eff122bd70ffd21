// The arguments of a recipe's operations: what each may be, for the check of a recipe, for its
// schema and for the documentation, and the values that a recipe gives them.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace quillon::kit {

using Json = nlohmann::ordered_json;

struct Argument {
  enum class Type {
    kWhole,
    kOdd,
    kNumber,
    kFlag,
    kChoice,
    kFile,
    kRange,       // [low, high]
    kWholeRange,  // [low, high]
    kWholes,      // `count` of them
    kPoints,      // [x, y] each, at least three
  };

  const char* name;
  Type type;
  const char* summary;
  double min = 0, max = 0;
  std::vector<const char*> choices = {};
  size_t count = 0;
  const char* otherwise = nullptr;  // the value where none is given, as JSON; "null": no value

  // The same argument, which need not be given.
  Argument Or(const char* json) const;
  Argument Optional() const { return Or("null"); }

  // "an odd whole number from 1 to 255"
  std::string Expected() const;
  // Whether the value is as expected. What no schema can say is left to Contradiction.
  bool Fits(const Json& value) const;
  // What is wrong with a value that fits; empty: nothing.
  std::string Contradiction(const Json& value) const;
  Json Schema() const;
};

Argument Whole(const char* name, double min, double max, const char* summary);
Argument Odd(const char* name, double min, double max, const char* summary);
Argument Number(const char* name, double min, double max, const char* summary);
Argument Flag(const char* name, const char* summary);
Argument Choice(const char* name, std::vector<const char*> choices, const char* summary);
Argument File(const char* name, const char* summary);
Argument Range(const char* name, double min, double max, const char* summary);
Argument WholeRange(const char* name, double min, double max, const char* summary);
Argument Wholes(const char* name, size_t count, const char* summary);
Argument Points(const char* name, const char* summary);

// A number as people write it: 5, not 5.000000.
std::string Plain(double value);

// The values of a step that was checked. Asking for what the operation's row does not name throws.
class Values {
 public:
  void Set(const std::string& name, Json value) { values_[name] = std::move(value); }

  bool Has(const char* name) const { return !values_.at(name).is_null(); }
  int Whole(const char* name) const { return values_.at(name).get<int>(); }
  double Number(const char* name) const { return values_.at(name).get<double>(); }
  bool Flag(const char* name) const { return values_.at(name).get<bool>(); }
  std::string Text(const char* name) const { return values_.at(name).get<std::string>(); }
  template <class Type>
  std::vector<Type> List(const char* name) const {
    return values_.at(name).get<std::vector<Type>>();
  }

 private:
  std::map<std::string, Json> values_;
};

}  // namespace quillon::kit
