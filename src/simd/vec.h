// Vectors of N lanes on the compiler's own vector types, and the named operations where its
// operators fall short. Compiled once per level, each into its own namespace. Vectors are 16 bytes
// or more: on 32-bit x86 shorter ones would go through the floating-point stack's registers.
//
// This file is the interface, and all that the compiler's types can say. How a processor says the
// rest is in vec_x86.h, vec_neon.h and vec_wasm.h: each defines, in namespace native, the same
// operations on vectors of the widths that its registers have.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <type_traits>
#include <utility>

#include "simd/level.h"

#define QUILLON_INLINE [[gnu::always_inline]] inline

namespace quillon::QUILLON_LEVEL {

constexpr int kVectorBytes = QUILLON_VECTOR_BYTES;

namespace vec_detail {
template <class T, int N>
struct VectorOf {
  typedef T type __attribute__((vector_size(sizeof(T) * N)));
  // The same vector where memory holds it: at any address.
  typedef T unaligned __attribute__((vector_size(sizeof(T) * N), aligned(1), may_alias));
};
}  // namespace vec_detail

template <class T, int N>
using Vec = typename vec_detail::VectorOf<T, N>::type;
template <int N>
using U8 = Vec<uint8_t, N>;
template <int N>
using I8 = Vec<int8_t, N>;
template <int N>
using U16 = Vec<uint16_t, N>;
template <int N>
using I16 = Vec<int16_t, N>;
template <int N>
using U32 = Vec<uint32_t, N>;
template <int N>
using I32 = Vec<int32_t, N>;
template <int N>
using U64 = Vec<uint64_t, N>;
template <int N>
using F32 = Vec<float, N>;
template <int N>
using F64 = Vec<double, N>;

// ---- memory -------------------------------------------------------------------------------------

template <class T, int N>
QUILLON_INLINE Vec<T, N> Load(const T* from) {
  return *reinterpret_cast<const typename vec_detail::VectorOf<T, N>::unaligned*>(from);
}

// Eight bytes in the lower half; the upper half is 0.
QUILLON_INLINE U8<16> LoadHalf(const uint8_t* from) {
  uint64_t bytes;
  __builtin_memcpy(&bytes, from, sizeof bytes);
  return reinterpret_cast<U8<16>>(U64<2>{bytes, 0});
}

template <class T, class V>
QUILLON_INLINE void Store(T* to, V value) {
  constexpr int n = sizeof(V) / sizeof(T);
  *reinterpret_cast<typename vec_detail::VectorOf<T, n>::unaligned*>(to) =
      reinterpret_cast<Vec<T, n>>(value);
}

template <class T, int N>
QUILLON_INLINE Vec<T, N> Splat(T value) {
  return Vec<T, N>{} + value;
}

// ---- lane by lane -------------------------------------------------------------------------------

template <class V>
QUILLON_INLINE V Min(V a, V b) {
  return a < b ? a : b;
}

template <class V>
QUILLON_INLINE V Max(V a, V b) {
  return a > b ? a : b;
}

// Signed lanes.
template <class V>
QUILLON_INLINE V Abs(V a) {
  return Max(a, -a);
}

// Lanes of another width, value by value.
template <class T, int N, class V>
QUILLON_INLINE Vec<T, N> Convert(V value) {
  return __builtin_convertvector(value, Vec<T, N>);
}

// The same bits seen as other lanes.
template <class To, class V>
QUILLON_INLINE To BitCast(V value) {
  static_assert(sizeof(To) == sizeof(V));
  return reinterpret_cast<To>(value);
}

// Halves of a vector, and a vector of two halves.
template <class V>
using HalfOf = Vec<std::remove_cvref_t<decltype(V{}[0])>, sizeof(V) / sizeof(V{}[0]) / 2>;
template <class V>
using DoubleOf = Vec<std::remove_cvref_t<decltype(V{}[0])>, sizeof(V) / sizeof(V{}[0]) * 2>;

namespace vec_detail {
// By shuffles: through memory, a load would wait for two narrower stores.
template <class V, int... kLane>
QUILLON_INLINE HalfOf<V> LowLanes(V v, std::integer_sequence<int, kLane...>) {
  return __builtin_shufflevector(v, v, kLane...);
}
template <class V, int... kLane>
QUILLON_INLINE HalfOf<V> HighLanes(V v, std::integer_sequence<int, kLane...>) {
  return __builtin_shufflevector(v, v, (static_cast<int>(sizeof...(kLane)) + kLane)...);
}
template <class V, int... kLane>
QUILLON_INLINE DoubleOf<V> AllLanes(V low, V high, std::integer_sequence<int, kLane...>) {
  return __builtin_shufflevector(low, high, kLane...);
}
template <class V>
constexpr int kLanes = sizeof(V) / sizeof(V{}[0]);
}  // namespace vec_detail

template <class V>
QUILLON_INLINE HalfOf<V> Low(V v) {
  return vec_detail::LowLanes(v, std::make_integer_sequence<int, vec_detail::kLanes<V> / 2>{});
}

template <class V>
QUILLON_INLINE HalfOf<V> High(V v) {
  return vec_detail::HighLanes(v, std::make_integer_sequence<int, vec_detail::kLanes<V> / 2>{});
}

template <class V>
QUILLON_INLINE DoubleOf<V> Join(V low, V high) {
  return vec_detail::AllLanes(low, high,
                              std::make_integer_sequence<int, vec_detail::kLanes<V> * 2>{});
}

// 16 bytes, over and over.
template <int N>
QUILLON_INLINE U8<N> Repeat16(const uint8_t* from) {
  if constexpr (N == 16) {
    return Load<uint8_t, 16>(from);
  } else {
    const auto half = Repeat16<N / 2>(from);
    return Join(half, half);
  }
}

// The lower halves of two vectors.
QUILLON_INLINE U8<16> JoinLowHalves(U8<16> a, U8<16> b) {
  return BitCast<U8<16>>(__builtin_shufflevector(BitCast<U64<2>>(a), BitCast<U64<2>>(b), 0, 2));
}

// Bytes as 16-bit lanes without a shuffle: those at even and at odd places, and both merged again
// (values 0 ... 255).
template <class V>
QUILLON_INLINE U16<sizeof(V) / 2> EvenBytes(V v) {
  return BitCast<U16<sizeof(V) / 2>>(v) & 255;
}

template <class V>
QUILLON_INLINE U16<sizeof(V) / 2> OddBytes(V v) {
  return BitCast<U16<sizeof(V) / 2>>(v) >> 8;
}

template <class V>
QUILLON_INLINE U8<sizeof(V)> MergeBytes(V even, V odd) {
  return BitCast<U8<sizeof(V)>>(even | odd << 8);
}

namespace vec_detail {
// Lane i of two vectors zipped within 16 bytes, each `count` lanes long, from their lower or upper
// halves on.
template <int kAll, int kWithin>
constexpr int ZippedLane(int i, bool upper) {
  const int group = i / kWithin, place = i % kWithin;
  return group * kWithin + (upper ? kWithin / 2 : 0) + place / 2 + (place % 2 ? kAll : 0);
}
template <bool kUpper, class V, int... i>
QUILLON_INLINE V ZipOf(V a, V b, std::integer_sequence<int, i...>) {
  constexpr int kAll = sizeof...(i), kWithin = 16 / (sizeof(V) / kAll);
  return __builtin_shufflevector(a, b, ZippedLane<kAll, kWithin>(i, kUpper)...);
}
}  // namespace vec_detail

// The lanes of a and b in turn, a[0] b[0] a[1] b[1] ..., within each 16 bytes: of the first or of
// the second half of their lanes there.
template <class V>
QUILLON_INLINE V ZipLow(V a, V b) {
  return vec_detail::ZipOf<false>(a, b, std::make_integer_sequence<int, vec_detail::kLanes<V>>{});
}
template <class V>
QUILLON_INLINE V ZipHigh(V a, V b) {
  return vec_detail::ZipOf<true>(a, b, std::make_integer_sequence<int, vec_detail::kLanes<V>>{});
}

// ---- by name, one instruction or few where the processor has them -------------------------------

}  // namespace quillon::QUILLON_LEVEL

