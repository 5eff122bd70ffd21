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

// N bytes as 16-bit lanes.
template <int N>
QUILLON_INLINE I16<N> LoadWidened(const uint8_t* from) {
  if constexpr (N == 8) {
    const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from));
    return reinterpret_cast<I16<8>>(_mm_unpacklo_epi8(bytes, _mm_setzero_si128()));
#if QUILLON_AVX2
  } else if constexpr (N == 16) {  // one instruction, where the compiler's own way takes four
    const auto* bytes = reinterpret_cast<const __m128i*>(from);
    return reinterpret_cast<I16<16>>(_mm256_cvtepu8_epi16(_mm_loadu_si128(bytes)));
#endif
#if QUILLON_AVX512
  } else if constexpr (N == 32) {
    const auto* bytes = reinterpret_cast<const __m256i*>(from);
    return reinterpret_cast<I16<32>>(_mm512_cvtepu8_epi16(_mm256_loadu_si256(bytes)));
#endif
  } else {
    return __builtin_convertvector(Load<uint8_t, N>(from), I16<N>);
  }
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

// 1 / v for float lanes, off by at most 1.5 / 4096 of it, differently from processor to processor.
template <class V>
QUILLON_INLINE V ReciprocalEstimate(V v) {
  if constexpr (sizeof(V) > kVectorBytes) {
    return Join(ReciprocalEstimate(Low(v)), ReciprocalEstimate(High(v)));
  } else if constexpr (sizeof(V) == 16) {
    return BitCast<V>(_mm_rcp_ps(BitCast<__m128>(v)));
#if QUILLON_AVX2
  } else if constexpr (sizeof(V) == 32) {
    return BitCast<V>(_mm256_rcp_ps(BitCast<__m256>(v)));
#endif
#if QUILLON_AVX512
  } else {
    return BitCast<V>(_mm512_maskz_rcp14_ps(0xFFFF, BitCast<__m512>(v)));
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

// The sums of each eight neighbouring bytes.
template <class V>
QUILLON_INLINE U64<sizeof(V) / 8> SumsOf8(V v) {
  if constexpr (sizeof(V) > kVectorBytes) {
    return Join(SumsOf8(Low(v)), SumsOf8(High(v)));
  } else if constexpr (sizeof(V) == 16) {
    return BitCast<U64<2>>(_mm_sad_epu8(BitCast<__m128i>(v), _mm_setzero_si128()));
#if QUILLON_AVX2
  } else if constexpr (sizeof(V) == 32) {
    return BitCast<U64<4>>(_mm256_sad_epu8(BitCast<__m256i>(v), _mm256_setzero_si256()));
#endif
#if QUILLON_AVX512
  } else {
    return BitCast<U64<8>>(_mm512_sad_epu8(BitCast<__m512i>(v), _mm512_setzero_si512()));
#endif
  }
}

// The lanes of a, then those of b, half as wide. Signed 16 bits are clamped to 0 ... 255; 32 bits
// hold 0 ... 32767.
template <class V>
QUILLON_INLINE auto PackLanes(V a, V b) {
  constexpr bool kToBytes = sizeof(a[0]) == 2;
  using Packed = std::conditional_t<kToBytes, U8<sizeof(V)>, U16<sizeof(V) / 2>>;
  if constexpr (sizeof(V) > kVectorBytes) {
    return Join(PackLanes(Low(a), High(a)), PackLanes(Low(b), High(b)));
  } else if constexpr (sizeof(V) == 16) {
    const __m128i x = BitCast<__m128i>(a), y = BitCast<__m128i>(b);
    return BitCast<Packed>(kToBytes ? _mm_packus_epi16(x, y) : _mm_packs_epi32(x, y));
#if QUILLON_AVX2
  } else if constexpr (sizeof(V) == 32) {
    const __m256i x = BitCast<__m256i>(a), y = BitCast<__m256i>(b);
    const __m256i mixed = kToBytes ? _mm256_packus_epi16(x, y) : _mm256_packs_epi32(x, y);
    const auto quads = BitCast<U64<4>>(mixed);
    return BitCast<Packed>(__builtin_shufflevector(quads, quads, 0, 2, 1, 3));
#endif
#if QUILLON_AVX512
  } else {
    const __m512i x = BitCast<__m512i>(a), y = BitCast<__m512i>(b);
    const __m512i mixed = kToBytes ? _mm512_packus_epi16(x, y) : _mm512_packs_epi32(x, y);
    const auto quads = BitCast<U64<8>>(mixed);
    return BitCast<Packed>(__builtin_shufflevector(quads, quads, 0, 2, 4, 6, 1, 3, 5, 7));
#endif
  }
}

// a[0] * b[0] + a[1] * b[1], a[2] * b[2] + a[3] * b[3] ... of unsigned by signed bytes; the sums
// lie within 16 bits.
template <class A, class B>
QUILLON_INLINE I16<sizeof(A) / 2> DotBytePairs(A a, B b) {
  static_assert(std::is_same_v<A, U8<sizeof(A)>> && std::is_same_v<B, I8<sizeof(A)>>);
  if constexpr (sizeof(A) > kVectorBytes) {
    return Join(DotBytePairs(Low(a), Low(b)), DotBytePairs(High(a), High(b)));
#if QUILLON_AVX2
  } else if constexpr (sizeof(A) == 16) {
    return BitCast<I16<8>>(_mm_maddubs_epi16(BitCast<__m128i>(a), BitCast<__m128i>(b)));
  } else if constexpr (sizeof(A) == 32) {
    return BitCast<I16<16>>(_mm256_maddubs_epi16(BitCast<__m256i>(a), BitCast<__m256i>(b)));
#endif
#if QUILLON_AVX512
  } else if constexpr (sizeof(A) == 64) {
    return BitCast<I16<32>>(_mm512_maddubs_epi16(BitCast<__m512i>(a), BitCast<__m512i>(b)));
#endif
  } else {
    using Sums = I16<sizeof(A) / 2>;
    return BitCast<Sums>(EvenBytes(a)) * (BitCast<Sums>(b) << 8 >> 8) +
           BitCast<Sums>(OddBytes(a)) * (BitCast<Sums>(b) >> 8);
  }
}

// The same of signed 16-bit lanes, as 32-bit ones.
template <class V>
QUILLON_INLINE I32<sizeof(V) / 4> DotPairs(V a, V b) {
  if constexpr (sizeof(V) > kVectorBytes) {
    return Join(DotPairs(Low(a), Low(b)), DotPairs(High(a), High(b)));
  } else if constexpr (sizeof(V) == 16) {
    return BitCast<I32<4>>(_mm_madd_epi16(BitCast<__m128i>(a), BitCast<__m128i>(b)));
#if QUILLON_AVX2
  } else if constexpr (sizeof(V) == 32) {
    return BitCast<I32<8>>(_mm256_madd_epi16(BitCast<__m256i>(a), BitCast<__m256i>(b)));
#endif
#if QUILLON_AVX512
  } else {
    return BitCast<I32<16>>(_mm512_madd_epi16(BitCast<__m512i>(a), BitCast<__m512i>(b)));
#endif
  }
}

// Each 32-bit lane plus all lanes before it.
template <class V>
QUILLON_INLINE V PrefixSums(V v) {
  if constexpr (sizeof(V) == 16) {
    v += BitCast<V>(_mm_slli_si128(BitCast<__m128i>(v), 4));
    return v + BitCast<V>(_mm_slli_si128(BitCast<__m128i>(v), 8));
#if QUILLON_AVX2
  } else if constexpr (sizeof(V) == 32) {
    v += BitCast<V>(_mm256_slli_si256(BitCast<__m256i>(v), 4));
    v += BitCast<V>(_mm256_slli_si256(BitCast<__m256i>(v), 8));
    const __m256i totals = _mm256_shuffle_epi32(BitCast<__m256i>(v), 0xFF);
    return v + BitCast<V>(_mm256_permute2x128_si256(totals, totals, 0x08));
#endif
#if QUILLON_AVX512
  } else {
    v += BitCast<V>(_mm512_bslli_epi128(BitCast<__m512i>(v), 4));
    v += BitCast<V>(_mm512_bslli_epi128(BitCast<__m512i>(v), 8));
    const V none = {};  // its lanes are 16 and on
    const V one =
        __builtin_shufflevector(v, none, 16, 16, 16, 16, 3, 3, 3, 3, 7, 7, 7, 7, 11, 11, 11, 11);
    const V two =
        __builtin_shufflevector(v, none, 16, 16, 16, 16, 16, 16, 16, 16, 3, 3, 3, 3, 7, 7, 7, 7);
    const V three = __builtin_shufflevector(v, none, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16,
                                            3, 3, 3, 3);
    return (v + one) + (two + three);
#endif
  }
}

// The last 32-bit lane in every lane.
template <class V>
QUILLON_INLINE V SplatLast(V v) {
  if constexpr (sizeof(V) == 16) {
    return BitCast<V>(_mm_shuffle_epi32(BitCast<__m128i>(v), 0xFF));
#if QUILLON_AVX2
  } else if constexpr (sizeof(V) == 32) {
    return BitCast<V>(_mm256_permutevar8x32_epi32(BitCast<__m256i>(v), _mm256_set1_epi32(7)));
#endif
#if QUILLON_AVX512
  } else {
    return __builtin_shufflevector(v, v, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15,
                                   15);
#endif
  }
}

// One bit per 32-bit lane: its top bit.
template <class V>
QUILLON_INLINE uint32_t MoveWordMask(V v) {
  if constexpr (sizeof(V) == 16) {
    return static_cast<uint32_t>(_mm_movemask_ps(BitCast<__m128>(v)));
#if QUILLON_AVX2
  } else if constexpr (sizeof(V) == 32) {
    return static_cast<uint32_t>(_mm256_movemask_ps(BitCast<__m256>(v)));
#endif
#if QUILLON_AVX512
  } else {
    return _mm512_movepi32_mask(BitCast<__m512i>(v));
#endif
  }
}

// Square roots of float or double lanes, correctly rounded.
template <class V>
QUILLON_INLINE V Sqrt(V v) {
  constexpr bool kDouble = sizeof(v[0]) == 8;
  if constexpr (sizeof(V) > kVectorBytes) {
    return Join(Sqrt(Low(v)), Sqrt(High(v)));
  } else if constexpr (sizeof(V) == 16) {
    if constexpr (kDouble)
      return BitCast<V>(_mm_sqrt_pd(BitCast<__m128d>(v)));
    else
      return BitCast<V>(_mm_sqrt_ps(BitCast<__m128>(v)));
#if QUILLON_AVX2
  } else if constexpr (sizeof(V) == 32) {
    if constexpr (kDouble)
      return BitCast<V>(_mm256_sqrt_pd(BitCast<__m256d>(v)));
    else
      return BitCast<V>(_mm256_sqrt_ps(BitCast<__m256>(v)));
#endif
#if QUILLON_AVX512
  } else {
    if constexpr (kDouble)
      return BitCast<V>(_mm512_maskz_sqrt_pd(0xFF, BitCast<__m512d>(v)));
    else
      return BitCast<V>(_mm512_maskz_sqrt_ps(0xFFFF, BitCast<__m512>(v)));
#endif
  }
}

}  // namespace quillon::QUILLON_LEVEL
