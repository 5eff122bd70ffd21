// Row kernel of byte tables. Compiled once per level.
#include "point/lookup_kernels.h"

#include "simd/blocks.h"
#include "simd/byte_table.h"

namespace quillon::QUILLON_LEVEL {
namespace {

#if QUILLON_BYTE_TABLES

struct Table : ByteTable {
  using ByteTable::ByteTable;
  static constexpr int kBlock = kVectorBytes;
  QUILLON_INLINE void Find(const uint8_t* from, uint8_t* to) const {
    Store(to, At(Load<uint8_t, kBlock>(from)));
  }
};

#elif QUILLON_BYTE_SHUFFLES

// Sixteen shuffles of 16 entries each: the low four bits of a place are its entry within a row of
// the table, the high four bits the row. A shuffle gives 0 where bit 7 of the place is set, so rows
// 8 apart are told by an OR of two shuffles, the second with that bit flipped; a tree of blends,
// which go by the top bit of a byte, tells rows by their other three bits.
struct Table {
  static constexpr int kBlock = kVectorBytes;
  using Bytes = U8<kBlock>;
  using Lanes = U16<kBlock / 2>;

  QUILLON_INLINE explicit Table(const uint8_t* table) {
    for (int i = 0; i < 16; ++i) {
      row[i] = Repeat16<kBlock>(table + 16 * i);
    }
  }
  QUILLON_INLINE void Find(const uint8_t* from, uint8_t* to) const {
    Store(to, EntryOfRows<0, 8>(Load<uint8_t, kBlock>(from)));
  }
  // For places in rows kRow, kRow + 1, ... kRow + kRows - 1, or 8 further on.
  template <int kRow, int kRows>
  QUILLON_INLINE Bytes EntryOfRows(Bytes places) const {
    if constexpr (kRows == 1) {
      return ShuffleBytes(row[kRow], places) | ShuffleBytes(row[kRow + 8], places ^ 128);
    } else {
      // Their bit moves up to the top; what crosses from byte to byte stays below it.
      constexpr uint16_t kToTop = 16 / kRows;
      return BlendByTopBit(EntryOfRows<kRow, kRows / 2>(places),
                           EntryOfRows<kRow + kRows / 2, kRows / 2>(places),
                           BitCast<Bytes>(BitCast<Lanes>(places) * kToTop));
    }
  }

  Bytes row[16];
};

#endif

void LookupRow(const uint8_t* from, uint8_t* to, int count, const uint8_t* table) {
  int x = 0;
#if QUILLON_BYTE_SHUFFLES
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
