// Pixel arithmetic as it is defined, pixel by pixel.
#pragma once

#include <algorithm>
#include <cmath>

#include "arith/arithmetic.h"

namespace quillon::test::reference {

inline int Pair(PairRule rule, int a, int b) {
  switch (rule) {
    case PairRule::kAdd:
      return std::min(a + b, 255);
    case PairRule::kSubtract:
      return std::max(a - b, 0);
    case PairRule::kMultiply:
      return std::min(a * b, 255);
    case PairRule::kDivide:
      return b > 0 ? a / b : a > 0 ? 255 : 0;
    case PairRule::kAnd:
      return a & b;
    case PairRule::kOr:
      return a | b;
    case PairRule::kXor:
      return a ^ b;
    case PairRule::kEqual:
      return a == b ? 255 : 0;
    case PairRule::kNotEqual:
      return a == b ? 0 : 255;
  }
  return -1;
}

inline void Combine(PairRule rule, const GreyImage& a, const GreyImage& b, GreyImage& result) {
  result.Create(a.width, a.height);
  for (int y = 0; y < a.height; ++y) {
    for (int x = 0; x < a.width; ++x) {
      result.rows[y][x] = static_cast<uint8_t>(Pair(rule, a.rows[y][x], b.rows[y][x]));
    }
  }
}

template <class Formula>
void Map(const GreyImage& source, GreyImage& result, const Formula& formula) {
  result.Create(source.width, source.height);
  for (int y = 0; y < source.height; ++y) {
    for (int x = 0; x < source.width; ++x) {
      result.rows[y][x] = static_cast<uint8_t>(formula(source.rows[y][x]));
    }
  }
}

inline int GainOffset(int p, double gain, double offset) {
  const double v = p * gain + offset;
  if (std::isnan(v) || v <= 0) return 0;
  return v >= 255 ? 255 : static_cast<int>(v);
}

}  // namespace quillon::test::reference
