// The index of a run: what passed, how each measurement is spread, and all images.
#include "kit/errors.h"
#include "kit/recipe/histogram.h"
#include "kit/recipe/results.h"
#include "kit/recipe/run_pages.h"
#include "kit/report/page.h"
#include "kit/report/page_parts.h"
#include "kit/report/spread.h"

namespace quillon::kit::recipe {
namespace {

// The share of each verdict as a bar, and buttons that show the images of one.
std::string Overview(const Counts& counts) {
  const std::pair<Verdict, size_t> parts[] = {{Verdict::kPass, counts.pass},
                                              {Verdict::kFail, counts.fail},
                                              {Verdict::kUnreadable, counts.unreadable},
                                              {Verdict::kError, counts.error}};
  std::string bar, buttons = "<button type='button' aria-pressed='true' data-filter=''><b>" +
                             std::to_string(counts.images) + "</b> images</button>";
  for (const auto& [verdict, count] : parts) {
    if (count == 0) continue;
    const std::string name = NameOf(verdict);
    const std::string number = std::to_string(count);
    bar.append("<i class='").append(name).append("' style='flex:").append(number).append("'></i>");
    buttons.append("<button type='button' class='")
        .append(name)
        .append("' data-filter='")
        .append(name);
    buttons.append("'><b>").append(number).append("</b> ").append(name).append("</button>");
  }
  const double share =
      counts.images ? 100.0 * static_cast<double>(counts.pass) / static_cast<double>(counts.images)
                    : 0;
  return "<div class='share'>" + bar + "</div>\n<div class='filters'>" + buttons +
         "<span class='yield'>" + Text(share, 1) + " % pass</span></div>\n";
}

// For each image its page and its thumbnail, and the bins of its values.
std::string AsJson(const IndexEntry& entry, const std::vector<Histogram>& histograms) {
  std::string json = "[" + ScriptText(entry.link) + "," + ScriptText(entry.thumbnail);
  for (size_t i = 0; i < histograms.size(); ++i) {
    json += "," + std::to_string(histograms[i].BinOf(entry.record->values[i]));
  }
  return json + "]";
}

std::string AsJson(const Measurement& measurement, const Histogram& histogram) {
  std::string passes;
  for (const Histogram::Bin& bin : histogram.Bins()) {
    passes += (passes.empty() ? "" : ",") + std::string(bin.passes ? "1" : "0");
  }
  return "{\"name\":" + ScriptText(measurement.name) +
         ",\"decimals\":" + std::to_string(DecimalsOf(measurement)) +
         ",\"isJudged\":" + (measurement.min || measurement.max ? "true" : "false") +
         ",\"passes\":[" + passes + "]}";
}

constexpr const char* kTools =
    "<div class='tools'><input type='search' placeholder='Search names' aria-label='Search names'>"
    "<label>Sort by <select></select></label>"
    "<button type='button' data-order title='Turn the order' aria-label='Turn the order'></button>"
    "<span class='chosen' hidden><span></span> <button type='button'>show all</button></span>"
    "<span class='csv'></span><span class='pager'></span></div>\n";

}  // namespace

std::string RenderIndex(const Recipe& recipe, const std::vector<IndexEntry>& entries) try {
  std::vector<ImageRecord> records;
  records.reserve(entries.size());
  for (const IndexEntry& entry : entries) records.push_back(*entry.record);
  std::vector<Histogram> histograms;
  std::vector<std::string> spreads;
  for (size_t i = 0; i < recipe.measurements.size(); ++i) {
    std::vector<std::optional<double>> values;
    values.reserve(records.size());
    for (const ImageRecord& record : records) {
      values.push_back(i < record.values.size() ? record.values[i] : std::nullopt);
    }
    const Measurement& measurement = recipe.measurements[i];
    const Limits limits = {measurement.min, measurement.max};
    const std::string unit = measurement.unit.mm ? " " + NameOf(measurement.unit) : "";
    spreads.push_back(NumbersHtml(SpreadOf(values, limits), DecimalsOf(measurement), unit) +
                      TrendHtml(values, limits));
    histograms.emplace_back(measurement, std::move(values));
  }
  std::string body = "<header>\n<h1>" + Escaped(recipe.name) + "</h1>\n";
  if (!recipe.note.empty()) body += "<p class='note'>" + Escaped(recipe.note) + "</p>\n";
  body += Overview(Count(records)) + "</header>\n<section class='histograms'>\n";
  for (size_t i = 0; i < histograms.size(); ++i) body += histograms[i].Html(i, spreads[i]);
  body += std::string("</section>\n") + kTools + "<main class='cards'></main>\n" +
          "<div class='tools'><span class='pager'></span></div>\n" +
          "<noscript>The list of images needs JavaScript.</noscript>\n";
  std::string measurements, images;
  for (size_t i = 0; i < histograms.size(); ++i) {
    measurements += (i ? "," : "") + AsJson(recipe.measurements[i], histograms[i]);
  }
  for (const IndexEntry& entry : entries) {
    images += (images.empty() ? "" : ",\n") + AsJson(entry, histograms);
  }
  body += DataElement("{\"measurements\":[" + measurements + "],\n\"images\":[" + images + "]}");
  body += CsvElement(ToFindings(recipe, records));
  return Render({.title = recipe.name,
                 .body = std::move(body),
                 .style = kIndexStyle,
                 .script = kIndexScript,
                 .bodyClass = "index"});
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the index of a run");
}

}  // namespace quillon::kit::recipe
