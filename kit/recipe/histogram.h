// How the values of one measurement are spread: bins that hold values within the limits, or values
// outside them, never both.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "kit/recipe/inspector.h"

namespace quillon::kit::recipe {

class Histogram {
 public:
  // Of whole numbers that are near each other each has a bin. Other bins are of about one width,
  // and the limits are edges of bins. Where values cannot be negative the axis begins at 0.
  Histogram(const Measurement& measurement, std::vector<std::optional<double>> values);

  struct Bin {
    double from, to;  // of one whole number: half a unit around it
    bool passes;
    size_t count = 0;
  };
  const std::vector<Bin>& Bins() const { return bins_; }
  // -1 for no value.
  int BinOf(const std::optional<double>& value) const;

  // A figure for the index, with `more` below it; `number` is the measurement's.
  std::string Html(size_t number, const std::string& more = "") const;

 private:
  void AddBins(double from, double to, bool passes, double width);
  std::string Bar(size_t number, size_t most) const;
  std::string Limits() const;
  std::string Axis() const;
  double XOf(double value) const;
  std::string Label(double value) const;

  const Measurement& measurement_;
  std::vector<Bin> bins_;
  bool isWhole_ = false;
  // Values lie from `low_` to `high_`; the axis from 0 to `low_` is cut short where it would leave
  // them no room.
  double low_ = 0, high_ = 0;
  bool isCut_ = false;
};

}  // namespace quillon::kit::recipe
