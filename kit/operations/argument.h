// The arguments of operations: what each may be, for the checks of all fronts, for options, schema
// and documentation; and the values that a command, a recipe or a program gives them.
#pragma once

#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
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
    kFiles,       // a list of them
    kRange,       // [low, high]
    kWholeRange,  // [low, high]
    kWholes,      // `count` of them
    kPoints,      // [x, y] each, at least three
    kRectangle,   // [left, top, width, height]
    kBox,         // [x, y, width, height, angle], turned about its centre
    kRing,        // [x, y, inner radius, outer radius] about a centre
  };
  // What is in the files that kFile and kFiles name. A template is a picture, or a model that was
  // taught and kept.
  enum class Holds { kPicture, kTemplate, kParameters };

  const char* name;
  Type type;
  const char* summary;
  double min = 0, max = 0;
  std::vector<const char*> choices = {};
  size_t count = 0;
  const char* otherwise = nullptr;  // the value where none is given, as JSON; "null": no value
  const char* unit = nullptr;       // "pixels"
  const char* excludes = nullptr;   // an argument that cannot be given too
  bool isByPlace = false;           // a file: commands take it before the picture, without its name
  Holds holds = Holds::kPicture;
  bool isOfTemplate = false;  // its points are in the pixels of a template, not of the picture

  // The same argument, which need not be given.
  Argument Or(const char* json) const;
  Argument Optional() const { return Or("null"); }
  // The same argument, counted in a unit.
  Argument In(const char* unit) const;
  // The same argument, which cannot be given with another.
  Argument Excludes(const char* other) const;
  // The same file, or the first of the files, which commands take by its place.
  Argument ByPlace() const;
  // The same file, of which this is known.
  Argument Holding(Holds what) const;
  // The same points, in the pixels of a template.
  Argument OfTemplate() const;

  bool IsRequired() const { return !otherwise; }
  bool IsOfFiles() const { return type == Type::kFile || type == Type::kFiles; }
  bool HasDefault() const { return otherwise && std::string_view(otherwise) != "null"; }
  // What it means, with its unit.
  std::string Meaning() const;

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
Argument Files(const char* name, const char* summary);
Argument Range(const char* name, double min, double max, const char* summary);
Argument WholeRange(const char* name, double min, double max, const char* summary);
Argument Wholes(const char* name, size_t count, const char* summary);
Argument Points(const char* name, const char* summary);
// Within a picture whose sides are `longest` at most.
Argument Rectangle(const char* name, double longest, const char* summary);

// A turned rectangle, and a ring, anywhere in or around a picture.
Argument Box(const char* name, const char* summary);
Argument Ring(const char* name, const char* summary);

constexpr size_t kFewestPoints = 3, kMostPoints = 1000;  // of kPoints

// A number as people write it: 5, not 5.000000.
std::string Plain(double value);

// The values of all arguments of an operation, checked. Asking for an argument that it does not
// have throws.
class Values {
 public:
  void Set(const std::string& name, Json value) { values_[name] = std::move(value); }

  bool Has(const char* name) const { return !values_.at(name).is_null(); }
  const Json& At(const char* name) const { return values_.at(name); }
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

// A value as a message shows it.
std::string InMessage(const Json& value);

// Reads the values of the arguments. `find` returns what is given for a name, null for nothing;
// `wrong` is told all that cannot be used.
Values ReadValues(const std::vector<Argument>& arguments,
                  const std::function<const Json*(const std::string& name)>& find,
                  const std::function<void(const char* name, const std::string& what)>& wrong);

}  // namespace quillon::kit
