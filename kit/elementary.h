// Elementary functions, in the same digits on every system. Those of the C library differ in their
// last bits from one system and processor to the next, and a fit that goes on until it has settled
// makes more of that: what the command line measures, Python and the workbench must measure too.
// These are sums, products, quotients and roots in a fixed order, right to some units in the last
// place.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numbers>

namespace quillon::kit {

// c[0] + c[1] x + c[2] x^2 + ...: of even and of odd powers, which do not wait for each other.
template <std::size_t N>
double Polynomial(const std::array<double, N>& c, double x) {
  const double z = x * x;
  size_t i = N - N % 2;
  double even = N % 2 ? c[i] : 0, odd = 0;
  for (; i > 0; i -= 2) {
    even = even * z + c[i - 2];
    odd = odd * z + c[i - 1];
  }
  return even + odd * x;
}

// 1 / n! for n = first, first + every, ...; where every other is left out, signs take turns.
template <std::size_t N>
constexpr std::array<double, N> OverFactorials(int first, int every) {
  std::array<double, N> c = {};
  double factorial = 1;
  for (int n = 1, last = first + every * static_cast<int>(N); n < last; ++n) {
    factorial *= n;
    const int place = n - first;
    if (place < 0 || place % every != 0) continue;
    c[place / every] = (every == 2 && place / every % 2 ? -1 : 1) / factorial;
  }
  if (first == 0) c[0] = 1;
  return c;
}

// 1 / n for n = 1, 3, 5, ...; with `turns`, signs take turns.
template <std::size_t N>
constexpr std::array<double, N> OverOdd(bool turns) {
  std::array<double, N> c = {};
  for (size_t i = 0; i < N; ++i) c[i] = (turns && i % 2 ? -1.0 : 1.0) / (2.0 * double(i) + 1);
  return c;
}

// The nearest whole number to one that is not large.
inline int Nearest(double x) { return static_cast<int>(x < 0 ? x - 0.5 : x + 0.5); }

// e to the power of x: 2^(k / 32) e^r, where r is at most a 64th of ln 2.
inline double Exp(double x) {
  if (!(x < 710)) return x >= 710 ? std::numeric_limits<double>::infinity() : x;
  if (x < -746) return 0;
  constexpr int kParts = 32;
  static const auto kRoots = [] {  // 2^(i / 32)
    std::array<double, kParts> roots;
    for (int i = 0; i < kParts; ++i) {
      static constexpr auto kSeries = OverFactorials<20>(0, 1);
      roots[std::size_t(i)] = Polynomial(kSeries, i * (std::numbers::ln2 / kParts));
    }
    return roots;
  }();
  // ln 2 in two parts, of which the first times k is exact.
  constexpr double kUpper = 0.6931471804855391 / kParts, kLower = 7.440617110012397e-11 / kParts;
  const int k = Nearest(x / (std::numbers::ln2 / kParts));
  const double r = (x - k * kUpper) - k * kLower;
  static constexpr auto kSeries = OverFactorials<8>(0, 1);
  const double value = kRoots[std::size_t(k & (kParts - 1))] * Polynomial(kSeries, r);
  return std::ldexp(value, k >> 5);
}

// The natural logarithm of x > 0: of x = 2^k m, by the series of 2 artanh((m - 1) / (m + 1)).
inline double Log(double x) {
  if (!(x > 0) || std::isinf(x)) return std::log(x);  // these have no digits
  int k = 0;
  double m = std::frexp(x, &k);
  if (m < std::numbers::sqrt2 / 2) m *= 2, --k;
  const double s = (m - 1) / (m + 1);
  static constexpr auto kSeries = OverOdd<12>(false);
  return k * std::numbers::ln2 + 2 * s * Polynomial(kSeries, s * s);
}

struct SineCosine {
  double sine, cosine;
};

// Of an angle in radians.
inline SineCosine SineCosineOf(double radians) {
  constexpr double kQuarter = std::numbers::pi / 2, kFar = 1e6;
  if (!std::isfinite(radians)) return {radians - radians, radians - radians};
  if (std::abs(radians) > kFar) radians = std::remainder(radians, 4 * kQuarter);
  // A quarter turn in three parts, of which the first two times the number of quarters are exact.
  constexpr double kParts[] = {1.5707963267341256, 6.077100506303966e-11, 2.0222662487959506e-21};
  const int quarters = Nearest(radians / kQuarter);
  double r = radians;
  for (double part : kParts) r -= quarters * part;
  // Their series, up to an eighth of a turn.
  static constexpr auto kSine = OverFactorials<9>(1, 2), kCosine = OverFactorials<9>(0, 2);
  const double sine = r * Polynomial(kSine, r * r), cosine = Polynomial(kCosine, r * r);
  switch (quarters & 3) {
    case 0:
      return {sine, cosine};
    case 1:
      return {cosine, -sine};
    case 2:
      return {-sine, -cosine};
    default:
      return {-cosine, sine};
  }
}
inline double Sine(double radians) { return SineCosineOf(radians).sine; }
inline double Cosine(double radians) { return SineCosineOf(radians).cosine; }

// The angle of (x, y) from the x axis in radians, -pi to pi.
inline double ArcTangent(double y, double x) {
  const double a = std::abs(y), b = std::abs(x);
  const double greater = a > b ? a : b, lesser = a > b ? b : a;
  if (std::isnan(x) || std::isnan(y) || std::isinf(greater)) return std::atan2(y, x);
  double t = greater > 0 ? lesser / greater : 0;
  // Beyond half of it, counted from the eighth of a turn, where it is exact.
  constexpr double kHalf = 0.4142135623730951;
  const bool isBeyond = t > kHalf;
  if (isBeyond) t = (t - 1) / (t + 1);
  static constexpr auto kSeries = OverOdd<22>(true);
  double angle = t * Polynomial(kSeries, t * t);
  if (isBeyond) angle += std::numbers::pi / 4;
  if (a > b) angle = std::numbers::pi / 2 - angle;
  if (std::signbit(x)) angle = std::numbers::pi - angle;
  return std::copysign(angle, y);
}

// The error function. By a polynomial in x^2 up to 1; beyond, 1 - e^(-x^2) f / (1 + 2 x), where f
// is a polynomial in (x - 2) / (x + 2). Both were fitted at Chebyshev's points to 1e-16.
inline double SlowErrorFunction(double x) {
  static constexpr std::array kNear = {
      1.1283791670955126,      -0.3761263890318375,     0.11283791670954879,
      -0.026866170645076792,   0.0052239776248180145,   -0.000854832698083379,
      0.0001205533111164271,   -1.4925595266831182e-05, 1.6461000484121368e-06,
      -1.6350312701054695e-07, 1.4659775274047436e-08,  -1.1372848856791674e-09,
      5.957176147748911e-11};
  static constexpr std::array kBeyond = {
      1.2769783815525286,      -0.09276382658574624,    -0.16603039761529106,
      0.16405128003350503,     -0.05422000099178036,    -0.008034015087659687,
      0.008722653862273692,    0.001271339165754213,    -0.0014568136425517457,
      -0.00045434493868878526, 0.00020636426368347952,  0.0001510872612051129,
      -1.5054457438053162e-06, -3.6739685589621616e-05, -1.3377843610301066e-05,
      4.780167970665935e-06,   4.567818384699565e-06};
  if (x < 1) return x * Polynomial(kNear, x * x);
  return 1 - Exp(-x * x) * Polynomial(kBeyond, (x - 2) / (x + 2)) / (1 + 2 * x);
}

// The error function, as fits to edges ask for it at every sample: by its Taylor series about the
// nearest of places a 32nd apart. Its derivatives are those of 2 / sqrt(pi) e^(-x^2): that, times
// Hermite's polynomials.
inline double ErrorFunction(double x) {
  constexpr int kPlaces = 32, kOne = 6;  // from here on it is 1 to the last digit
  constexpr std::size_t kTerms = 9;
  static const auto kSeries = [] {
    std::array<std::array<double, kTerms>, kOne * kPlaces + 1> series;
    for (std::size_t i = 0; i < series.size(); ++i) {
      const double at = double(i) / kPlaces;
      series[i][0] = SlowErrorFunction(at);
      double last = 0, hermite = 2 * std::numbers::inv_sqrtpi * Exp(-at * at), factorial = 1;
      for (std::size_t n = 1; n < kTerms; ++n) {
        factorial *= double(n);
        series[i][n] = hermite / factorial;
        const double next = -2 * at * hermite - 2 * (double(n) - 1) * last;
        last = hermite;
        hermite = next;
      }
    }
    return series;
  }();
  const double a = std::abs(x);
  if (!(a < kOne)) return std::isnan(x) ? x : std::copysign(1, x);
  const int place = Nearest(a * kPlaces);
  const double value = Polynomial(kSeries[std::size_t(place)], a - double(place) / kPlaces);
  return std::copysign(value, x);
}

}  // namespace quillon::kit
