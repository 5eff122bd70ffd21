// A few rows that 3 x 3 kernels compute at once: what a source row contributes is computed once for
// the three rows above, at and below it.
#pragma once

#include <stdint.h>

namespace quillon {

constexpr int kStripRows = 4;

struct Strip {
  int rows;                           // 1 ... kStripRows
  const uint8_t* in[kStripRows + 2];  // in[i], in[i + 1], in[i + 2] are the window rows of out[i]
  uint8_t* out[kStripRows];
};

// Computes the columns of [from, to) from columns from - 1 ... to. The results lie apart from the
// rows.
using StripKernel = void(const Strip& strip, int from, int to);

}  // namespace quillon
