#include "kit/measure/grey_statistics.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace quillon::kit {

int64_t GreyStatistics::Count() const {
  return std::accumulate(counts_.begin(), counts_.end(), int64_t{0});
}

double GreyStatistics::Mean() const {
  int64_t sum = 0;
  for (size_t grey = 0; grey < counts_.size(); ++grey) sum += int64_t(grey) * counts_[grey];
  return static_cast<double>(sum) / static_cast<double>(std::max<int64_t>(Count(), 1));
}

double GreyStatistics::Deviation() const {
  const double mean = Mean();
  double squares = 0;
  for (size_t grey = 0; grey < counts_.size(); ++grey) {
    const double away = static_cast<double>(grey) - mean;
    squares += away * away * static_cast<double>(counts_[grey]);
  }
  return std::sqrt(squares / static_cast<double>(std::max<int64_t>(Count(), 1)));
}

int GreyStatistics::Percentile(double share) const {
  const double wanted = share / 100 * static_cast<double>(Count());
  int64_t below = 0;
  for (size_t grey = 0; grey < counts_.size(); ++grey) {
    below += counts_[grey];
    if (below > 0 && static_cast<double>(below) >= wanted) return static_cast<int>(grey);
  }
  return 0;
}

}  // namespace quillon::kit
