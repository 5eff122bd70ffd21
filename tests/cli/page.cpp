#include "cli/page.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace quillon::test {
namespace {

std::string Between(const std::string& text, const std::string& begin, const std::string& end) {
  const size_t from = text.find(begin);
  if (from == std::string::npos) ADD_FAILURE() << "the page has no " << begin;
  if (from == std::string::npos) return "";
  const size_t start = from + begin.size();
  return text.substr(start, text.find(end, start) - start);
}

}  // namespace

nlohmann::json PageData(const std::string& html) {
  return nlohmann::json::parse(
      Between(html, "<script type='application/json' id='page'>", "</script>"));
}

std::string PageCsv(const std::string& html) {
  std::string csv = Between(html, "<pre id='csv' hidden>", "</pre>");
  for (const auto& [entity, character] :
       {std::pair("&lt;", "<"), {"&gt;", ">"}, {"&quot;", "\""}, {"&#39;", "'"}, {"&amp;", "&"}}) {
    for (size_t at = 0; (at = csv.find(entity, at)) != std::string::npos; ++at) {
      csv.replace(at, std::string(entity).size(), character);
    }
  }
  return csv;
}

size_t CountDrawn(const nlohmann::json& picture, DrawnKind kind, int row) {
  const nlohmann::json& all = picture["drawings"];
  return static_cast<size_t>(std::count_if(all.begin(), all.end(), [&](const auto& drawing) {
    return drawing[2] == static_cast<int>(kind) && (row == -2 || drawing[1] == row);
  }));
}

size_t Count(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

}  // namespace quillon::test
