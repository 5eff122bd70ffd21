// The formulas behind the colour tables, in double, as hosts know them.
#pragma once

#include <cstdint>

namespace quillon {

struct ColourEntry {
  uint8_t channel[3];
};

// Hue, saturation and intensity of the colour with bytes b0, b1, b2 (blue, green, red), before they
// become bytes.
struct Hsi {
  double cosine;  // of the hue's angle; for grey, 0 / 0
  double angle;   // in units of the hue, 0 ... 127.44; hues where green < red count from 255 down
  double saturation, intensity;
};

// A cosine beyond this, of either sign, gives the whole angle.
constexpr double kWholeCosine = 0.99999;

Hsi HsiValues(int b0, int b1, int b2);
ColourEntry HsiOf(int b0, int b1, int b2);

// L, a and b.
ColourEntry LabOf(int b0, int b1, int b2);

}  // namespace quillon
