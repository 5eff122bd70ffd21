// The frame of every page: head, styles, scripts and data in one file that needs no other.
#pragma once

#include <string>
#include <string_view>

#include "kit/report/findings.h"

namespace quillon::kit {

// A text as HTML shows it, in attributes too. What cannot be seen is shown by its number.
std::string Escaped(std::string_view text);

// A text as JSON, with its quotes, that may stand in a script.
std::string ScriptText(std::string_view text);

// What scripts read: JSON under the name "page", and rows as CSV under the name "csv".
std::string DataElement(const std::string& json);
std::string CsvElement(const Findings& findings);

// [{"heading": ..., "place": ..., "decimals": ..., "isText": ...} ...]: the columns that pages
// show, and their places in the rows.
std::string ColumnsAsJson(const Findings& findings);

struct HtmlPage {
  std::string title;
  std::string body;           // HTML
  std::string style, script;  // of this page, after those of all pages
  std::string_view bodyClass = "page";
};
std::string Render(const HtmlPage& page);

}  // namespace quillon::kit
