// Row kernel of byte tables. Compiled once per level.
#include "point/lookup_kernels.h"

#include "point/byte_table.h"
#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

#if QUILLON_AVX2
constexpr int kBlock = 64;
#endif

#if QUILLON_AVX512

struct Table : ByteTable {
  using ByteTable::ByteTable;
  QUILLON_INLINE void Find(const uint8_t* from, uint8_t* to) const {
    Store(to, At(BitCast<__m512i>(Load<uint8_t, 64>(from))));
  }
};

#elif QUILLON_AVX2

// Sixteen shuffles of 16 entries each. A shuffle gives 0 where the place is negative. Places run
// down by 16 from step to step and stop at the least number, so at step i all places of at least
// 16 i still answer; each table holds the difference to the one before, and the differences of the
// answering steps add up to the wanted entry. Places above 127 take part in the second half.
struct Table {
  QUILLON_INLINE explicit Table(const uint8_t* table) {
    for (int i = 0; i < 16; ++i) {
      auto entries = Load<uint8_t, 16>(table + 16 * i);
      if (i % 8 > 0) entries ^= Load<uint8_t, 16>(table + 16 * (i - 1));
      step[i] = BitCast<__m256i>(Join(entries, entries));
    }
  }
  // Two vectors at a time share the loads of the steps.
  QUILLON_INLINE void Find(const uint8_t* from, uint8_t* to) const {
    const __m256i sixteen = _mm256_set1_epi8(16);
    __m256i found[2] = {}, places[2];
    for (int v = 0; v < 2; ++v) places[v] = BitCast<__m256i>(Load<uint8_t, 32>(from + 32 * v));
    for (int half = 0; half < 2; ++half) {
      __m256i at[2] = {places[0], places[1]};
      if (half == 1) {
        for (__m256i& place : at) place = _mm256_xor_si256(place, _mm256_set1_epi8(-128));
      }
      for (int i = 8 * half; i < 8 * half + 8; ++i) {
        for (int v = 0; v < 2; ++v) {
          found[v] = _mm256_xor_si256(found[v], _mm256_shuffle_epi8(step[i], at[v]));
          at[v] = _mm256_subs_epi8(at[v], sixteen);
        }
      }
    }
    for (int v = 0; v < 2; ++v) Store(to + 32 * v, found[v]);
  }

  __m256i step[16];
};

#endif

void LookupRow(const uint8_t* from, uint8_t* to, int count, const uint8_t* table) {
  int x = 0;
#if QUILLON_AVX2
  if (count >= kBlock) {
    const Table entries(table);
    for (; x <= count - kBlock; x += kBlock) entries.Find(from + x, to + x);
  }
#endif
  // Four places a load: a byte at a time, loading them costs as much as looking them up.
  for (; x <= count - 4; x += 4) {
    uint32_t places;
    __builtin_memcpy(&places, from + x, sizeof places);
    const uint8_t a = table[places & 255], b = table[places >> 8 & 255];
    const uint8_t c = table[places >> 16 & 255], d = table[places >> 24];
    to[x] = a, to[x + 1] = b, to[x + 2] = c, to[x + 3] = d;
  }
  for (; x < count; ++x) to[x] = table[from[x]];
}

}  // namespace

const LookupKernels lookup = {.LookupRow = LookupRow};

}  // namespace quillon::QUILLON_LEVEL
