// Row kernels of quarter turns.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "simd/families.h"

namespace quillon {

struct QuarterTurnKernels {
  // Column x of the `rows` rows of `to` = the `rows` first pixels of row x of `from`, for `columns`
  // columns. From row to row it is `pitch` bytes.
  void (*Transpose)(const uint8_t* from, ptrdiff_t fromPitch, int columns, uint8_t* to,
                    ptrdiff_t toPitch, int rows);
  // to[x] = from[count - 1 - x]; the rows lie apart.
  void (*ReverseRow)(const uint8_t* from, uint8_t* to, int count);
};

}  // namespace quillon
