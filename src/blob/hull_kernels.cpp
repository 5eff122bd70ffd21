// Hulls of blobs and the rectangles around them, without branches that go by a blob's shape: no
// processor foresees them, and in a small blob they cost more than all else. Compiled once per
// level.
#include "blob/hull_kernels.h"

#include "simd/vec.h"

namespace quillon::QUILLON_LEVEL {
namespace {

// Blobs of a dozen rows and sides would leave wider vectors half empty.
constexpr int kUsefulBytes = kVectorBytes < 32 ? kVectorBytes : 32;

// ---- rows that may be vertices ------------------------------------------------------------------
//
// A row is no vertex where it lies on the line between two other rows or inwards of it: where the
// side is no steeper to one row below than from one row above. The four nearest rows in each
// direction are tried, which leaves few that are none. Slopes are whole as twelfths of a column.

constexpr int kBlock = kUsefulBytes / 2;
using Ends = U16<kBlock>;

constexpr int kRowsTried = 4;
constexpr uint16_t kTwelfths[kRowsTried + 1] = {0, 12, 6, 4, 3};

// Where there is no row, one so far inwards that it rules nothing out: even four rows away the side
// is steeper to it than between any two rows. Twelfths of its slope still fit 16 bits from two rows
// on; rows with none beside them need no test.
constexpr int16_t kInwards = 4 * (2 * kMostColumns) + kMostColumns;
static_assert(6 * (kInwards + kMostColumns) <= INT16_MAX);

QUILLON_INLINE I16<kBlock> SlopeAbove(const int16_t* side, Ends here, int rows) {
  const auto above = BitCast<Ends>(Load<int16_t, kBlock>(side - rows));
  return BitCast<I16<kBlock>>((here - above) * kTwelfths[rows]);
}

QUILLON_INLINE I16<kBlock> SlopeBelow(const int16_t* side, Ends here, int rows) {
  const auto below = BitCast<Ends>(Load<int16_t, kBlock>(side + rows));
  return BitCast<I16<kBlock>>((below - here) * kTwelfths[rows]);
}

void FindBends(int16_t* side, int rows, uint64_t* words) {
  static_assert(kSideMargin == 8 && kRowsTried <= kSideMargin);
  Store(side - kSideMargin, Splat<int16_t, kSideMargin>(kInwards));
  Store(side + rows, Splat<int16_t, kSideMargin>(kInwards));
  for (int r = 0; r < rows; r += kBlock) {
    const auto here = BitCast<Ends>(Load<int16_t, kBlock>(side + r));
    auto above = SlopeAbove(side + r, here, 1), below = SlopeBelow(side + r, here, 1);
    for (int k = 2; k <= kRowsTried; ++k) {
      above = Max(above, SlopeAbove(side + r, here, k));
      below = Min(below, SlopeBelow(side + r, here, k));
    }
    const uint64_t bends = MoveMask(BitCast<U8<2 * kBlock>>(above < below)) & 0x5555555555555555;
    uint64_t& word = words[r / kRowsToWord];
    const int place = r % kRowsToWord;
    word = (place == 0 ? 0 : word) | bends << (2 * place);
  }
  // The last row is a vertex, and what lies behind it is none.
  uint64_t& last = words[(rows - 1) / kRowsToWord];
  const uint64_t bit = uint64_t{1} << (2 * ((rows - 1) % kRowsToWord));
  last = (last & (bit - 1)) | bit;
  words[0] &= ~uint64_t{1};
}

// ---- the least rectangle ------------------------------------------------------------------------
//
// Rotating calipers without a walk. A hull's sides turn one way, once round, so from a side s on
// they go first along it and inwards, then back and inwards, then back and outwards, then along and
// outwards. The walk around the hull from s's end comes to the vertex farthest
//
//   along s     where the next side does not go along s,
//   across it   further on, where the next side does not go inwards,
//   against it  further on, where the next side does not go back.
//
// So s and the sides that go inwards lead from s's start to the vertex farthest across. From the
// one farthest along to the one farthest against lead the sides that go back, and one that goes
// straight inwards, if there is one. The signs of two products tell which sides these are, and
// their sum does not depend on the order. It is made for all s at once, one to a lane.

constexpr int kLanes = kUsefulBytes / 4;
using Pairs = I16<2 * kLanes>;  // x and y of a vector to a lane
using Sums = U16<2 * kLanes>;   // the same, modulo 2^16
using Wholes = I32<kLanes>;
using Floats = F32<kLanes>;

QUILLON_INLINE Floats XOf(Sums v) { return Convert<float, kLanes>(BitCast<Wholes>(v) << 16 >> 16); }
QUILLON_INLINE Floats YOf(Sums v) { return Convert<float, kLanes>(BitCast<Wholes>(v) >> 16); }

QUILLON_INLINE Pairs Everywhere(const int16_t* pair) {
  int32_t bits;
  __builtin_memcpy(&bits, pair, sizeof bits);
  return BitCast<Pairs>(Splat<int32_t, kLanes>(bits));
}

// (y, -x) of (x, y): across, towards the outside.
QUILLON_INLINE Pairs Outwards(Pairs v) {
  const auto bits = BitCast<U32<kLanes>>(v);
  return BitCast<Pairs>(((bits << 16 | bits >> 16) ^ 0xFFFF0000u) + 0x00010000u);
}

// Those lanes of v whose mask is set: -1, or 0.
QUILLON_INLINE Sums Where(Wholes mask, Pairs v) { return BitCast<Sums>(BitCast<Wholes>(v) & mask); }

// Four lanes with their halves swapped, and with the lanes of each half swapped.
template <class V>
QUILLON_INLINE V HalvesSwapped(V v) {
  return __builtin_shufflevector(v, v, 2, 3, 0, 1);
}
template <class V>
QUILLON_INLINE V PairsSwapped(V v) {
  return __builtin_shufflevector(v, v, 1, 0, 3, 2);
}

template <class V>
QUILLON_INLINE auto LeastLane(V v) {
  if constexpr (sizeof(V) > 16) {
    return LeastLane(Min(Low(v), High(v)));
  } else {
    v = Min(v, HalvesSwapped(v));
    return Min(v, PairsSwapped(v))[0];
  }
}

template <class V>
QUILLON_INLINE uint32_t SumOfLanes(V v) {
  if constexpr (sizeof(V) > 16) {
    return SumOfLanes(Low(v) + High(v));
  } else {
    v += BitCast<V>(HalvesSwapped(BitCast<U32<4>>(v)));
    v += BitCast<V>(PairsSwapped(BitCast<U32<4>>(v)));
    return BitCast<U32<4>>(v)[0];
  }
}

// The sides that leave kCount vertices, whose x and y follow each other.
template <int kCount>
QUILLON_INLINE I16<2 * kCount> SidesFrom(const int32_t* vertices) {
  if constexpr (kCount > 4) {
    return Join(SidesFrom<kCount / 2>(vertices), SidesFrom<kCount / 2>(vertices + kCount));
  } else {
    const auto side = [vertices](int i) {
      return BitCast<I32<4>>(BitCast<U32<4>>(Load<int32_t, 4>(vertices + i + 2)) -
                             BitCast<U32<4>>(Load<int32_t, 4>(vertices + i)));
    };
    return PackWithin16(side(0), side(4));
  }
}

// Loops over a hull are short: unrolled they were only larger.

// Whether all vertices lie near the first one, and it near the image's corner.
QUILLON_INLINE bool IsSmall(const Point* hull, int count) {
  const auto magnitude = [](auto v) { return v ^ v >> 31; };
  const I32<4> first = {hull->x, hull->y, hull->x, hull->y};
  I32<4> reach = {};
#pragma GCC unroll 1
  for (int i = 0; i < count; i += 2) {
    const auto vertices = BitCast<U32<4>>(Load<int32_t, 4>(&hull[i].x));
    reach |= magnitude(BitCast<I32<4>>(vertices - BitCast<U32<4>>(first)));
  }
  return MoveWordMask((reach >= kReachEnd) | (magnitude(first) >= kPlaceEnd)) == 0;
}

// What is known of every side: a unit vector along it, the measures of its rectangle, and where the
// vertex farthest across lies from its start.
struct Boxes {
  float alongX[kMostSides], alongY[kMostSides];
  float length[kMostSides], depth[kMostSides];
  int16_t across[2 * kMostSides];
};

// Measures the rectangles along the sides from number `first` on. Returns their areas.
QUILLON_INLINE Floats MeasureBoxes(const int16_t* sides, int count, int first, Boxes& boxes) {
  const auto side = Load<int16_t, 2 * kLanes>(sides + 2 * first);
  const Pairs outwards = Outwards(side), against = -side;
  Sums across = BitCast<Sums>(side), back = {};
#pragma GCC unroll 1
  for (int i = 0; i < count; ++i) {
    const Pairs other = Everywhere(sides + 2 * i);
    const Wholes goesInwards = DotPairs(outwards, other) >> 31;
    // Its way against s is above 0 or, where it goes inwards, above -1.
    const Wholes goesBack = (goesInwards - DotPairs(against, other)) >> 31;
    across += Where(goesInwards, other);
    back += Where(goesBack, other);
  }
  const Floats x = XOf(BitCast<Sums>(side)), y = YOf(BitCast<Sums>(side));
  // Behind the last side lie some of no length: their roots are not divided by.
  const Floats scale = 1.0f / Sqrt(Max(x * x + y * y, Floats{} + 1));
  const Floats alongX = x * scale, alongY = y * scale;
  const Floats length = -XOf(back) * alongX + -YOf(back) * alongY;
  const Floats depth = XOf(across) * -alongY + YOf(across) * alongX;
  Store(boxes.alongX + first, alongX);
  Store(boxes.alongY + first, alongY);
  Store(boxes.length + first, length);
  Store(boxes.depth + first, depth);
  Store(boxes.across + 2 * first, across);
  return length * depth;
}

// From the start of side `chosen` to the vertex farthest against it, x and y as 16 bits: on from
// the vertex farthest across by the sides that go back and not inwards.
QUILLON_INLINE uint32_t WayBack(const int16_t* sides, int count, int chosen, const Boxes& boxes) {
  const Pairs side = Everywhere(sides + 2 * chosen), outwards = Outwards(side);
  Sums way = {};
#pragma GCC unroll 1
  for (int i = 0; i < count; i += kLanes) {
    const auto other = Load<int16_t, 2 * kLanes>(sides + 2 * i);
    way += Where(DotPairs(side, other) >> 31 & ~(DotPairs(outwards, other) >> 31), other);
  }
  uint32_t across;
  __builtin_memcpy(&across, boxes.across + 2 * chosen, sizeof across);
  return BitCast<U32<4>>(BitCast<U16<8>>(U32<4>{across}) +
                         BitCast<U16<8>>(U32<4>{SumOfLanes(way)}))[0];
}

template <int... i>
QUILLON_INLINE Wholes LaneNumbers(std::integer_sequence<int, i...>) {
  return Wholes{i...};
}

bool FindLeastSide(Point* hull, int count, SideBox& box) {
  static_assert(kHullRoom >= kLanes && kMostSides % kLanes == 0);
  if (count > kMostSides) return false;
  // The first vertex once more ends the last side; sides of no length fill the last vector.
  int64_t start;
  __builtin_memcpy(&start, hull, sizeof start);
  for (int i = 0; i < kLanes; i += kLanes / 2) {
    Store(&hull[count + i].x, BitCast<Wholes>(Splat<int64_t, kLanes / 2>(start)));
  }
  if (!IsSmall(hull, count)) return false;
  int16_t sides[2 * kMostSides];
#pragma GCC unroll 1
  for (int i = 0; i < count; i += kLanes) Store(sides + 2 * i, SidesFrom<kLanes>(&hull[i].x));

  Boxes boxes;
  Floats least = Floats{} + __builtin_inff();
  Wholes found = {};  // -1 - the side's number, so that later sides have the lesser one
  for (int i = 0; i < count; i += kLanes) {
    const Floats area = MeasureBoxes(sides, count, i, boxes);
    const Wholes number = LaneNumbers(std::make_integer_sequence<int, kLanes>{}) + i;
    const auto better = (area <= least) & (number < count);
    least = better ? area : least;
    found = better ? ~number : found;
  }
  const int chosen = ~LeastLane(least == LeastLane(least) ? found : Wholes{});
  if (chosen < 0) return false;
  const uint32_t back = WayBack(sides, count, chosen, boxes);
  box = {.side = chosen,
         .alongX = boxes.alongX[chosen],
         .alongY = boxes.alongY[chosen],
         .length = boxes.length[chosen],
         .depth = boxes.depth[chosen],
         .backX = static_cast<int16_t>(back),
         .backY = static_cast<int16_t>(back >> 16)};
  return true;
}

}  // namespace

const HullKernels hull = {.FindBends = FindBends, .FindLeastSide = FindLeastSide};

}  // namespace quillon::QUILLON_LEVEL
