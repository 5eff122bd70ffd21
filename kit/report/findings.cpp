#include "kit/report/findings.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <ostream>

#include "kit/errors.h"
#include "kit/text/numbers.h"
#include "kit/text/text.h"

namespace quillon::kit {
namespace {

bool IsText(const Cell& cell) { return std::holds_alternative<std::string>(cell); }

std::string Fixed(double value, int decimals) {
  if (!std::isfinite(value)) return "";
  std::string text(512, '\0');
  text.resize(
      static_cast<size_t>(std::snprintf(text.data(), text.size(), "%.*f", decimals, value)));
  // A small negative number must not become "-0.00".
  if (text[0] == '-' && text.find_first_not_of("-0.") == std::string::npos) text.erase(0, 1);
  return text;
}

nlohmann::ordered_json Value(const Cell& cell) {
  return std::visit(
      [](const auto& value) -> nlohmann::ordered_json {
        if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::monostate>) {
          return nullptr;
        } else {
          return value;
        }
      },
      cell);
}

// Characters, not bytes: the bytes that continue a UTF-8 sequence take no place.
size_t Width(const std::string& text) {
  return static_cast<size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

// A cell as one line of a terminal shows it.
std::string OneLine(const Cell& cell, int decimals) {
  std::string text = Visible(Text(cell, decimals));
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\t'; }, ' ');
  return text;
}

std::string Padded(const std::string& text, size_t width, bool left) {
  const std::string space(width - std::min(width, Width(text)), ' ');
  return left ? text + space : space + text;
}

// A spreadsheet takes a text that begins like this for a formula, and may run a program for it. An
// apostrophe before it keeps it a text; one is put before an apostrophe too, so that two texts
// never become the same.
bool LooksLikeAFormula(const std::string& text) {
  return !text.empty() && std::string_view("=+-@\t'").find(text[0]) != std::string_view::npos;
}

std::string Quoted(const std::string& text) {
  std::string field = (LooksLikeAFormula(text) ? "'" : "") + Visible(text);
  if (field.find_first_of(",\"\t\n'") == std::string::npos) return field;
  std::string quoted = "\"";
  for (const char c : field) quoted.append(c == '"' ? 2 : 1, c);
  return quoted + '"';
}

std::string CsvField(const Cell& cell) {
  if (const auto* number = std::get_if<double>(&cell)) {
    return std::isfinite(*number) ? ShortestDigits(*number) : "";
  }
  return IsText(cell) ? Quoted(std::get<std::string>(cell)) : Text(cell, 0);
}

}  // namespace

Cell Single(float value) try {
  if (!std::isfinite(value)) return static_cast<double>(value);
  const std::string digits = ShortestDigits(value);
  double shortest = 0;
  ReadNumber(digits.data(), digits.data() + digits.size(), shortest);
  return shortest;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a number as text");
}

std::string Text(const Cell& cell, int decimals) try {
  if (const auto* text = std::get_if<std::string>(&cell)) return *text;
  if (const auto* whole = std::get_if<int64_t>(&cell)) return std::to_string(*whole);
  if (const auto* number = std::get_if<double>(&cell)) return Fixed(*number, decimals);
  return "";
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a cell as text");
}

void PrintText(const Findings& findings, std::ostream& out) try {
  constexpr int kFactDecimals = 2;
  size_t widest = 0;
  for (const Fact& fact : findings.facts) widest = std::max(widest, Width(fact.heading));
  for (const Fact& fact : findings.facts) {
    if (fact.heading.empty()) continue;
    out << Padded(fact.heading, widest, true) << "  " << OneLine(fact.value, kFactDecimals) << '\n';
  }

  // Column by column first, for the widths; then line by line.
  struct Printed {
    std::vector<std::string> lines;
    size_t width;
    bool left;
  };
  std::vector<Printed> columns;
  for (size_t c = 0; c < findings.columns.size(); ++c) {
    const Column& column = findings.columns[c];
    if (column.shown == Shown::kNowhere) continue;
    const std::string heading = OneLine(column.heading, 0);
    Printed printed{{heading}, Width(heading), false};
    for (const auto& row : findings.rows) {
      printed.lines.push_back(OneLine(row[c], column.decimals));
      printed.width = std::max(printed.width, Width(printed.lines.back()));
      printed.left = printed.left || IsText(row[c]);
    }
    columns.push_back(std::move(printed));
  }
  if (findings.rows.empty() || columns.empty()) return;
  if (widest > 0) out << '\n';
  for (size_t line = 0; line <= findings.rows.size(); ++line) {
    std::string text;
    for (const Printed& column : columns) {
      if (!text.empty()) text += "  ";
      text += Padded(column.lines[line], column.width, column.left);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    out << text << '\n';
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a table");
}

nlohmann::ordered_json RowToJson(const std::vector<Column>& columns, const std::vector<Cell>& row,
                                 bool sparse) try {
  nlohmann::ordered_json object = nlohmann::ordered_json::object();
  for (size_t c = 0; c < row.size(); ++c) {
    if (sparse && std::holds_alternative<std::monostate>(row[c])) continue;
    object[columns[c].key] = Value(row[c]);
  }
  return object;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a row as JSON");
}

nlohmann::ordered_json ToJson(const Findings& findings) try {
  nlohmann::ordered_json all = nlohmann::ordered_json::object();
  for (const Fact& fact : findings.facts) all[fact.key] = Value(fact.value);
  auto& rows = all[findings.key] = nlohmann::ordered_json::array();
  for (const auto& row : findings.rows) rows.push_back(RowToJson(findings.columns, row));
  return all;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a table as JSON");
}

void PrintCsv(const Findings& findings, std::ostream& out) try {
  const auto printLine = [&](size_t count, const auto& field) {
    for (size_t c = 0; c < count; ++c) out << (c ? "," : "") << field(c);
    out << '\n';
  };
  printLine(findings.columns.size(), [&](size_t c) { return Quoted(findings.columns[c].key); });
  for (const auto& row : findings.rows) {
    printLine(row.size(), [&](size_t c) { return CsvField(row[c]); });
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a table as CSV");
}

}  // namespace quillon::kit
