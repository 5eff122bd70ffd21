// How the values of one measurement lie over many pictures: their mean and deviation, what those
// say of a process with limits, and how they go from picture to picture.
#pragma once

#include <optional>
#include <span>
#include <string>

namespace quillon::kit {

struct Limits {
  std::optional<double> min = {}, max = {};
};

// What is there of the values. The deviation is that of a sample: over the count less one.
//
//   Cp  = (max - min) / (6 deviation)                       whether the limits leave room
//   Cpk = the lesser of (max - mean) and (mean - min), over 3 deviations;   with one limit, of that
//   repeatability = 6 deviations: what ten pictures of one part tell of the measuring itself
//
// Those need a deviation above 0, and Cp both limits.
struct Spread {
  size_t count = 0;
  double mean = 0, deviation = 0, least = 0, most = 0;
  std::optional<double> cp = {}, cpk = {};

  double Repeatability() const { return 6 * deviation; }
};
Spread SpreadOf(std::span<const std::optional<double>> values, const Limits& limits);

// The numbers as a line of a page, and the values in their order as a figure, with the limits that
// lie near them. Both are empty where there are not two values.
std::string NumbersHtml(const Spread& spread, int decimals, const std::string& unit);
std::string TrendHtml(std::span<const std::optional<double>> values, const Limits& limits);

}  // namespace quillon::kit
