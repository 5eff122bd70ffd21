#include "kit/recipe/formula.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "kit/geometry.h"
#include "kit/text/numbers.h"
#include "kit/text/text.h"

namespace quillon::kit::recipe {
namespace {

constexpr double kRadians = std::numbers::pi / 180;
constexpr Unit kDegrees = {0, 0, 1};

// ---- functions and signs ------------------------------------------------------------------------

// What becomes of the units of the arguments; nothing where they do not go together.
std::optional<Unit> Same(Unit a, Unit b) { return a == b ? std::optional(a) : std::nullopt; }
std::optional<Unit> Product(Unit a, Unit b) {
  return Unit{a.px + b.px, a.mm + b.mm, a.degrees + b.degrees};
}
std::optional<Unit> Quotient(Unit a, Unit b) {
  return Unit{a.px - b.px, a.mm - b.mm, a.degrees - b.degrees};
}
std::optional<Unit> Kept(Unit a, Unit) { return a; }
std::optional<Unit> Root(Unit a, Unit) {
  const bool isSquare = a.px % 2 == 0 && a.mm % 2 == 0 && a.degrees % 2 == 0;
  return isSquare ? std::optional(Unit{a.px / 2, a.mm / 2, a.degrees / 2}) : std::nullopt;
}
std::optional<Unit> OfAngle(Unit a, Unit) {
  return a == kDegrees || a.IsPlain() ? std::optional(Unit()) : std::nullopt;
}
std::optional<Unit> ToAngle(Unit a, Unit b) {
  return a == b ? std::optional(kDegrees) : std::nullopt;
}

struct Function {
  const char* name;  // a word, or a sign
  size_t count;      // of arguments
  double (*value)(double a, double b);
  std::optional<Unit> (*unit)(Unit a, Unit b);
  const char* wants;  // units, where they can be wrong
};

constexpr const char* kSameUnit = "two of the same unit";
constexpr const char* kAngle = "degrees, or a plain number of them";

constexpr Function kFunctions[] = {
    {"+", 2, [](double a, double b) { return a + b; }, Same, kSameUnit},
    {"-", 2, [](double a, double b) { return a - b; }, Same, kSameUnit},
    {"*", 2, [](double a, double b) { return a * b; }, Product, ""},
    {"/", 2, [](double a, double b) { return a / b; }, Quotient, ""},
    {"negative", 1, [](double a, double) { return -a; }, Kept, ""},
    {"abs", 1, [](double a, double) { return std::abs(a); }, Kept, ""},
    {"sqrt", 1, [](double a, double) { return std::sqrt(a); }, Root, "a square unit"},
    {"min", 2, [](double a, double b) { return std::min(a, b); }, Same, kSameUnit},
    {"max", 2, [](double a, double b) { return std::max(a, b); }, Same, kSameUnit},
    {"hypot", 2, [](double a, double b) { return Length(a, b); }, Same, kSameUnit},
    {"sin", 1, [](double a, double) { return Sine(a * kRadians); }, OfAngle, kAngle},
    {"cos", 1, [](double a, double) { return Cosine(a * kRadians); }, OfAngle, kAngle},
    {"tan", 1, [](double a, double) { return Sine(a * kRadians) / Cosine(a * kRadians); }, OfAngle,
     kAngle},
    {"atan2", 2, [](double a, double b) { return ArcTangent(a, b) / kRadians; }, ToAngle,
     kSameUnit},
};

size_t FunctionNamed(std::string_view name) {
  return static_cast<size_t>(std::find_if(std::begin(kFunctions), std::end(kFunctions),
                                          [&](const Function& row) { return row.name == name; }) -
                             std::begin(kFunctions));
}

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

std::string Power(const char* name, int power) {
  return power == 0 ? "" : name + (power == 1 ? "" : std::to_string(power));
}

}  // namespace

std::string NameOf(const Unit& unit) {
  if (unit.IsPlain()) return "a plain number";
  std::string above, below;
  for (const auto& [name, power] :
       {std::pair("px", unit.px), std::pair("mm", unit.mm), std::pair("deg", unit.degrees)}) {
    std::string& side = power > 0 ? above : below;
    const std::string text = Power(name, std::abs(power));
    if (!text.empty()) side += (side.empty() ? "" : " ") + text;
  }
  if (above.empty()) above = "1";
  return below.empty() ? above : above + "/" + below;
}

std::optional<Unit> UnitNamed(std::string_view name) {
  for (const Unit& unit : {Unit{1, 0, 0}, Unit{0, 1, 0}, Unit{2, 0, 0}, Unit{0, 2, 0}, kDegrees}) {
    if (NameOf(unit) == name) return unit;
  }
  return {};
}

// Reads by descent: each rule of the grammar is a function, which leaves the steps that put its
// value on the stack and returns its unit. After the first thing that is wrong nothing more is
// read.
class FormulaReader {
 public:
  FormulaReader(std::string_view text, const Formula::Find& find) : text_(text), find_(find) {}

