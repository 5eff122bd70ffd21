#include "core/angle.h"

#include <cmath>
#include <iterator>

namespace quillon {
namespace {

// Taylor series: up to pi / 4 the terms left out are below 2^-58.
constexpr double kSine[] = {
    -1.0 / 6,        1.0 / 120,        -1.0 / 5040,          1.0 / 362880,
    -1.0 / 39916800, 1.0 / 6227020800, -1.0 / 1307674368000, 1.0 / 355687428096000};
constexpr double kCosine[] = {
    -1.0 / 2,       1.0 / 24,        -1.0 / 720,         1.0 / 40320,
    -1.0 / 3628800, 1.0 / 479001600, -1.0 / 87178291200, 1.0 / 20922789888000};

// Not 180 / pi but 180 / 3.141592654: the steps of both matchers follow from it, so the exact
// quotient would change the last digits of the angles that hosts have on record.
constexpr double kDegreesPerRadian = 57.29577950560105;

// c[0] z + c[1] z^2 + ...
template <int N>
double Series(const double (&coefficients)[N], double z) {
  double sum = 0;
  for (int i = N - 1; i >= 0; --i) sum = (sum + coefficients[i]) * z;
  return sum;
}

}  // namespace

Direction DirectionOf(double degrees) {
  // Both remainders are exact, however large the angle.
  const double turn = std::remainder(degrees, 360.0);  // -180 ... 180
  const int quadrant = static_cast<int>(std::nearbyint(turn / 90));
  const double radians = (turn - 90.0 * quadrant) * (3.14159265358979323846 / 180);
  const double z = radians * radians;
  const double sine = radians + radians * Series(kSine, z);
  const double cosine = 1 + Series(kCosine, z);
  switch (quadrant & 3) {
    case 0:
      return {cosine, sine};
    case 1:
      return {-sine, cosine};
    case 2:
      return {-cosine, -sine};
    default:
      return {sine, -cosine};
  }
}

double AngleStep(double radius) {
  // The chord of this angle is sqrt(2): its cosine is 1 - chord^2 / (2 radius^2).
  return std::acos(1 - 1 / (radius * radius)) * kDegreesPerRadian;
}

}  // namespace quillon
