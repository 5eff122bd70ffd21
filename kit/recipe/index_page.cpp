// The index of a run: what passed, how each measurement is spread, and all images.
#include <algorithm>
#include <cmath>
#include <filesystem>

#include "kit/recipe/results.h"
#include "kit/recipe/run_pages.h"
#include "kit/report/page_parts.h"
#include "kit/report/report.h"

namespace quillon::kit::recipe {
namespace {

std::string Number(double value) {
  std::string text = Text(value, 2);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text;
}

std::string Element(const char* name, const std::string& attributes, const std::string& inner) {
  return "<" + std::string(name) + (attributes.empty() ? "" : " " + attributes) + ">" + inner +
         "</" + name + ">";
}

// How the values of one measurement are spread: bins of one whole number each, or of equal width
// over all values and over limits that are not far from them.
class Histogram {
 public:
  Histogram(const Measurement& measurement, const std::vector<IndexEntry>& entries, size_t which)
      : measurement_(measurement) {
    for (const IndexEntry& entry : entries) {
      const auto& values = entry.record->values;
      if (which < values.size() && values[which]) values_.push_back(*values[which]);
    }
    if (values_.empty()) return;
    const auto [least, most] = std::minmax_element(values_.begin(), values_.end());
    low_ = *least;
    high_ = *most;
    const double reach = std::max({high_ - low_, std::fabs(high_) * 0.1, 1e-9});
    for (const auto& limit : {measurement.min, measurement.max}) {
      if (!limit || *limit < low_ - reach || *limit > high_ + reach) continue;
      low_ = std::min(low_, *limit);
      high_ = std::max(high_, *limit);
    }
    constexpr double kMostWhole = 30;
    constexpr int kBins = 24;
    const bool isWhole =
        std::all_of(values_.begin(), values_.end(), [](double v) { return std::trunc(v) == v; });
    if (isWhole && high_ - low_ <= kMostWhole) {
      low_ = std::floor(low_) - 0.5;
      high_ = std::ceil(high_) + 0.5;
      bins_ = static_cast<int>(high_ - low_);
    } else {
      const double margin = (high_ - low_) * 0.02;
      low_ -= margin;
      high_ += margin > 0 ? margin : 1;
      bins_ = kBins;
    }
    counts_.resize(static_cast<size_t>(bins_));
    for (const double value : values_) {
      auto& [pass, fail] = counts_[static_cast<size_t>(BinOf(value))];
      ++(Passes(measurement, value) ? pass : fail);
    }
  }

  // -1 for no value.
  int BinOf(const std::optional<double>& value) const {
    if (!value || bins_ == 0) return -1;
    return std::clamp(static_cast<int>((*value - low_) / (high_ - low_) * bins_), 0, bins_ - 1);
  }

  std::string Html(size_t number) const {
    std::string html = "<figure class='histogram' data-measurement='" + std::to_string(number) +
                       "'><figcaption><b>" + Escaped(measurement_.name) + "</b> " +
                       LimitsOf(measurement_) + "</figcaption>";
    if (bins_ == 0) return html + "<p>no values</p></figure>\n";
    html += "<svg viewBox='0 0 " + std::to_string(kWidth) + " " + std::to_string(kHeight + 16) +
            "' role='img'>" + Bars() + Limits() + Axis() + "</svg></figure>\n";
    return html;
  }

 private:
  static constexpr int kWidth = 320, kHeight = 110, kTop = 14;

  double XOf(double value) const { return (value - low_) / (high_ - low_) * kWidth; }

  std::string Label(double value) const { return Text(value, measurement_.quantity->decimals); }

