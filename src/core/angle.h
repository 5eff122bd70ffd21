// Angles in degrees: sine and cosine, and the steps of a search over them.
#pragma once

namespace quillon {

struct Direction {
  double cosine, sine;
};

// Of a finite angle, within two units in the last place; exact at multiples of 90 degrees. Computed
// here rather than by the system's library, whose last bits differ from one system and processor to
// the next, and images would differ with them.
Direction DirectionOf(double degrees);

// The turn, in degrees, that moves a point at `radius` from the centre by a pixel's diagonal: the
// matchers' step from one angle to the next.
double AngleStep(double radius);

}  // namespace quillon
