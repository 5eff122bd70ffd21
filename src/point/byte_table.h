// A table of 256 bytes in registers.
#pragma once

#include "simd/vec.h"

#if QUILLON_AVX512

namespace quillon::QUILLON_LEVEL {

// In four registers: one byte permute reaches two of them.
struct ByteTable {
  QUILLON_INLINE explicit ByteTable(const uint8_t* table) {
    for (int i = 0; i < 4; ++i) quarter[i] = BitCast<__m512i>(Load<uint8_t, 64>(table + 64 * i));
  }
  QUILLON_INLINE __m512i At(__m512i places) const {
    const __m512i low = _mm512_permutex2var_epi8(quarter[0], places, quarter[1]);
    const __m512i high = _mm512_permutex2var_epi8(quarter[2], places, quarter[3]);
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(places), low, high);
  }

  __m512i quarter[4];
};

}  // namespace quillon::QUILLON_LEVEL

#endif
