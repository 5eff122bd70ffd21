// Row kernel of nearest-neighbour scaling. Compiled once per level.
#include "arith/scaling_kernels.h"

#include "simd/blocks.h"
#include "simd/byte_table.h"

namespace quillon::QUILLON_LEVEL {
namespace {

#if QUILLON_BYTE_SHUFFLES
QUILLON_INLINE void PickSingly(const uint8_t* from, uint8_t* to, int count,
                               const int32_t* columns) {
  for (int x = 0; x < count; ++x) to[x] = from[columns[x]];
}

QUILLON_INLINE U8<16> LoadWindow(const uint8_t* from) { return Load<uint8_t, 16>(from); }

// A shuffle gives 0 where the top bit of a place is set, as it is for places outside the window.
QUILLON_INLINE U8<16> PickFromWindow(const uint8_t* from, U8<16> places, int window) {
  const auto inside = places - static_cast<uint8_t>(16 * window);
  return ShuffleBytes(LoadWindow(from + 16 * window),
                      AddSaturate(inside, Splat<uint8_t, 16>(0x70)));
}

QUILLON_INLINE void PickGroup(const uint8_t* row, uint8_t* to, const int32_t* columns,
                              const ColumnGroup& group) {
  const uint8_t* from = row + group.start;
  const auto places = LoadWindow(group.places);
  if (group.windows == 1) return Store(to, ShuffleBytes(LoadWindow(from), places));
  if (group.windows == 0) return PickSingly(row, to, kGroup, columns);
#if QUILLON_PAIR_SHUFFLES
  if (group.windows == 2) {
    return Store(to, ShuffleBytePairs(LoadWindow(from), LoadWindow(from + 16), places));
  }
#endif
  auto picked = PickFromWindow(from, places, 0) | PickFromWindow(from, places, 1);
  for (int window = 2; window < group.windows; ++window) {
    picked |= PickFromWindow(from, places, window);
  }
  Store(to, picked);
}

// Two groups of as many windows, one or two, in the halves of a vector.
template <int kWindows>
QUILLON_INLINE U8<2 * kGroup> PickTwoGroups(const uint8_t* row, const ColumnGroup* groups) {
  const auto window = [&](int i) {
    return Join(LoadWindow(row + groups[0].start + 16 * i),
                LoadWindow(row + groups[1].start + 16 * i));
  };
  const auto places = Join(LoadWindow(groups[0].places), LoadWindow(groups[1].places));
  if constexpr (kWindows == 1) return ShuffleBytes(window(0), places);
  const auto pick = [&](int i) {
    const auto inside = places - static_cast<uint8_t>(16 * i);
    return ShuffleBytes(window(i), AddSaturate(inside, Splat<uint8_t, 2 * kGroup>(0x70)));
  };
  return pick(0) | pick(1);
}

// Picks pixels two groups at a time as long as all have kWindows windows.
template <int kWindows>
QUILLON_INLINE void PickByTwos(const uint8_t* from, uint8_t* to, int count,
                               const ColumnGroup*& groups, int& x) {
  while (x <= count - 2 * kGroup && groups[0].windows == kWindows &&
         groups[1].windows == kWindows) {
    Store(to + x, PickTwoGroups<kWindows>(from, groups));
    x += 2 * kGroup;
    groups += 2;
  }
}

void PickRow(const uint8_t* from, uint8_t* to, int count, const int32_t* columns,
             const ColumnGroup* groups) {
  if (count < kGroup) return PickSingly(from, to, count, columns);
  int x = 0;
  for (; x <= count - kGroup; x += kGroup) {
    if constexpr (kVectorBytes == 2 * kGroup) {
      PickByTwos<1>(from, to, count, groups, x);
      PickByTwos<2>(from, to, count, groups, x);
      if (x > count - kGroup) break;
    }
    PickGroup(from, to + x, columns + x, *groups++);
  }
  const int last = count - kGroup;
  if (x < count) PickGroup(from, to + last, columns + last, *groups);
}

#else

void PickRow(const uint8_t* from, uint8_t* to, int count, const int32_t* columns,
             const ColumnGroup*) {
  // A turn of the loop takes a cycle, and so does a store.
#pragma GCC unroll 8
  for (int x = 0; x < count; ++x) to[x] = from[columns[x]];
}

#endif

#if QUILLON_BYTE_WINDOWS
template <int kParts>
void PickFromTables(const uint8_t* from, uint8_t* to, int count, const WideColumnGroup* groups) {
  const auto pick = [&](int x, const WideColumnGroup& group) {
    const auto places = Load<uint8_t, kWideGroup>(group.places);
    Store(to + x, ByteTableOf<kParts>(from + group.start).At(places));
  };
  int x = 0;
  for (; x <= count - kWideGroup; x += kWideGroup) pick(x, *groups++);
  if (x < count) pick(count - kWideGroup, *groups);
}

void PickWideRow(const uint8_t* from, uint8_t* to, int count, const WideColumnGroup* groups,
                 int window) {
  if (window == 64) return PickFromTables<1>(from, to, count, groups);
  if (window == 128) return PickFromTables<2>(from, to, count, groups);
  PickFromTables<4>(from, to, count, groups);
}
#else
// Filling the registers of a table takes longer than picking 16 pixels.
constexpr decltype(ScalingKernels::PickWideRow) PickWideRow = nullptr;
#endif

void PickOddRow(const uint8_t* from, uint8_t* to, int count) {
  int x = ForEachBlock(count, [&](auto width, int first) {
    const auto oddOf = [&](const uint8_t* pixels) {
      return BitCast<I16<width / 2>>(OddBytes(Load<uint8_t, width>(pixels)));
    };
    Store(to + first, PackLanes(oddOf(from + 2 * first), oddOf(from + 2 * first + width)));
  });
  for (; x < count; ++x) to[x] = from[2 * x + 1];
}

}  // namespace

const ScalingKernels scaling = {
    .PickRow = PickRow, .PickWideRow = PickWideRow, .PickOddRow = PickOddRow};

}  // namespace quillon::QUILLON_LEVEL
