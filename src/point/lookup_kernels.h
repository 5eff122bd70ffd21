// Row kernel of byte tables.
#pragma once

#include <stdint.h>

#include "simd/families.h"

namespace quillon {

struct LookupKernels {
  // to[x] = table[from[x]], of 256 entries; `to` may be `from`.
  void (*LookupRow)(const uint8_t* from, uint8_t* to, int count, const uint8_t* table);
};

}  // namespace quillon
