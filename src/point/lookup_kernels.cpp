// Row kernels that look pixels up. Compiled once per level.
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

// ---- by a map -----------------------------------------------------------------------------------

// The image that a map leads into.
struct Mapped {
  uint8_t* const* rows;
  uint32_t width, height;
};

QUILLON_INLINE void PickSingly(const Mapped& image, const int32_t* map, uint8_t* to, int count) {
  for (int x = 0; x < count; ++x) {
    const auto column = static_cast<uint32_t>(map[2 * x]),
               row = static_cast<uint32_t>(map[2 * x + 1]);
    if (column < image.width && row < image.height) to[x] = image.rows[row][column];
  }
}

#if QUILLON_BYTE_SHUFFLES

constexpr int kHalf = 8, kWindow = 16;
using Longs = U32<kHalf>;

// Eight neighbours whose pixels lie in the rows of the first and of the last of them, within
// `kWindow` columns from that of the first: so smooth maps mostly are. `places` are columns from
// there on, with bit 7 for the last one's row where that is another.
struct Eight {
  uint32_t column, first, last;  // of the windows
  bool inside;                   // the windows are
  Longs places;
  Longs astray;  // bits are set where a pixel lies otherwise
};

QUILLON_INLINE Eight Locate(const Mapped& image, const uint32_t* map) {
  const Longs low = Load<uint32_t, kHalf>(map), high = Load<uint32_t, kHalf>(map + kHalf);
  const Longs columns = __builtin_shufflevector(low, high, 0, 2, 4, 6, 8, 10, 12, 14);
  const Longs rows = __builtin_shufflevector(low, high, 1, 3, 5, 7, 9, 11, 13, 15);
  Eight eight;
  eight.column = map[0], eight.first = map[1], eight.last = map[2 * kHalf - 1];
  const auto inAnother = BitCast<Longs>(rows != eight.first);
  const Longs fromFirst = columns - eight.column;
  eight.inside = (image.width >= kWindow) & (eight.column <= image.width - kWindow) &
                 (eight.first < image.height) & (eight.last < image.height);
  eight.astray = (fromFirst & ~(kWindow - 1u)) | (inAnother & BitCast<Longs>(rows != eight.last));
  eight.places = fromFirst | (inAnother & 128);
  return eight;
}

// A shuffle gives 0 where bit 7 of a place is set.
QUILLON_INLINE U8<16> PickFromWindows(const Mapped& image, const Eight& eight, U8<16> places,
                                      U8<16> left) {
  const auto pick = [&](uint32_t row, U8<16> from) {
    return ShuffleBytes(Load<uint8_t, kWindow>(image.rows[row] + eight.column), from | left);
  };
  return pick(eight.first, places) | pick(eight.last, places ^ 128);
}

// Sixteen pixels; false where they lie otherwise.
QUILLON_INLINE bool PickSixteen(const Mapped& image, const int32_t* map, uint8_t* to) {
  const auto* pairs = reinterpret_cast<const uint32_t*>(map);
  const Eight a = Locate(image, pairs), b = Locate(image, pairs + 2 * kHalf);
  const auto astray = BitCast<U8<4 * kHalf>>((a.astray | b.astray) != 0);
  if (!a.inside || !b.inside || MoveMask(astray) != 0) return false;
  const auto words = PackLanes(a.places, b.places);
  const auto places = PackLanes(Low(words), High(words));
  constexpr U8<16> kUpper = {0, 0, 0, 0, 0, 0, 0, 0, 128, 128, 128, 128, 128, 128, 128, 128};
  Store(to, PickFromWindows(image, a, places, kUpper) |
                PickFromWindows(image, b, places, kUpper ^ 128));
  return true;
}

#endif

void MappedRow(const int32_t* map, uint8_t* to, int count, uint8_t* const* rows, int width,
               int height) {
  const Mapped image = {rows, static_cast<uint32_t>(width), static_cast<uint32_t>(height)};
  int x = 0;
#if QUILLON_BYTE_SHUFFLES
  constexpr int kGroup = 2 * kHalf;
  for (; x <= count - kGroup; x += kGroup) {
    if (!PickSixteen(image, map + 2 * x, to + x)) {
      PickSingly(image, map + 2 * x, to + x, kGroup);
    }
  }
#endif
  PickSingly(image, map + 2 * x, to + x, count - x);
}

}  // namespace

const LookupKernels lookup = {.LookupRow = LookupRow, .MappedRow = MappedRow};

}  // namespace quillon::QUILLON_LEVEL