#if defined(__x86_64__) || defined(__i386__)
#include "simd/vec_x86.h"
#elif defined(__aarch64__)
#include "simd/vec_neon.h"
#else
#include "simd/vec_wasm.h"
#endif

namespace quillon::QUILLON_LEVEL {

// A vector wider than the level's registers goes by halves.
#define QUILLON_BY_HALVES_1(Name)               \
  template <class V>                            \
  QUILLON_INLINE auto Name(V v) {               \
    if constexpr (sizeof(V) > kVectorBytes) {   \
      return Join(Name(Low(v)), Name(High(v))); \
    } else {                                    \
      return native::Name(v);                   \
    }                                           \
  }
#define QUILLON_BY_HALVES_2(Name)                                \
  template <class A, class B>                                    \
  QUILLON_INLINE auto Name(A a, B b) {                           \
    if constexpr (sizeof(A) > kVectorBytes) {                    \
      return Join(Name(Low(a), Low(b)), Name(High(a), High(b))); \
    } else {                                                     \
      return native::Name(a, b);                                 \
    }                                                            \
  }

// min(a + b, 255), max(a - b, 0) and min(a * b, 255) on unsigned bytes; half of a + b, rounded up.
QUILLON_BY_HALVES_2(AddSaturate)
QUILLON_BY_HALVES_2(SubSaturate)
QUILLON_BY_HALVES_2(MulSaturate)
QUILLON_BY_HALVES_2(Average)

// The high half of each product of 16-bit lanes, both signed or both unsigned. Signed ones are
// cheaper on some processors, most so where b is the same in a whole loop.
QUILLON_BY_HALVES_2(MulHigh)

// a[0] * b[0] + a[1] * b[1], a[2] * b[2] + a[3] * b[3] ... of unsigned by signed bytes; the sums
// lie within 16 bits. DotPairs: the same of signed 16-bit lanes, as 32-bit ones.
QUILLON_BY_HALVES_2(DotBytePairs)
QUILLON_BY_HALVES_2(DotPairs)

// 1 / v for float lanes, off by at most 1.5 / 4096 of it, differently from processor to processor.
QUILLON_BY_HALVES_1(ReciprocalEstimate)

// Square roots of float or double lanes, correctly rounded.
QUILLON_BY_HALVES_1(Sqrt)

// Float lanes as whole numbers, rounded as the processor is set.
QUILLON_BY_HALVES_1(RoundToWhole)

// The sums of each eight neighbouring bytes.
QUILLON_BY_HALVES_1(SumsOf8)

#undef QUILLON_BY_HALVES_1
#undef QUILLON_BY_HALVES_2

// All lanes by the same number of bits, below a lane's. Lanes with sign keep theirs.
template <class V>
QUILLON_INLINE V ShiftLeft(V v, int bits) {
  return native::ShiftLeft(v, bits);
}
template <class V>
QUILLON_INLINE V ShiftRight(V v, int bits) {
  return native::ShiftRight(v, bits);
}

// The sums of each eight neighbouring bytes, down up to 128 vectors of one register or less.
template <int N>
class EightSums {
 public:
  QUILLON_INLINE void Add(U8<N> bytes) { native::AddEights(parts, bytes); }
  QUILLON_INLINE U64<N / 8> Sums() const { return native::SumsOfEights(parts); }

