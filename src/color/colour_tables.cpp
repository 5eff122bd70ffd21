#include "color/colour_tables.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "color/colour_formulas.h"
#include "color/colour_kernels.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

// Hue and saturation of all colours whose green and red lie `apart`. Hue follows from the
// differences between channels alone, and saturation nearly does: it weighs blue by 0.81649 and the
// other two by 0.40824 each. So one value serves a whole diagonal of colours - those with the same
// blue - low, of the lower of green and red - and a row of the tables is a window of these values.
class HsiDiagonals {
 public:
  explicit HsiDiagonals(int apart) : apart_(apart) {
    for (int blueAhead = apart - 255; blueAhead <= 255; ++blueAhead) Fill(blueAhead);
  }

  // All blues of a green and a red that lie so far apart.
  void CopyRow(int green, int red, uint8_t* hue, uint8_t* saturation) const {
    const int low = std::min(green, red), first = kZero - low;
    std::memcpy(hue, (green < red ? hueDown_ : hueUp_) + first, kColourRow);
    std::memcpy(saturation, saturation_ + first, kColourRow);
    for (int i = 0; i < doubts_; ++i) {
      const int blue = low + doubt_[i];
      if (blue < 0 || blue >= kColourRow) continue;
      const ColourEntry exact = HsiOf(blue, green, red);
      hue[blue] = exact.channel[0];
      saturation[blue] = exact.channel[1];
    }
  }

 private:
  static constexpr int kZero = 255;  // where blue = low

  void Fill(int blueAhead) {
    // The diagonal's value is that of its darkest colour, if the others surely have the same.
    const int low = std::max(0, -blueAhead), blue = low + blueAhead;
    const int brighter = 255 - std::max(blue, low + apart_);
    const Hsi hsi = HsiValues(blue, low, low + apart_);
    const int at = kZero + blueAhead;
    hueUp_[at] = static_cast<uint8_t>(hsi.angle);
    hueDown_[at] = static_cast<uint8_t>(255 - hsi.angle);
    saturation_[at] = static_cast<uint8_t>(std::min(hsi.saturation, 255.0));

    // Along the diagonal, cosines differ by rounding, by less than 1e-12, and angles so by less
    // than 1e-8: the slope of the arc cosine stays below 224.
    constexpr double kCosineMargin = 1e-11, kMargin = 1e-7;
    // The weights of saturation do not quite cancel: 0.81649 - 2 * 0.40824 = 1e-5. A level of
    // brightness changes it by this much at most.
    constexpr double kDrift = 312.3099 * 1.0001e-5 / 255;
    const bool sure = std::abs(std::abs(hsi.cosine) - kWholeCosine) > kCosineMargin &&
                      (hsi.angle == 0 || AwayFromWhole(hsi.angle, kMargin)) &&
                      AwayFromWhole(hsi.saturation, kMargin + kDrift * brighter);
    if (!sure) doubt_[doubts_++] = blueAhead;
  }

  static bool AwayFromWhole(double value, double margin) {
    return std::abs(value - std::nearbyint(value)) > margin;
  }

  int apart_;
  uint8_t hueUp_[2 * kZero + 1], hueDown_[2 * kZero + 1], saturation_[2 * kZero + 1];
  int doubts_ = 0, doubt_[2 * kZero + 1];
};

}  // namespace

void BuildHsiTables(uint8_t* hue, uint8_t* saturation, uint8_t* intensity) {
  // By the sum of the channels; none but that of 0 lies within 1e-5 of the edge of a byte.
  uint8_t intensities[3 * 255 + 1];
  for (int sum = 0; sum <= 3 * 255; ++sum) {
    const int blue = sum / 3, green = (sum - blue) / 2;
    intensities[sum] = HsiOf(blue, green, sum - blue - green).channel[2];
  }
  for (int apart = 0; apart < 256; ++apart) {
    const HsiDiagonals diagonals(apart);
    const auto fillRow = [&](int green, int red) {
      const ptrdiff_t row = (red * 256 + green) * ptrdiff_t{kColourRow};
      diagonals.CopyRow(green, red, hue + row, saturation + row);
      std::memcpy(intensity + row, intensities + green + red, kColourRow);
    };
    for (int low = 0; low + apart < 256; ++low) {
      fillRow(low, low + apart);
      if (apart > 0) fillRow(low + apart, low);
    }
  }
}

// Single precision fills the rows; the exact formula settles what it leaves in doubt.
void BuildLabTables(const Kernels& kernels, uint8_t* lightness, uint8_t* a, uint8_t* b) {
  for (int b2 = 0; b2 < 256; ++b2) {
    for (int b1 = 0; b1 < 256; ++b1) {
      const ptrdiff_t first = (b2 * 256 + b1) * ptrdiff_t{kColourRow};
      ColourRow row = {{lightness + first, a + first, b + first}, {}};
      kernels.colour.LabRow(b1, b2, row);
      for (int word = 0; word < kColourRow / 64; ++word) {
        for (uint64_t doubt = row.doubt[word]; doubt != 0; doubt &= doubt - 1) {
          const int b0 = 64 * word + std::countr_zero(doubt);
          const ColourEntry entry = LabOf(b0, b1, b2);
          for (int c = 0; c < 3; ++c) row.channel[c][b0] = entry.channel[c];
        }
      }
    }
  }
}

}  // namespace quillon
