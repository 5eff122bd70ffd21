// The printed forms of findings: text, JSON, CSV and the report page.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/host.h"
#include "cli/page.h"
#include "kit/report/findings.h"
#include "kit/report/report.h"

namespace quillon::test {
namespace {

using Json = nlohmann::json;
using kit::Cell;
using kit::Findings;

// Everything that needs care: quotes, line breaks, commas, markup, letters of two bytes, numbers
// that no short decimal holds, and what is not known.
Findings Awkward() {
  Findings findings{.key = "things"};
  findings.facts = {{"file", "File", "a \"b\", <c>&'d'"}, {"hidden", "", int64_t{7}}};
  findings.columns = {{"n", "n"},
                      {"kind", "kind"},
                      {"value", "value", 3},
                      {"corner", "corner", 2, kit::Shown::kNowhere}};
  findings.rows = {{int64_t{0}, "plain", 1.0 / 3, 0.1},
                   {int64_t{-12}, "a,b \"c\"\nd", -0.0001, kit::Single(0.1f)},
                   {int64_t{3}, "Größe", std::nan(""), std::numeric_limits<double>::infinity()},
                   {int64_t{4}, "<script>", Cell{}, 1e300}};
  return findings;
}

TEST(Output, TextIsAlignedAndRounded) {
  std::ostringstream out;
  Findings findings = Awkward();
  findings.rows[1][1] = "longer word";
  kit::PrintText(findings, out);
  EXPECT_EQ(out.str(),
            "File  a \"b\", <c>&'d'\n"
            "\n"
            "  n  kind         value\n"
            "  0  plain        0.333\n"
            "-12  longer word  0.000\n"
            "  3  Größe\n"
            "  4  <script>\n");
}

TEST(Output, CsvAndJsonHoldTheSameValues) {
  const Findings findings = Awkward();
  std::ostringstream out;
  kit::PrintCsv(findings, out);
  const auto records = ParseCsv(out.str());
  const auto json = kit::ToJson(findings);
  EXPECT_EQ(json["file"], "a \"b\", <c>&'d'");
  EXPECT_EQ(json["hidden"], 7);
  ASSERT_EQ(records.size(), findings.rows.size() + 1);
  ASSERT_EQ(json["things"].size(), findings.rows.size());
  for (size_t row = 0; row < findings.rows.size(); ++row) {
    ASSERT_EQ(records[row + 1].size(), findings.columns.size()) << row;
    for (size_t c = 0; c < findings.columns.size(); ++c) {
      const std::string& name = records[0][c];
      EXPECT_EQ(name, findings.columns[c].key);
      const std::string& field = records[row + 1][c];
      // Reading the text back, JSON with it, gives the very same number.
      const auto value = nlohmann::json::parse(json["things"][row][name].dump());
      if (value.is_null()) {
        EXPECT_EQ(field, "");
      } else if (value.is_string()) {
        EXPECT_EQ(field, value.get<std::string>());
      } else {
        EXPECT_EQ(std::stod(field), value.get<double>()) << name << " of row " << row;
      }
    }
  }
  EXPECT_EQ(json["things"][0]["value"].get<double>(), 1.0 / 3);
  EXPECT_EQ(json["things"][1]["corner"].get<double>(), 0.1);
}

TEST(Output, ReportHoldsEveryRowAndDrawingAndNothingFromElsewhere) {
  const Findings findings = Awkward();
  GreyImage grey;
  grey.Create(40, 30);
  ColourImage colour;
  colour.Create(3, 2);
  kit::Report report{
      .title = "Title <of> \"all\"",
      .layers = {{"Layer & more", kit::Tone::kCyan}, {"Off", kit::Tone::kRed, false}}};
  report.pictures.emplace_back("before <x>", grey);
  report.pictures.emplace_back("after", colour);
  for (int row = 0; row < 4; ++row) {
    report.pictures[0].Box({0, row}, row, row, row + 2, row + 3);
    report.pictures[1].Label({1, row}, {1, 1}, "<" + std::to_string(row) + ">");
  }
  const kit::Point points[] = {{1, 2}, {3.25, 4}, {5, std::nan("")}};
  report.pictures[0].Polygon({0}, points);
  report.pictures[0].Dots({1, 2}, points);
  report.pictures[0].Cross({0, 3}, {20, 10});
  const std::string page = kit::RenderReport(report, findings);

  const Json before = PageData(page)["pictures"][0]["drawings"];
  const Json after = PageData(page)["pictures"][1]["drawings"];
  for (int row = 0; row < 4; ++row) {
    EXPECT_EQ(before[static_cast<size_t>(row)],
              Json({0, row, kDrawnBox, row - 0.5, row - 0.5, row + 2.5, row + 3.5}));
    EXPECT_EQ(after[static_cast<size_t>(row)],
              Json({1, row, kDrawnLabel, 1, 1, "<" + std::to_string(row) + ">"}));
  }
  EXPECT_EQ(before[4], Json({0, -1, kDrawnPolygon, 1, 2, 3.25, 4, 5, 0}));
  EXPECT_EQ(before[5], Json({1, 2, kDrawnDots, 1, 2, 3.25, 4, 5, 0}));
  EXPECT_EQ(before[6], Json({0, 3, kDrawnCross, 20, 10}));
  std::ostringstream csv;
  PrintCsv(findings, csv);
  EXPECT_EQ(PageCsv(page), csv.str());
  EXPECT_EQ(Count(page, "data:image/png;base64,"), 2u);
  EXPECT_EQ(Count(page, " src='"), 2u);
  EXPECT_EQ(Count(page, "http"), 0u);
  EXPECT_EQ(Count(page, "<script"), 2u);
  EXPECT_EQ(Count(page, "&lt;script&gt;"), 1u) << "in the rows";
  EXPECT_EQ(Count(page, "Title &lt;of&gt; &quot;all&quot;"), 2u);
  EXPECT_EQ(Count(page, "before &lt;x&gt;"), 2u) << "under the picture, and in its place";
  EXPECT_EQ(Count(page, "Layer &amp; more"), 1u);
}

}  // namespace
}  // namespace quillon::test
