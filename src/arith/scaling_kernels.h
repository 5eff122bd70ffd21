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

// The same of many pixels, for rows no shorter than the window that all groups of a row have.
constexpr int kWideGroup = 64;
constexpr int kWideWindows[] = {64, 128, 256};
struct WideColumnGroup {
  alignas(kWideGroup) uint8_t places[kWideGroup];  // in the window from `start` on
  int32_t start;
};

struct ScalingKernels {
  // to[x] = from[columns[x]] for `count` columns, and the same as groups: group g serves the
  // columns from 16 g on, the last one the last 16. Fewer than 16 columns have no groups.
  void (*PickRow)(const uint8_t* from, uint8_t* to, int count, const int32_t* columns,
                  const ColumnGroup* groups);
  // The same from wide groups, for 64 columns and more; null where that is no faster.
  void (*PickWideRow)(const uint8_t* from, uint8_t* to, int count, const WideColumnGroup* groups,
                      int window);
  // to[x] = from[2 x + 1]
  void (*PickOddRow)(const uint8_t* from, uint8_t* to, int count);
};

}  // namespace quillon
