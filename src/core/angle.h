// Sine and cosine of an angle in degrees.
#pragma once

namespace quillon {

struct Direction {
  double cosine, sine;
};

// Of a finite angle, within two units in the last place; exact at multiples of 90 degrees. Computed
// here rather than by the system's library, whose last bits differ from one system and processor to
// the next, and images would differ with them.
Direction DirectionOf(double degrees);

}  // namespace quillon
