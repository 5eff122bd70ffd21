// Row kernels that look pixels up: in byte tables, and in an image by a map of places.
#pragma once

#include <stdint.h>

#include "simd/families.h"

namespace quillon {

struct LookupKernels {
  // to[x] = table[from[x]], of 256 entries; `to` may be `from`.
  void (*LookupRow)(const uint8_t* from, uint8_t* to, int count, const uint8_t* table);
  // to[x] = the pixel at column map[2 x] of row map[2 x + 1] of an image of `width` x `height`
  // pixels, where that is inside; other pixels of `to` stay.
  void (*MappedRow)(const int32_t* map, uint8_t* to, int count, uint8_t* const* rows, int width,
                    int height);
};

}  // namespace quillon
