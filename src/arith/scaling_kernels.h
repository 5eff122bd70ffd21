// Row kernel of nearest-neighbour scaling: picking pixels of a row by a list of columns.
#pragma once

#include <stdint.h>

#include "simd/families.h"

namespace quillon {

constexpr int kGroup = 16;  // pixels of the result that are shuffled together

// Where the pixels of one group are: in the `windows` times 16 bytes from column `start` on, at
// `places`. No windows where they lie too far apart, or the row is too short for them.
struct ColumnGroup {
  int32_t start;
  int32_t windows;
  uint8_t places[kGroup];
};
constexpr int kMaxWindows = 4;  // beyond, single loads are as fast

struct ScalingKernels {
  // to[x] = from[columns[x]] for `count` columns, and the same as groups: group g serves the
  // columns from 16 g on, the last one the last 16. Fewer than 16 columns have no groups.
  void (*PickRow)(const uint8_t* from, uint8_t* to, int count, const int32_t* columns,
                  const ColumnGroup* groups);
  // to[x] = from[2 x + 1]
  void (*PickOddRow)(const uint8_t* from, uint8_t* to, int count);
};

}  // namespace quillon
