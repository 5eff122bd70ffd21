#include "kit/recipe/histogram.h"

#include <algorithm>
#include <cmath>

#include "kit/recipe/run_pages.h"
#include "kit/report/page.h"

namespace quillon::kit::recipe {
namespace {

constexpr int kWidth = 320, kHeight = 110, kTop = 14;
constexpr double kCut = 30;  // pixels of the axis that are left free where it is cut short

std::string Number(double value) {
  std::string text = Text(value, 2);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text;
}

}  // namespace

Histogram::Histogram(const Measurement& measurement, std::vector<std::optional<double>> values)
    : measurement_(measurement) {
  std::erase(values, std::nullopt);
  if (values.empty()) return;
  const auto [least, most] = std::minmax_element(values.begin(), values.end());
  low_ = **least;
  high_ = **most;
  const bool beginsAtZero = low_ >= 0 && measurement.quantity && !measurement.quantity->isSigned;
  // Limits that are not far from the values are shown.
  const double reach = std::max({high_ - low_, std::fabs(high_) * 0.1, 1e-9});
  for (const auto& limit : {measurement.min, measurement.max}) {
    if (!limit || *limit < low_ - reach || *limit > high_ + reach) continue;
    low_ = std::min(low_, *limit);
    high_ = std::max(high_, *limit);
  }
  if (beginsAtZero) low_ = std::max(low_, 0.0);
  constexpr double kMostWhole = 30, kMostBins = 24;
  isWhole_ = std::all_of(values.begin(), values.end(),
                         [](const auto& v) { return std::trunc(*v) == *v; }) &&
             high_ - low_ <= kMostWhole;
  if (isWhole_) low_ = std::floor(low_), high_ = std::ceil(high_);
  isCut_ = beginsAtZero && low_ > (isWhole_ ? kMostWhole - high_ + low_ : 2 * (high_ - low_));
  if (beginsAtZero && !isCut_) low_ = 0;
  if (isWhole_) {
    for (double whole = low_; whole <= high_; ++whole) {
      bins_.push_back({whole - 0.5, whole + 0.5, Passes(measurement, whole)});
    }
    low_ -= 0.5, high_ += 0.5;
  } else {
    if (low_ == high_) high_ += std::max(1.0, std::fabs(high_) * 0.01);
    const double width = (high_ - low_) / kMostBins;
    const double from = std::clamp(measurement.min.value_or(low_), low_, high_);
    const double to = std::clamp(measurement.max.value_or(high_), from, high_);
    if (low_ < from) AddBins(low_, from, false, width);
    AddBins(from, to, true, width);  // also of no width: values may lie on a limit
    if (to < high_) AddBins(to, high_, false, width);
  }
  for (const auto& value : values) ++bins_[static_cast<size_t>(BinOf(value))].count;
}

void Histogram::AddBins(double from, double to, bool passes, double width) {
  const int count = std::max(1, static_cast<int>(std::lround((to - from) / width)));
  const double step = (to - from) / count;
  for (int i = 0; i < count; ++i) bins_.push_back({from + i * step, from + (i + 1) * step, passes});
}

// Limits are edges, and a value that lies on one passes.
int Histogram::BinOf(const std::optional<double>& value) const {
  if (!value || bins_.empty()) return -1;
  const bool passes = Passes(measurement_, value);
  int found = -1;
  for (size_t i = 0; i < bins_.size(); ++i) {
    if (bins_[i].passes == passes && (found < 0 || bins_[i].from <= *value)) {
      found = static_cast<int>(i);
    }
  }
  return found;
}

std::string Histogram::Label(double value) const { return Text(value, DecimalsOf(measurement_)); }

double Histogram::XOf(double value) const {
  const double begin = isCut_ ? kCut : 0;
  return begin + (value - low_) / (high_ - low_) * (kWidth - begin);
}

std::string Histogram::Html(size_t number, const std::string& more) const {
  std::string html = "<figure class='histogram' data-measurement='" + std::to_string(number) +
                     "'><figcaption><b>" + Escaped(measurement_.name) + "</b> " +
                     LimitsOf(measurement_) + "</figcaption>";
  if (bins_.empty()) return html + "<p>no values</p></figure>\n";
  html += "<svg viewBox='0 0 " + std::to_string(kWidth) + " " + std::to_string(kHeight + 16) +
          "' role='group' aria-label='" + Escaped(measurement_.name) + "'>";
  size_t most = 1;
  for (const Bin& bin : bins_) most = std::max(most, bin.count);
  for (size_t i = 0; i < bins_.size(); ++i) html += Bar(i, most);
  return html + Limits() + Axis() + "</svg>" + more + "</figure>\n";
}

std::string Histogram::Bar(size_t number, size_t most) const {
  const Bin& bin = bins_[number];
  if (bin.count == 0) return "";
  const double left = XOf(bin.from), room = std::max(XOf(bin.to) - left, 2.0);
  std::string tip = isWhole_ ? Label(bin.from + 0.5) : Label(bin.from) + " to " + Label(bin.to);
  tip += ": " + std::to_string(bin.count) + (bin.count == 1 ? " image" : " images");
  if (!bin.passes) tip += ", outside the limits";
  const double share = static_cast<double>(bin.count) / static_cast<double>(most);
  const double height = std::max((kHeight - kTop) * share, 2.0);  // never too flat to be seen
  const double width = std::min(room * 0.88, 48.0);
  return "<g class='bin' tabindex='0' role='button' data-bin='" + std::to_string(number) +
         "'><title>" + tip + "</title><rect class='reach' x='" + Number(left) + "' width='" +
         Number(room) + "' y='0' height='" + std::to_string(kHeight) + "'/><rect class='" +
         (!bin.passes                      ? "fail"
          : LimitsOf(measurement_).empty() ? "free"
                                           : "pass") +
         "' x='" + Number(left + (room - width) / 2) + "' width='" + Number(width) + "' y='" +
         Number(kHeight - height) + "' height='" + Number(height) + "'/></g>";
}

// A limit lies beside the value that is still good: at a bin's edge.
std::string Histogram::Limits() const {
  std::string html;
  const auto line = [&](const std::optional<double>& limit, double shift) {
    if (!limit || *limit < low_ || *limit > high_) return;
    const std::string x = Number(XOf(isWhole_ ? *limit + shift : *limit));
    html += "<path class='limit' d='M" + x + " 0V" + std::to_string(kHeight) + "'/>";
  };
  line(measurement_.min, -0.5);
  line(measurement_.max, 0.5);
  return html;
}

// The least and the greatest value at the ends, or under the first and the last bin of one whole
// number; two strokes where the axis is cut.
std::string Histogram::Axis() const {
  const std::string base = std::to_string(kHeight), y = std::to_string(kHeight + 13);
  std::string html = "<path class='axis' d='M0 " + base + "H" + std::to_string(kWidth) + "'/>";
  const auto label = [&](const char* anchor, double x, const std::string& text) {
    html += "<text class='" + std::string(anchor) + "' x='" + Number(x) + "' y='" + y + "'>" +
            text + "</text>";
  };
  if (isCut_) {
    label("start", 0, "0");
    html += "<path class='axis cut' d='M" + Number(kCut / 2 - 4) + " " +
            std::to_string(kHeight + 5) + "l4 -10m3 0l-4 10'/>";
  }
  const double half = isWhole_ ? 0.5 : 0;
  label(isWhole_ ? "middle" : "start", XOf(low_ + half), Label(low_ + half));
  if (bins_.size() > 1) label(isWhole_ ? "middle" : "end", XOf(high_ - half), Label(high_ - half));
  return html;
}

}  // namespace quillon::kit::recipe
