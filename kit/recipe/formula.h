// Formulas between measurements: "(right - left) * 25.4mm / pitch".
//
//   sum     = product { ("+" | "-") product }
//   product = signed { ("*" | "/") signed }
//   signed  = [ "-" ] value
//   value   = number [ unit ] | name | "'" any name "'" | function "(" sum { "," sum } ")" | "("
//   sum ")"
//
// A name is that of a measurement before: letters, digits and underlines; others stand in single
// quotes. Units are px, mm and deg. Only what has the same unit can be added or compared; products
// multiply units; angles are in degrees.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::kit::recipe {

// A unit as powers of pixels, millimetres and degrees; none of them for a plain number.
struct Unit {
  int px = 0, mm = 0, degrees = 0;

  bool operator==(const Unit&) const = default;
  bool IsPlain() const { return *this == Unit(); }
};

// "px", "mm2", "px/mm"; "a plain number".
std::string NameOf(const Unit& unit);

// Reads "px", "mm", "px2", "mm2" or "deg".
std::optional<Unit> UnitNamed(std::string_view name);

constexpr size_t kLongestFormula = 500;  // characters

class Formula {
 public:
  // A measurement that may be named: its place and unit; nothing where there is none.
  struct Named {
    size_t place;
    Unit unit;
  };
  using Find = std::function<std::optional<Named>(const std::string& name)>;

  // Any text may be given. What is wrong is told with its position, and there is no formula then.
  static std::optional<Formula> Read(std::string_view text, const Find& find, std::string& wrong);

  // Nothing where a measurement has no value, or the result is no number.
  std::optional<double> Value(std::span<const std::optional<double>> measured) const;

  const Unit& ItsUnit() const { return unit_; }

 private:
  friend class FormulaReader;

  // One step of a calculation with a stack: a number, a measurement, or a function of the last
  // ones.
  struct Step {
    enum class Kind { kNumber, kMeasurement, kFunction } kind;
    double number = 0;
    size_t place = 0;     // of the measurement
    size_t function = 0;  // in the table of functions
  };
  std::vector<Step> steps_;
  Unit unit_;
};

}  // namespace quillon::kit::recipe
