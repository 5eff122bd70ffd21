#include "kit/report/spread.h"

#include <algorithm>
#include <cmath>

#include "kit/report/findings.h"
#include "kit/report/page.h"

namespace quillon::kit {

Spread SpreadOf(std::span<const std::optional<double>> values, const Limits& limits) {
  Spread spread;
  for (const auto& value : values) {
    if (!value) continue;
    spread.least = spread.count ? std::min(spread.least, *value) : *value;
    spread.most = spread.count ? std::max(spread.most, *value) : *value;
    ++spread.count;
    spread.mean += (*value - spread.mean) / static_cast<double>(spread.count);
  }
  if (spread.count < 2) return spread;
  double squares = 0;
  for (const auto& value : values) {
    if (value) squares += (*value - spread.mean) * (*value - spread.mean);
  }
  spread.deviation = std::sqrt(squares / static_cast<double>(spread.count - 1));
  if (!(spread.deviation > 0)) return spread;
  const auto& [min, max] = limits;
  const double third = 3 * spread.deviation;
  if (min && max) spread.cp = (*max - *min) / (2 * third);
  if (max) spread.cpk = (*max - spread.mean) / third;
  if (min) {
    const double below = (spread.mean - *min) / third;
    spread.cpk = spread.cpk ? std::min(*spread.cpk, below) : below;
  }
  return spread;
}

std::string NumbersHtml(const Spread& spread, int decimals, const std::string& unit) {
  if (spread.count < 2) return "";
  // A mean and a deviation are finer than the values are shown.
  const auto number = [&](double value) { return Text(value, decimals + 1) + Escaped(unit); };
  const auto entry = [](const char* name, const char* meaning, const std::string& value) {
    return "<div title='" + std::string(meaning) + "'><dt>" + name + "</dt><dd>" + value +
           "</dd></div>";
  };
  std::string html = "<dl class='spread'>";
  html += entry("mean", "of all values", number(spread.mean));
  html += entry("deviation", "standard deviation of all values", number(spread.deviation));
  html +=
      entry("range", "from the least value to the greatest", number(spread.most - spread.least));
  html += entry("repeatability", "six deviations, where all images show one part",
                number(spread.Repeatability()));
  if (spread.cp)
    html += entry("Cp", "room between the limits over six deviations", Text(*spread.cp, 2));
  if (spread.cpk) {
    html += entry("Cpk", "from the mean to the nearer limit over three deviations",
                  Text(*spread.cpk, 2));
  }
  return html + "</dl>";
}

std::string TrendHtml(std::span<const std::optional<double>> values, const Limits& limits) {
  constexpr int kWidth = 320, kHeight = 60;
  const Spread spread = SpreadOf(values, {});
  if (spread.count < 2) return "";
  double low = spread.least, high = spread.most;
  // Limits that are not far from the values are shown.
  const double reach = std::max({high - low, std::fabs(high) * 0.1, 1e-9});
  for (const auto& limit : {limits.min, limits.max}) {
    if (!limit || *limit < spread.least - reach || *limit > spread.most + reach) continue;
    low = std::min(low, *limit);
    high = std::max(high, *limit);
  }
  const double range = high > low ? high - low : 1;
  const auto y = [&](double value) { return Text(kHeight - (value - low) / range * kHeight, 1); };
  // Many images share a column, which goes from the least of them to the greatest.
  const size_t columns = std::min<size_t>(values.size(), kWidth);
  std::string path;
  bool isOpen = false;  // the line breaks where images have no value
  for (size_t i = 0; i < columns; ++i) {
    const size_t from = i * values.size() / columns, to = (i + 1) * values.size() / columns;
    const Spread part = SpreadOf(values.subspan(from, to - from), {});
    if (part.count > 0) {
      const double x = (static_cast<double>(i) + 0.5) * kWidth / static_cast<double>(columns);
      path += (isOpen ? "L" : "M") + Text(x, 1) + " " + y(part.least) + "V" + y(part.most);
    }
    isOpen = part.count > 0;
  }
  std::string html = "<svg class='trend' viewBox='0 -3 " + std::to_string(kWidth) + " " +
                     std::to_string(kHeight + 6) +
                     "' role='img' aria-label='values in the order of the images'>";
  for (const auto& limit : {limits.min, limits.max}) {
    if (!limit || *limit < low || *limit > high) continue;
    html += "<path class='limit' d='M0 " + y(*limit) + "H" + std::to_string(kWidth) + "'/>";
  }
  return html + "<path class='course' d='" + path + "'/></svg>";
}

}  // namespace quillon::kit