  std::string Bars() const {
    size_t most = 1;
    for (const auto& [pass, fail] : counts_) most = std::max(most, pass + fail);
    const double step = static_cast<double>(kWidth) / bins_;
    std::string html;
    for (int bin = 0; bin < bins_; ++bin) {
      const auto& [pass, fail] = counts_[static_cast<size_t>(bin)];
      if (pass + fail == 0) continue;
      const double x = bin * step, unit = (kHeight - kTop) / static_cast<double>(most);
      const double from = low_ + (high_ - low_) * bin / bins_;
      const double to = low_ + (high_ - low_) * (bin + 1) / bins_;
      std::string tip = IsWhole() ? Label(from + 0.5) : Label(from) + " to " + Label(to);
      tip += ": " + std::to_string(pass + fail) + (pass + fail == 1 ? " image" : " images");
      if (fail) tip += ", " + std::to_string(fail) + " outside the limits";
      const auto bar = [&](const char* kind, double bottom, double height) {
        // Never too flat to be seen.
        const double shown = std::max(height, 2.0);
        const double width = std::min(step * 0.88, 48.0);
        return "<rect class='" + std::string(kind) + "' x='" + Number(x + (step - width) / 2) +
               "' width='" + Number(width) + "' y='" + Number(bottom - shown) + "' height='" +
               Number(shown) + "'/>";
      };
      html += "<g class='bin' tabindex='0' data-bin='" + std::to_string(bin) + "'><title>" + tip +
              "</title><rect class='reach' x='" + Number(x) + "' width='" + Number(step) +
              "' y='0' height='" + std::to_string(kHeight) + "'/>";
      if (pass) html += bar("pass", kHeight, unit * static_cast<double>(pass));
      if (fail) {
        html += bar("fail", kHeight - unit * static_cast<double>(pass),
                    unit * static_cast<double>(fail));
      }
      html += "</g>";
    }
    return html;
  }

  // A limit lies beside the value that is still good: at a bin's edge, where bins are whole
  // numbers.
  std::string Limits() const {
    const double half = IsWhole() ? 0.5 : 0;
    std::string html;
    const auto line = [&](const std::optional<double>& limit, double shift) {
      if (!limit || *limit < low_ || *limit > high_) return;
      const std::string x = Number(XOf(*limit + shift));
      html += "<path class='limit' d='M" + x + " 0V" + std::to_string(kHeight) + "'/>";
    };
    line(measurement_.min, -half);
    line(measurement_.max, half);
    return html;
  }

  // Under the first and the last bin where bins are whole numbers, else at the ends.
  std::string Axis() const {
    const std::string y = std::to_string(kHeight + 13);
    std::string html = "<path class='axis' d='M0 " + std::to_string(kHeight) + "H" +
                       std::to_string(kWidth) + "'/>";
    const auto label = [&](const char* anchor, double x, double value) {
      html += "<text class='" + std::string(anchor) + "' x='" + Number(x) + "' y='" + y + "'>" +
              Label(value) + "</text>";
    };
    if (!IsWhole()) {
      label("start", 0, low_);
      label("end", kWidth, high_);
      return html;
    }
    const double half = kWidth / 2.0 / bins_;
    label("middle", half, low_ + 0.5);
    if (bins_ > 1) label("middle", kWidth - half, high_ - 0.5);
    return html;
  }

  // Bins of one whole number each.
  bool IsWhole() const { return high_ - low_ == bins_; }