 private:
  native::Eights<N> parts = {};
};

// sum + DotPairs(a, b), modulo 2^32.
template <class Sum, class V>
QUILLON_INLINE Sum AddDotPairs(Sum sum, V a, V b) {
  return native::AddDotPairs(sum, a, b);
}

// a * b + c of float lanes; rounded once where that is faster, else twice.
template <class V>
QUILLON_INLINE V MulAdd(V a, V b, V c) {
  return native::MulAdd(a, b, c);
}

// N bytes as 16-bit lanes; the bytes of one register's 32-bit lanes as such.
template <int N>
QUILLON_INLINE I16<N> LoadWidened(const uint8_t* from) {
  if constexpr (2 * N > kVectorBytes) {
    return Join(LoadWidened<N / 2>(from), LoadWidened<N / 2>(from + N / 2));
  } else {
    return native::LoadWidened(from, I16<N>{});
  }
}
QUILLON_INLINE I32<kVectorBytes / 4> LoadBytesAsLongs(const uint8_t* from) {
  return native::LoadBytesAsLongs(from);
}

// The unsigned lanes of two vectors as 32-bit ones, in as many registers as that takes.
template <int kCount>
QUILLON_INLINE void WidenWords(U16<8> low, U16<8> high, I32<kVectorBytes / 4> (&longs)[kCount]) {
  static_assert(kCount * kVectorBytes == 64);
  native::WidenWords(low, high, longs);
}

// 32-bit lanes of 0 ... 255 as bytes.
template <int kCount>
QUILLON_INLINE U8<16> PackToBytes(const I32<kVectorBytes / 4> (&values)[kCount]) {
  static_assert(kCount * kVectorBytes == 64);
  return native::PackToBytes(values);
}

// 16 bytes as 16-bit numbers in memory.
QUILLON_INLINE void StoreWidened(int16_t* to, U8<16> bytes) { native::StoreWidened(to, bytes); }

// What lies at the indices.
QUILLON_INLINE U32<kVectorBytes / 4> Gather(const uint32_t* from, I32<kVectorBytes / 4> index) {
  return native::Gather(from, index);
}

// Eight bytes from all over memory, start[offsets[i]], in the lower half; and eight of them with
// their right neighbours. They are inserted into a register one by one: written to memory singly,
// they would cost twice as much.
QUILLON_INLINE U8<16> CollectBytes(const uint8_t* start, const int32_t* offsets) {
  return native::CollectBytes(start, offsets);
}
QUILLON_INLINE U8<16> CollectBytePairs(const uint8_t* start, const int32_t* offsets) {
  return native::CollectBytePairs(start, offsets);
}

// One bit per byte lane, or per 32-bit lane: its top bit. Lane 0 is bit 0.
template <class V>
QUILLON_INLINE uint64_t MoveMask(V v) {
  if constexpr (sizeof(V) > kVectorBytes) {
    return MoveMask(Low(v)) | MoveMask(High(v)) << (sizeof(V) / 2);
  } else {
    return native::MoveMask(BitCast<U8<sizeof(V)>>(v));
  }
}
template <class V>
QUILLON_INLINE uint32_t MoveWordMask(V v) {
  return native::MoveWordMask(BitCast<U32<sizeof(V) / 4>>(v));
}

// Within each 16 bytes: the lanes of a, then those of b, half as wide. Signed 16 bits are clamped
// to 0 ... 255, signed 32 bits to 16 signed ones.
template <class V>
QUILLON_INLINE auto PackWithin16(V a, V b) {
  return native::PackWithin16(a, b);
}

// The lanes of a, then those of b, half as wide. Signed 16 bits are clamped to 0 ... 255; 32 bits
// hold 0 ... 32767.
template <class V>
QUILLON_INLINE auto PackLanes(V a, V b) {
  constexpr bool kToBytes = sizeof(a[0]) == 2;
  using Signed = std::conditional_t<kToBytes, I16<sizeof(V) / 2>, I32<sizeof(V) / 4>>;
  using Packed = std::conditional_t<kToBytes, U8<sizeof(V)>, U16<sizeof(V) / 2>>;
  if constexpr (sizeof(V) > kVectorBytes) {
    return Join(PackLanes(Low(a), High(a)), PackLanes(Low(b), High(b)));
  } else {
    const auto packed = PackWithin16(BitCast<Signed>(a), BitCast<Signed>(b));
    if constexpr (sizeof(V) == 16) {
      return BitCast<Packed>(packed);
    } else if constexpr (sizeof(V) == 32) {
      const auto quads = BitCast<U64<4>>(packed);
      return BitCast<Packed>(__builtin_shufflevector(quads, quads, 0, 2, 1, 3));
    } else {
      const auto quads = BitCast<U64<8>>(packed);
      return BitCast<Packed>(__builtin_shufflevector(quads, quads, 0, 2, 4, 6, 1, 3, 5, 7));
    }
  }
}

namespace vec_detail {
template <int kShift, class V, int... kLane>
QUILLON_INLINE V ShiftedLanes(V low, V high, std::integer_sequence<int, kLane...>) {
  return __builtin_shufflevector(low, high, (kShift + kLane)...);
}
}  // namespace vec_detail

namespace vec_detail {
template <class V, int... i>
QUILLON_INLINE V ByPlace(V v, std::integer_sequence<int, i...>) {
  constexpr int kGroups = sizeof(V) / 16;
  return __builtin_shufflevector(v, v, (i % kGroups * 4 + i / kGroups)...);
}
}  // namespace vec_detail

// The 32-bit lanes by their place within 16 bytes: the first of each, then the second of each ...
template <class V>
QUILLON_INLINE V ByPlaceWithin16(V v) {
  if constexpr (sizeof(V) == 16) return v;
  return vec_detail::ByPlace(v, std::make_integer_sequence<int, vec_detail::kLanes<V>>{});
}

// Bytes kShift, kShift + 1 ... of `low`, then the first ones of `high`. kShift is 0 ... sizeof(V).
template <int kShift, class V>
QUILLON_INLINE V BytesFrom(V low, V high) {
  if constexpr (kShift == 0) {
    return low;
  } else if constexpr (kShift == sizeof(V)) {
    return high;
  } else if constexpr (native::kShiftsBytes<V>) {
    return native::BytesFrom<kShift>(low, high);
  } else {
    return vec_detail::ShiftedLanes<kShift>(low, high,
                                            std::make_integer_sequence<int, sizeof(V)>{});
  }
}

// Each 32-bit lane plus all lanes before it; and the last lane in every lane. One register.
template <class V>
QUILLON_INLINE V PrefixSums(V v) {
  return native::PrefixSums(v);
}
template <class V>
QUILLON_INLINE V SplatLast(V v) {
  return native::SplatLast(v);
}

// Has the compiler make this vector here, and keep it in a register. Left alone, it would load the
// vector again for a second use, or compute it later, where registers are short.
template <class V>
QUILLON_INLINE V KeepOnce(V v) {
  native::Keep(v);
  return v;
}

#if QUILLON_BYTE_SHUFFLES
// Within each 16 bytes: table[place] for each place, looked at by its lower four bits; 0 where the
// place's top bit is set.
template <class V>
QUILLON_INLINE V ShuffleBytes(V table, V places) {
  return native::ShuffleBytes(table, places);
}

// b where the top bit of the byte in `by` is set, else a.
template <class V>
QUILLON_INLINE V BlendByTopBit(V a, V b, V by) {
  return native::BlendByTopBit(a, b, by);
}
#endif

#if QUILLON_PAIR_SHUFFLES
// Bytes of two tables, one after the other: places are 0 ... 31.
QUILLON_INLINE U8<16> ShuffleBytePairs(U8<16> first, U8<16> second, U8<16> places) {
  return native::ShuffleBytePairs(first, second, places);
}
#endif

#if QUILLON_BYTE_DOTS
// Each 32-bit lane plus four products of an unsigned byte of a and a byte of b, modulo 2^32. Those
// of b are of the type DotFactor: with a sign or without, as the processor has it.
using DotFactor = native::DotFactor;
template <class Sum, class A, class B>
QUILLON_INLINE Sum AddDotBytes(Sum sum, A a, B b) {
  return native::AddDotBytes(sum, a, b);
}
#endif

#if QUILLON_LANE_MERGES
// The lowest bytes of the 32-bit lanes of four vectors: of each lane the first vector's, the
// second's, the third's, the fourth's.
template <class V>
QUILLON_INLINE U8<sizeof(V)> MergeLowBytes(V a, V b, V c, V d) {
  return native::MergeLowBytes(a, b, c, d);
}
#endif

#if QUILLON_BYTE_SIEVES
// The bytes whose bit is set, one after another; zeros behind them.
template <class V>
QUILLON_INLINE V SievedBytes(V bytes, uint64_t bits) {
  return native::SievedBytes(bytes, bits);
}

// How many bits of each 64-bit lane are set.
template <class V>
QUILLON_INLINE V BitCounts(V v) {
  return native::BitCounts(v);
}

// a where the bit of `by` is set, else b.
template <class V>
QUILLON_INLINE V ChooseBits(V by, V a, V b) {
  return native::ChooseBits(by, a, b);
}
#endif

}  // namespace quillon::QUILLON_LEVEL
