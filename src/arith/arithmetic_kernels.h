// Row kernels of pixel arithmetic.
#pragma once

#include <stdint.h>

#include "simd/families.h"

namespace quillon {

// What becomes of a pixel of a and a pixel of b.
enum class PairRule {
  kAdd,       // min(a + b, 255)
  kSubtract,  // max(a - b, 0)
  kMultiply,  // min(a * b, 255)
  kDivide,    // a / b truncated; by 0: 255, and 0 for 0 / 0
  kAnd,
  kOr,
  kXor,
  kEqual,     // a == b ? 255 : 0
  kNotEqual,  // a == b ? 0 : 255
};
constexpr int kPairRules = 9;

// A straight line in whole numbers: a pixel p becomes
//   ((p * step + start) * gain >> 16) - base, clamped to 0 ... 255
// where p * step + start and the result before clamping lie within 16 signed bits; the base counts
// modulo 65536.
struct IntegerLine {
  int16_t step, start, gain;
  uint16_t base;
};

struct ArithmeticKernels {
  // By PairRule. `out` may be a or b or both.
  void (*PairRow[kPairRules])(const uint8_t* a, const uint8_t* b, uint8_t* out, int count);
  // Bits of 0 ... 8 shifted within each byte; `out` may be `from`.
  void (*ShiftLeftRow)(const uint8_t* from, uint8_t* out, int count, int bits);
  void (*ShiftRightRow)(const uint8_t* from, uint8_t* out, int count, int bits);
  // 255 - pixel; `out` may be `from`.
  void (*InvertRow)(const uint8_t* from, uint8_t* out, int count);
  // Each pixel's place on the line; `out` may be `from`. Null where a table is faster.
  void (*LineRow)(const uint8_t* from, uint8_t* out, int count, const IntegerLine& line);
};

}  // namespace quillon
