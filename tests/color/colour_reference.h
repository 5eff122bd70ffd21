// The colour spaces straight from their formulas, for one colour.
#pragma once

#include <cmath>
#include <cstdint>

namespace quillon::test::reference {

inline void Hsi(uint32_t b0, uint32_t b1, uint32_t b2, uint8_t* entry) {
  const double B = b0 * 0.00392156862745098, G = b1 * 0.00392156862745098,
               R = b2 * 0.00392156862745098;
  const double c1 = 0.81649 * B - 0.40824 * R - 0.40824 * G;
  const double c2 = 0.0 * B - 0.8761 * R + 0.8761 * G;
  const double s = sqrt(c1 * c1 + c2 * c2) * 312.3099;
  const double i = (0.57736 * R + 0.57736 * B + 0.57736 * G) * 147.2243;
  const double q = ((B - G) + (B - R)) * 0.5 / sqrt((G - R) * (B - R) + (B - G) * (B - G));
  double angle = q > 0.99999 || q != q ? 0 : q < -0.99999 ? 3.1415926 : acos(q);
  angle = angle * 57.2957 * 0.708;
  entry[0] = static_cast<uint8_t>(static_cast<int>(G < R ? 255 - angle : angle));
  entry[1] = static_cast<uint8_t>(s >= 255.0 ? 255 : s <= 0.0 ? 0 : static_cast<int>(s));
  entry[2] = static_cast<uint8_t>(i >= 255.0 ? 255 : i <= 0.0 ? 0 : static_cast<int>(i));
}

inline void Lab(uint32_t b0, uint32_t b1, uint32_t b2, uint8_t* entry) {
  const double B = b0 * 0.00392156862745098, G = b1 * 0.00392156862745098,
               R = b2 * 0.00392156862745098;
  const auto f = [](double t) { return t > 0.008856 ? pow(t, 0.333333) : 7.787 * t + 0.1379; };
  const double x = f((0.412453 * R + 0.180423 * B + 0.35758 * G) * 1.0521265581994328);
  const double y = f(0.212671 * R + 0.71516 * G + 0.072169 * B);
  const double z = f((0.019334 * R + 0.119193 * G + 0.950227 * B) * 0.9182247410147117);
  const double values[] = {y * 295.8 - 40.8, (x - y) * 691.37 + 119.16633,
                           (y - z) * 252.054 + 135.93486};
  for (int k = 0; k < 3; ++k) {
    const double v = values[k] > 255.0 ? 255.0 : values[k] < 0.0 ? 0.0 : values[k];
    entry[k] = static_cast<uint8_t>(static_cast<int>(v + 0.5));
  }
}

}  // namespace quillon::test::reference
