// What a command found, and its three printed forms: aligned text, JSON and CSV.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <variant>
#include <vector>

namespace quillon::kit {

// Nothing known, a text, a whole number or a number.
using Cell = std::variant<std::monostate, std::string, int64_t, double>;

// A single-precision number by its shortest decimal form: 0.1f is 0.1, not 0.10000000149.
Cell Single(float value);

// Where a column appears besides JSON and CSV, which have all of them.
enum class Shown { kEverywhere, kInText, kNowhere };

struct Column {
  std::string key;           // name in JSON and CSV
  std::string heading = {};  // name in the text table and in reports
  int decimals = 2;          // of numbers in the text table and in reports; data keeps every digit
  Shown shown = Shown::kEverywhere;
};

// One statement about the whole picture: its size, a level that was chosen, a count. Without a
// heading it appears in JSON alone.
struct Fact {
  std::string key, heading;
  Cell value = {};
};

// One row for each thing found. Every row has as many cells as there are columns.
struct Findings {
  std::string key;  // name of the rows in JSON: "blobs"
  std::vector<Fact> facts = {};
  std::vector<Column> columns = {};
  std::vector<std::vector<Cell>> rows = {};
};

// A cell as text: numbers with `decimals` digits, nothing for what is not known.
std::string Text(const Cell& cell, int decimals);

// A row as JSON, without what is not known where `sparse`.
nlohmann::ordered_json RowToJson(const std::vector<Column>& columns, const std::vector<Cell>& row,
                                 bool sparse = false);

// Facts, one a line, then the rows under their headings; numbers to the right, texts to the left.
void PrintText(const Findings& findings, std::ostream& out);

// {fact: value ..., key: [{column: value ...} ...]}, in the order given.
nlohmann::ordered_json ToJson(const Findings& findings);

// The rows under a line of column keys. Fields with a comma, a quote or a line break are quoted,
// quotes inside doubled. A text that a spreadsheet would take for a formula gets an apostrophe
// first.
void PrintCsv(const Findings& findings, std::ostream& out);

}  // namespace quillon::kit
