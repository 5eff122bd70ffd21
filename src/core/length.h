// The length of a vector.
#pragma once

#include <cmath>

namespace quillon {

// In place of std::hypot, whose last bits are the platform's, and which asks for a C library of
// 2022. Squares of places and steps in pictures neither overflow nor vanish.
inline double Length(double x, double y) { return std::sqrt(x * x + y * y); }

}  // namespace quillon