  const Measurement& measurement_;
  std::vector<double> values_;
  double low_ = 0, high_ = 0;
  int bins_ = 0;
  std::vector<std::pair<size_t, size_t>> counts_;  // pass, fail
};

std::string Card(const Recipe& recipe, const IndexEntry& entry,
                 const std::vector<Histogram>& histograms) {
  const ImageRecord& record = *entry.record;
  const std::string verdict = NameOf(record.verdict);
  std::string bins, values;
  for (size_t i = 0; i < recipe.measurements.size(); ++i) {
    const Measurement& measurement = recipe.measurements[i];
    const auto& value = record.values[i];
    bins += (i ? " " : "") + std::to_string(histograms[i].BinOf(value));
    if (!record.error.empty()) continue;
    const bool passes = Passes(measurement, value);
    values += Element("div", passes ? "" : "class='fail'",
                      Element("dt", "", Escaped(measurement.name)) +
                          Element("dd", "", value ? Shown(measurement, value) : "none"));
  }
  std::string inner = entry.thumbnail.empty()
                          ? "<span class='blank'>no picture</span>"
                          : "<img loading='lazy' alt='' src='" + Escaped(entry.thumbnail) + "'>";
  inner = Element("span", "class='thumb'", inner);
  const std::string name = std::filesystem::path(record.image).filename().string();
  inner += Element("span", "class='name' title='" + Escaped(record.image) + "'", Escaped(name));
  inner += Element("span", "class='verdict " + verdict + "'", Title(record.verdict));
  inner +=
      record.error.empty() ? Element("dl", "", values) : Element("p", "", Escaped(record.error));
  const std::string attributes =
      "class='card' data-verdict='" + verdict + "' data-bins='" + bins + "'";
  if (entry.link.empty()) return Element("div", attributes, inner) + "\n";
  return Element("a", attributes + " href='" + Escaped(entry.link) + "'", inner) + "\n";
}

// The share of each verdict as a bar, and buttons that show the images of one.
std::string Overview(const Counts& counts) {
  const std::pair<Verdict, size_t> parts[] = {{Verdict::kPass, counts.pass},
                                              {Verdict::kFail, counts.fail},
                                              {Verdict::kUnreadable, counts.unreadable},
                                              {Verdict::kError, counts.error}};
  std::string bar, buttons = "<button class='on' data-filter=''><b>" +
                             std::to_string(counts.images) + "</b> images</button>";
  for (const auto& [verdict, count] : parts) {
    if (count == 0) continue;
    const std::string name = NameOf(verdict);
    const std::string number = std::to_string(count);
    bar.append("<i class='").append(name).append("' style='flex:").append(number).append("'></i>");
    buttons.append("<button class='").append(name).append("' data-filter='").append(name);
    buttons.append("'><b>").append(number).append("</b> ").append(name).append("</button>");
  }
  const double share =
      counts.images ? 100.0 * static_cast<double>(counts.pass) / static_cast<double>(counts.images)
                    : 0;
  return "<div class='share'>" + bar + "</div>\n<div class='filters'>" + buttons +
         "<span class='yield'>" + Text(share, 1) + " % pass</span></div>\n";
}

}  // namespace

std::string RenderIndex(const Recipe& recipe, const std::vector<IndexEntry>& entries) {
  std::vector<ImageRecord> records;
  records.reserve(entries.size());
  for (const IndexEntry& entry : entries) records.push_back(*entry.record);
  std::vector<Histogram> histograms;
  for (size_t i = 0; i < recipe.measurements.size(); ++i) {
    histograms.emplace_back(recipe.measurements[i], entries, i);
  }
  std::string html =
      "<!DOCTYPE html>\n<html lang='en'>\n<head>\n<meta charset='utf-8'>\n"
      "<meta name='viewport' content='width=device-width, initial-scale=1'>\n"
      "<meta name='generator' content='quillon " QUILLON_VERSION "'>\n<title>";
  html += Escaped(recipe.name) + "</title>\n<style>\n" + kPageStyle + kIndexStyle + "</style>\n";
  html += "</head>\n<body class='index'>\n<header>\n<h1>" + Escaped(recipe.name) + "</h1>\n";
  if (!recipe.note.empty()) html += "<p class='note'>" + Escaped(recipe.note) + "</p>\n";
  html += Overview(Count(records)) + "</header>\n<section class='histograms'>\n";
  for (size_t i = 0; i < histograms.size(); ++i) html += histograms[i].Html(i);
  html += "</section>\n<p class='chosen' hidden><span></span> <button>show all</button></p>\n";
  html += "<main class='cards'>\n";
  for (const IndexEntry& entry : entries) html += Card(recipe, entry, histograms);
  html += "</main>\n<footer>quillon " QUILLON_VERSION "</footer>\n<script>\n";
  return html + kIndexScript + "</script>\n</body>\n</html>\n";
}

}  // namespace quillon::kit::recipe
