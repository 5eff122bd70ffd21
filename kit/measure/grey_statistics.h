// What the grey values of some pixels are like.
#pragma once

#include <array>
#include <cstdint>

namespace quillon::kit {

class GreyStatistics {
 public:
  void Add(unsigned char grey) { ++counts_[grey]; }

  int64_t Count() const;
  // Of no pixels all are 0.
  double Mean() const;
  double Deviation() const;  // the root of the mean square of differences from the mean
  // The least grey value that this share of the pixels, in per cent, is at or below; of 0 the least
  // of all, of 50 the median.
  int Percentile(double share) const;

 private:
  std::array<int64_t, 256> counts_ = {};
};

}  // namespace quillon::kit
