// Blue takes the part that red has in the textbook's HSI, while Lab takes red as red: hosts have
// calibrated on both. HSI bytes are truncated, Lab bytes rounded.
#include "color/colour_formulas.h"

#include <cmath>

namespace quillon {
namespace {

constexpr double kUnit = 0.00392156862745098;  // 1 / 255

uint8_t Truncated(double value) {
  if (value >= 255.0) return 255;
  return value <= 0.0 ? 0 : static_cast<uint8_t>(value);
}

uint8_t Rounded(double value) {
  if (value > 255.0) value = 255.0;
  if (value < 0.0) value = 0.0;
  return static_cast<uint8_t>(static_cast<int>(value + 0.5));
}

double CubeRoot(double t) { return t > 0.008856 ? std::pow(t, 0.333333) : 7.787 * t + 0.1379; }

// Inlined, for a call that returns the record costs every entry a sixth.
[[gnu::always_inline]] inline Hsi Evaluate(int b0, int b1, int b2) {
  const double B = b0 * kUnit, G = b1 * kUnit, R = b2 * kUnit;
  const double c1 = 0.81649 * B - 0.40824 * R - 0.40824 * G;
  const double c2 = 0.0 * B - 0.8761 * R + 0.8761 * G;
  const double saturation = std::sqrt(c1 * c1 + c2 * c2) * 312.3099;
  const double intensity = (0.57736 * R + 0.57736 * B + 0.57736 * G) * 147.2243;

  const double q = ((B - G) + (B - R)) * 0.5 / std::sqrt((G - R) * (B - R) + (B - G) * (B - G));
  double angle;
  if (q > kWholeCosine || std::isnan(q)) {
    angle = 0;
  } else if (q < -kWholeCosine) {
    angle = 3.1415926;
  } else {
    angle = std::acos(q);
  }
  return {q, angle * 57.2957 * 0.708, saturation, intensity};
}

}  // namespace

Hsi HsiValues(int b0, int b1, int b2) { return Evaluate(b0, b1, b2); }

ColourEntry HsiOf(int b0, int b1, int b2) {
  const Hsi hsi = Evaluate(b0, b1, b2);
  const double hue = b1 < b2 ? 255 - hsi.angle : hsi.angle;
  return {{Truncated(hue), Truncated(hsi.saturation), Truncated(hsi.intensity)}};
}

ColourEntry LabOf(int b0, int b1, int b2) {
  const double B = b0 * kUnit, G = b1 * kUnit, R = b2 * kUnit;
  const double X = (0.412453 * R + 0.180423 * B + 0.35758 * G) * 1.0521265581994328;
  const double Y = 0.212671 * R + 0.71516 * G + 0.072169 * B;
  const double Z = (0.019334 * R + 0.119193 * G + 0.950227 * B) * 0.9182247410147117;
  const double x = CubeRoot(X), y = CubeRoot(Y), z = CubeRoot(Z);
  return {{Rounded(y * 295.8 - 40.8), Rounded((x - y) * 691.37 + 119.16633),
           Rounded((y - z) * 252.054 + 135.93486)}};
}

}  // namespace quillon