  std::optional<Formula> Read(std::string& wrong) {
    if (text_.size() > kLongestFormula) {
      wrong = "it has " + std::to_string(text_.size()) + " characters, more than " +
              std::to_string(kLongestFormula);
      return {};
    }
    formula_.unit_ = Sum();
    if (Next() != '\0') Wrong(Quoted(at_, 1) + " is not expected here");
    wrong = wrong_;
    return wrong_.empty() ? std::optional(formula_) : std::nullopt;
  }

 private:
  static constexpr int kDeepest = 50;  // brackets and signs within each other

  void Wrong(size_t at, const std::string& what) {
    if (wrong_.empty()) wrong_ = "at character " + std::to_string(at + 1) + ", " + what;
    at_ = text_.size();
  }
  void Wrong(const std::string& what) { Wrong(at_, what); }

  std::string Quoted(size_t from, size_t count) const {
    return "'" + Visible(std::string(text_.substr(from, count))) + "'";
  }

  // The next character that is no space; 0 at the end.
  char Next() {
    while (at_ < text_.size() && text_[at_] == ' ') ++at_;
    return at_ < text_.size() ? text_[at_] : '\0';
  }
  bool Take(char c) {
    if (Next() != c) return false;
    ++at_;
    return true;
  }

  Unit Apply(size_t function, size_t at, Unit a, Unit b = {}) {
    const Function& row = kFunctions[function];
    formula_.steps_.push_back({.kind = Formula::Step::Kind::kFunction, .function = function});
    const auto unit = row.unit(a, b);
    if (unit) return *unit;
    Wrong(at, std::string("'") + row.name + "' wants " + row.wants + ", not " + NameOf(a) +
                  (row.count == 2 ? " and " + NameOf(b) : ""));
    return {};
  }

  Unit Sum() {
    Unit unit = Product();
    for (char sign = Next(); sign == '+' || sign == '-'; sign = Next()) {
      const size_t at = at_++;
      const Unit right = Product();
      unit = Apply(FunctionNamed({&sign, 1}), at, unit, right);
    }
    return unit;
  }

  Unit Product() {
    Unit unit = Signed();
    for (char sign = Next(); sign == '*' || sign == '/'; sign = Next()) {
      const size_t at = at_++;
      const Unit right = Signed();
      unit = Apply(FunctionNamed({&sign, 1}), at, unit, right);
    }
    return unit;
  }

  Unit Signed() {
    if (++depth_ > kDeepest) {
      Wrong("brackets and signs are nested too deeply");
      return {};
    }
    Unit unit;
    if (Next() == '-') {
      const size_t at = at_++;
      unit = Signed();
      unit = Apply(FunctionNamed("negative"), at, unit);
    } else {
      unit = Value();
    }
    --depth_;
    return unit;
  }

