// Row kernel of byte tables. Compiled once per level.
#include "point/lookup_kernels.h"

#include "point/byte_table.h"
#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

#if QUILLON_AVX512

struct Table : ByteTable {
  using ByteTable::ByteTable;
  static constexpr int kBlock = 64;
  QUILLON_INLINE void Find(const uint8_t* from, uint8_t* to) const {
    Store(to, At(BitCast<__m512i>(Load<uint8_t, kBlock>(from))));
  }
};

#elif QUILLON_AVX2

// Sixteen shuffles of 16 entries each: the low four bits of a place are its entry within a row of
// the table, the high four bits the row. A shuffle gives 0 where bit 7 of the place is set, so rows
// 8 apart are told by an OR of two shuffles, the second with that bit flipped; a tree of blends,
// which go by the top bit of a byte, tells rows by their other three bits.
struct Table {
  static constexpr int kBlock = 32;
  using Bytes = U8<kBlock>;
  using Lanes = U16<kBlock / 2>;

  QUILLON_INLINE explicit Table(const uint8_t* table) {
    for (int i = 0; i < 16; ++i) {
      const auto entries = Load<uint8_t, 16>(table + 16 * i);
      row[i] = BitCast<__m256i>(Join(entries, entries));
    }
  }
  QUILLON_INLINE void Find(const uint8_t* from, uint8_t* to) const {
    Store(to, EntryOfRows<0, 8>(Load<uint8_t, kBlock>(from)));
  }
  // For places in rows kRow, kRow + 1, ... kRow + kRows - 1, or 8 further on.
  template <int kRow, int kRows>
  QUILLON_INLINE __m256i EntryOfRows(Bytes places) const {
    if constexpr (kRows == 1) {
      const auto flipped = BitCast<__m256i>(places ^ 128);
      return _mm256_or_si256(_mm256_shuffle_epi8(row[kRow], BitCast<__m256i>(places)),
                             _mm256_shuffle_epi8(row[kRow + 8], flipped));
    } else {
      // Their bit moves up to the top; what crosses from byte to byte stays below it.
      constexpr uint16_t kToTop = 16 / kRows;
      return _mm256_blendv_epi8(EntryOfRows<kRow, kRows / 2>(places),
                                EntryOfRows<kRow + kRows / 2, kRows / 2>(places),
                                BitCast<__m256i>(BitCast<Lanes>(places) * kToTop));
    }
  }

  __m256i row[16];
};

#endif

void LookupRow(const uint8_t* from, uint8_t* to, int count, const uint8_t* table) {
  int x = 0;
#if QUILLON_AVX2
  if (count >= Table::kBlock) {
    const Table entries(table);
    for (; x <= count - Table::kBlock; x += Table::kBlock) entries.Find(from + x, to + x);
  }
#endif
  // Two places a load: a byte at a time, loading them costs as much as looking them up. Volatile,
  // or the compiler puts four bytes together for one store, which costs more than the stores.
  volatile uint8_t* const bytes = to;
  for (; x <= count - 4; x += 4) {
    uint16_t places[2];
    __builtin_memcpy(places, from + x, sizeof places);
    const uint8_t a = table[places[0] & 255], b = table[places[0] >> 8];
    const uint8_t c = table[places[1] & 255], d = table[places[1] >> 8];
    bytes[x] = a;
    bytes[x + 1] = b;
    bytes[x + 2] = c;
    bytes[x + 3] = d;
  }
  for (; x < count; ++x) to[x] = table[from[x]];
}

}  // namespace

const LookupKernels lookup = {.LookupRow = LookupRow};

}  // namespace quillon::QUILLON_LEVEL
