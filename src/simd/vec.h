// Vectors of N lanes on the compiler's own vector types, and the named operations where its
// operators fall short. Compiled once per level, each into its own namespace. Vectors are 16 bytes
// or more: on 32-bit x86 shorter ones would go through the floating-point stack's registers.
#pragma once

#include <immintrin.h>
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

// ---- by name, one instruction where the level has it --------------------------------------------
// A vector wider than the level's registers goes by halves.

// min(a + b, 255) on unsigned bytes.
template <class V>
QUILLON_INLINE V AddSaturate(V a, V b) {
  if constexpr (sizeof(V) > kVectorBytes) {
    return Join(AddSaturate(Low(a), Low(b)), AddSaturate(High(a), High(b)));
  } else if constexpr (sizeof(V) == 16) {
    return BitCast<V>(_mm_adds_epu8(BitCast<__m128i>(a), BitCast<__m128i>(b)));
#if QUILLON_AVX2
  } else if constexpr (sizeof(V) == 32) {
    return BitCast<V>(_mm256_adds_epu8(BitCast<__m256i>(a), BitCast<__m256i>(b)));
#endif
#if QUILLON_AVX512
  } else {
    return BitCast<V>(_mm512_adds_epu8(BitCast<__m512i>(a), BitCast<__m512i>(b)));
#endif
  }
}

// max(a - b, 0) on unsigned bytes.
template <class V>
QUILLON_INLINE V SubSaturate(V a, V b) {
  if constexpr (sizeof(V) > kVectorBytes) {
    return Join(SubSaturate(Low(a), Low(b)), SubSaturate(High(a), High(b)));
  } else if constexpr (sizeof(V) == 16) {
    return BitCast<V>(_mm_subs_epu8(BitCast<__m128i>(a), BitCast<__m128i>(b)));
#if QUILLON_AVX2
  } else if constexpr (sizeof(V) == 32) {
    return BitCast<V>(_mm256_subs_epu8(BitCast<__m256i>(a), BitCast<__m256i>(b)));
#endif
#if QUILLON_AVX512
  } else {
    return BitCast<V>(_mm512_subs_epu8(BitCast<__m512i>(a), BitCast<__m512i>(b)));
#endif
  }
}

// |a - b| on unsigned bytes.
template <class V>
QUILLON_INLINE V AbsDiff(V a, V b) {
  return SubSaturate(a, b) | SubSaturate(b, a);
}

// The high half of each product of unsigned 16-bit lanes.
template <class V>
QUILLON_INLINE V MulHigh(V a, V b) {
  if constexpr (sizeof(V) > kVectorBytes) {
    return Join(MulHigh(Low(a), Low(b)), MulHigh(High(a), High(b)));
  } else if constexpr (sizeof(V) == 16) {
    return BitCast<V>(_mm_mulhi_epu16(BitCast<__m128i>(a), BitCast<__m128i>(b)));
#if QUILLON_AVX2
  } else if constexpr (sizeof(V) == 32) {
    return BitCast<V>(_mm256_mulhi_epu16(BitCast<__m256i>(a), BitCast<__m256i>(b)));
#endif
#if QUILLON_AVX512
  } else {
    return BitCast<V>(_mm512_mulhi_epu16(BitCast<__m512i>(a), BitCast<__m512i>(b)));
#endif
  }
}

// One bit per byte lane: its top bit. Lane 0 is bit 0.
template <class V>
QUILLON_INLINE uint64_t MoveMask(V v) {
  if constexpr (sizeof(V) > kVectorBytes) {
    return MoveMask(Low(v)) | MoveMask(High(v)) << (sizeof(V) / 2);
  } else if constexpr (sizeof(V) == 16) {
    return static_cast<uint32_t>(_mm_movemask_epi8(BitCast<__m128i>(v)));
#if QUILLON_AVX2
  } else if constexpr (sizeof(V) == 32) {
    return static_cast<uint32_t>(_mm256_movemask_epi8(BitCast<__m256i>(v)));
#endif
#if QUILLON_AVX512
  } else {
    return _mm512_movepi8_mask(BitCast<__m512i>(v));
#endif
  }
}

}  // namespace quillon::QUILLON_LEVEL
