// Tables of bytes in registers.
#pragma once

#include "simd/vec.h"

#if QUILLON_BYTE_TABLES

namespace quillon::QUILLON_LEVEL {

// In parts of 64 bytes, for bytes as wide as a register.
template <int kParts>
struct ByteTableOf {
  using Bytes = U8<kVectorBytes>;

  QUILLON_INLINE explicit ByteTableOf(const uint8_t* table) {
    for (int i = 0; i < kParts; ++i) parts[i] = native::LoadTablePart(table + 64 * i);
  }
  QUILLON_INLINE Bytes At(Bytes places) const { return native::LookUp(parts, places); }

  native::TablePart parts[kParts];
};

using ByteTable = ByteTableOf<4>;

}  // namespace quillon::QUILLON_LEVEL

#endif
