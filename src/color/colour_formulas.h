// The formulas behind the colour tables, in double, as hosts know them.
#pragma once

#include <cstdint>

namespace quillon {

struct ColourEntry {
  uint8_t channel[3];
};

// Hue, saturation and intensity of the colour with bytes b0, b1, b2 (blue, green, red).
ColourEntry HsiOf(int b0, int b1, int b2);

// L, a and b.
ColourEntry LabOf(int b0, int b1, int b2);

}  // namespace quillon