  Unit Value() {
    const char first = Next();
    if (IsDigit(first) || first == '.') return Number();
    if (first == '\'') return QuotedName();
    if (IsLetter(first)) return Word();
    if (!Take('(')) {
      Wrong(first ? "a number, a name or a bracket is expected, not " + Quoted(at_, 1)
                  : "a number, a name or a bracket is expected");
      return {};
    }
    const Unit unit = Sum();
    if (!Take(')')) Wrong("')' is expected");
    return unit;
  }

  std::string_view Letters() {
    const size_t begin = at_;
    while (at_ < text_.size() && (IsLetter(text_[at_]) || IsDigit(text_[at_]))) ++at_;
    return text_.substr(begin, at_ - begin);
  }

  Unit Number() {
    double number = 0;
    const char* const end = text_.data() + text_.size();
    const char* const after = ReadNumber(text_.data() + at_, end, number);
    if (!after) {
      Wrong("this is no number that can be used");
      return {};
    }
    at_ = static_cast<size_t>(after - text_.data());
    formula_.steps_.push_back({.kind = Formula::Step::Kind::kNumber, .number = number});
    if (!IsLetter(Next())) return {};
    const size_t begin = at_;
    const auto unit = UnitNamed(Letters());
    if (!unit) Wrong(begin, Quoted(begin, at_ - begin) + " is no unit: px, mm, px2, mm2 or deg");
    return unit.value_or(Unit());
  }

  Unit Measurement(const std::string& name, size_t at) {
    const auto named = find_(name);
    if (!named) {
      Wrong(at, "no measurement before this is called '" + Visible(name) + "'");
      return {};
    }
    formula_.steps_.push_back({.kind = Formula::Step::Kind::kMeasurement, .place = named->place});
    return named->unit;
  }

  Unit QuotedName() {
    const size_t begin = ++at_, end = text_.find('\'', begin);
    if (end == std::string_view::npos) {
      Wrong(begin - 1, "the quote is not closed");
      return {};
    }
    at_ = end + 1;
    return Measurement(std::string(text_.substr(begin, end - begin)), begin);
  }

  Unit Word() {
    const size_t begin = at_;
    const std::string name(Letters());
    if (!Take('(')) return Measurement(name, begin);
    const size_t function = FunctionNamed(name);
    if (function == std::size(kFunctions) || name == "negative") {
      Wrong(begin, "there is no function '" + name +
                       "': abs, sqrt, min, max, hypot, sin, cos, tan or atan2");
      return {};
    }
    const Unit a = Sum();
    Unit b;
    if (kFunctions[function].count == 2) {
      if (!Take(',')) Wrong("',' is expected: '" + name + "' takes two");
      b = Sum();
    }
    if (!Take(')')) Wrong("')' is expected");
    return wrong_.empty() ? Apply(function, begin, a, b) : Unit();
  }

  std::string_view text_;
  const Formula::Find& find_;
  size_t at_ = 0;
  int depth_ = 0;
  Formula formula_;
  std::string wrong_;
};

std::optional<Formula> Formula::Read(std::string_view text, const Find& find, std::string& wrong) {
  return FormulaReader(text, find).Read(wrong);
}

std::optional<double> Formula::Value(std::span<const std::optional<double>> measured) const {
  std::vector<double> stack;
  for (const Step& step : steps_) {
    if (step.kind == Step::Kind::kNumber) {
      stack.push_back(step.number);
    } else if (step.kind == Step::Kind::kMeasurement) {
      if (!measured[step.place]) return {};
      stack.push_back(*measured[step.place]);
    } else {
      const Function& function = kFunctions[step.function];
      double b = 0;
      if (function.count == 2) {
        b = stack.back();
        stack.pop_back();
      }
      stack.back() = function.value(stack.back(), b);
    }
  }
  return std::isfinite(stack.back()) ? std::optional(stack.back()) : std::nullopt;
}

}  // namespace quillon::kit::recipe
