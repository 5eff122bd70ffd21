#include "kit/report/page.h"

#include <nlohmann/json.hpp>
#include <sstream>

#include "kit/errors.h"
#include "kit/report/page_parts.h"
#include "kit/text/text.h"

namespace quillon::kit {

std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : Visible(text)) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

// A script ends at "</script" wherever that stands, so no "<" does.
std::string ScriptText(std::string_view text) {
  std::string safe;
  for (const char c : JsonText(nlohmann::ordered_json(Visible(text)))) {
    if (c == '<') {
      safe += "\\u003c";
    } else {
      safe += c;
    }
  }
  return safe;
}

std::string DataElement(const std::string& json) {
  return "<script type='application/json' id='page'>" + json + "</script>\n";
}

std::string CsvElement(const Findings& findings) {
  std::ostringstream csv;
  PrintCsv(findings, csv);
  if (!csv) throw OutOfMemory("the rows of a page");
  return "<pre id='csv' hidden>" + Escaped(csv.str()) + "</pre>\n";
}

std::string ColumnsAsJson(const Findings& findings) {
  std::string json;
  for (size_t c = 0; c < findings.columns.size(); ++c) {
    const Column& column = findings.columns[c];
    if (column.shown != Shown::kEverywhere) continue;
    bool isText = false, isWhole = true;
    for (const auto& row : findings.rows) {
      isText = isText || std::holds_alternative<std::string>(row[c]);
      isWhole = isWhole && !std::holds_alternative<double>(row[c]);
    }
    json += (json.empty() ? "[" : ",") + ("{\"heading\":" + ScriptText(column.heading)) +
            ",\"place\":" + std::to_string(c) +
            ",\"decimals\":" + std::to_string(isWhole ? 0 : column.decimals) +
            ",\"isText\":" + (isText ? "true}" : "false}");
  }
  return json.empty() ? "[]" : json + "]";
}

std::string Render(const HtmlPage& page) {
  return "<!DOCTYPE html>\n<html lang='en'>\n<head>\n<meta charset='utf-8'>\n"
         "<meta name='viewport' content='width=device-width, initial-scale=1'>\n"
         "<meta name='generator' content='quillon " QUILLON_VERSION "'>\n<title>" +
         Escaped(page.title) + "</title>\n<style>\n" + kPageStyle + page.style +
         "</style>\n</head>\n<body class='" + std::string(page.bodyClass) + "'>\n" + page.body +
         "<footer>quillon " QUILLON_VERSION "</footer>\n<script type='module'>\n" + kCsvScript +
         page.script + "</script>\n</body>\n</html>\n";
}

}  // namespace quillon::kit
