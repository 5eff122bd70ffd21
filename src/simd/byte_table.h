// A table of 256 bytes in registers.
#pragma once

#include "simd/vec.h"

#if QUILLON_BYTE_TABLES

namespace quillon::QUILLON_LEVEL {

// In parts of 64 bytes, for bytes as wide as a register.
struct ByteTable {
  using Bytes = U8<kVectorBytes>;

  QUILLON_INLINE explicit ByteTable(const uint8_t* table) {
    for (int i = 0; i < 4; ++i) quarter[i] = native::LoadQuarterTable(table + 64 * i);
  }
  QUILLON_INLINE Bytes At(Bytes places) const { return native::LookUp(quarter, places); }

  native::QuarterTable quarter[4];
};

}  // namespace quillon::QUILLON_LEVEL

#endif
