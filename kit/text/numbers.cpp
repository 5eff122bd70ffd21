#include "kit/text/numbers.h"

#include <charconv>

#ifndef __cpp_lib_to_chars
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#endif

#include "kit/errors.h"

namespace quillon::kit {
namespace {

#ifdef __cpp_lib_to_chars

template <class Number>
std::string Shortest(Number value) {
  char digits[64];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  return {digits, end};
}

#else  // the standard library of WebAssembly knows whole numbers only

bool ReadsBack(const char* text, float value) { return std::strtof(text, nullptr) == value; }
bool ReadsBack(const char* text, double value) { return std::strtod(text, nullptr) == value; }

// The decimal number d.ddde+xx that is greater by one in its last digit; 0.000e+xx after 9.999e+xx.
void CountUp(char* text) {
  char* digit = std::strchr(text, 'e');
  do {
    if (*--digit == '.') --digit;
    *digit = *digit == '9' ? '0' : static_cast<char>(*digit + 1);
  } while (*digit == '0' && digit > text);
}

template <class Number>
std::string Shortest(Number value) {
  if (std::signbit(value)) return "-" + Shortest(-value);
  if (!std::isfinite(value)) return std::isnan(value) ? "nan" : "inf";
  char text[512];
  for (int decimals = 0;; ++decimals) {
    std::snprintf(text, sizeof text, "%.*e", decimals, static_cast<double>(value));
    if (ReadsBack(text, value)) break;
    // Below a power of two the next number is nearer than above it: the nearest decimal number may
    // lie too far below, where the one above it would do.
    CountUp(text);
    if (ReadsBack(text, value)) break;
  }
  const std::string scientific = text;
  const size_t end = scientific.find('e');
  const int exponent = std::atoi(text + end + 1);
  std::string fixed = scientific.substr(0, 1);
  if (end > 1) fixed += scientific.substr(2, end - 2);
  const int count = static_cast<int>(fixed.size());
  if (exponent < 0) {
    fixed = "0." + std::string(static_cast<size_t>(-exponent - 1), '0') + fixed;
  } else if (exponent + 1 < count) {
    fixed.insert(static_cast<size_t>(exponent + 1), ".");
  } else {
    std::snprintf(text, sizeof text, "%.0f", static_cast<double>(value));
    fixed = text;
  }
  return fixed.size() <= scientific.size() ? fixed : scientific;
}

#endif

}  // namespace

std::string ShortestDigits(float value) try {
  return Shortest(value);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a number as text");
}
std::string ShortestDigits(double value) try {
  return Shortest(value);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a number as text");
}

const char* ReadNumber(const char* text, const char* end, double& value) {
#ifdef __cpp_lib_to_chars
  const auto result = std::from_chars(text, end, value);
  return result.ec == std::errc{} ? result.ptr : nullptr;
#else
  // Neither blanks, a plus sign in front, nor hexadecimal digits, which strtod would read.
  if (text == end || *text == '+') return nullptr;
  const size_t length =
      std::string_view(text, static_cast<size_t>(end - text)).find_first_not_of("+-.0123456789eE");
  const std::string digits = std::string(text, end).substr(0, length);
  char* stop = nullptr;
  const double number = std::strtod(digits.c_str(), &stop);
  const bool isTiny =
      number == 0 &&
      digits.substr(0, digits.find_first_of("eE")).find_first_of("123456789") != digits.npos;
  if (stop == digits.c_str() || std::isinf(number) || isTiny) return nullptr;
  value = number;
  return text + (stop - digits.c_str());
#endif
}

}  // namespace quillon::kit
