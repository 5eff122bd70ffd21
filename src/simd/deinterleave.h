// Splitting packed blue-green-red pixels into planes.
#pragma once

#include "simd/vec.h"

namespace quillon::QUILLON_LEVEL {

template <int N>
struct Planes {
  U8<N> blue, green, red;
};

// Four perfect shuffles of the 48 bytes: each moves byte i to place 2i mod 47, and 16 i mod 47 is
// where byte i = 3j + c belongs, namely 16c + j.
QUILLON_INLINE Planes<16> Deinterleave(U8<16> a, U8<16> b, U8<16> c) {
  __m128i r0 = BitCast<__m128i>(a), r1 = BitCast<__m128i>(b), r2 = BitCast<__m128i>(c);
  for (int step = 0; step < 4; ++step) {
    const __m128i low = _mm_unpacklo_epi8(r0, _mm_unpackhi_epi64(r1, r1));
    const __m128i middle = _mm_unpacklo_epi8(_mm_unpackhi_epi64(r0, r0), r2);
    const __m128i high = _mm_unpacklo_epi8(r1, _mm_unpackhi_epi64(r2, r2));
    r0 = low, r1 = middle, r2 = high;
  }
  return {BitCast<U8<16>>(r0), BitCast<U8<16>>(r1), BitCast<U8<16>>(r2)};
}

#if QUILLON_AVX2
namespace deinterleave_detail {
// Places of plane c's bytes within the r-th 16 bytes of 48; 0x80 where they come from elsewhere.
struct Places {
  alignas(32) uint8_t at[3][3][32];
};
constexpr Places MakePlaces() {
  Places places = {};
  for (int c = 0; c < 3; ++c) {
    for (int r = 0; r < 3; ++r) {
      for (int j = 0; j < 32; ++j) {
        const int source = 3 * (j % 16) + c - 16 * r;
        places.at[c][r][j] = source >= 0 && source < 16 ? static_cast<uint8_t>(source) : 0x80;
      }
    }
  }
  return places;
}
inline constexpr Places kPlaces = MakePlaces();
}  // namespace deinterleave_detail
#endif

#if QUILLON_AVX512
namespace deinterleave_detail {
// Places of plane c's bytes: first among bytes 0 ... 127 of 192, then with the last 64 for those
// from `split[c]` on.
struct WidePlaces {
  alignas(64) uint8_t first[3][64], second[3][64];
};
constexpr WidePlaces MakeWidePlaces() {
  WidePlaces places = {};
  for (int c = 0; c < 3; ++c) {
    for (int j = 0; j < 64; ++j) {
      const int source = 3 * j + c;
      places.first[c][j] = static_cast<uint8_t>(source % 128);
      places.second[c][j] = static_cast<uint8_t>(source < 128 ? j : 64 + source - 128);
    }
  }
  return places;
}
inline constexpr WidePlaces kWidePlaces = MakeWidePlaces();
}  // namespace deinterleave_detail
#endif

// The planes of the N pixels at `bgr`.
template <int N>
QUILLON_INLINE Planes<N> LoadPlanes(const uint8_t* bgr) {
  if constexpr (N == 16) {
    const auto a = Load<uint8_t, 16>(bgr);
    const auto b = Load<uint8_t, 16>(bgr + 16);
    const auto c = Load<uint8_t, 16>(bgr + 32);
    return Deinterleave(a, b, c);
#if QUILLON_AVX2
  } else if constexpr (N == 32) {
    __m256i part[3];
    for (int r = 0; r < 3; ++r) {
      part[r] = BitCast<__m256i>(
          Join(Load<uint8_t, 16>(bgr + 16 * r), Load<uint8_t, 16>(bgr + 48 + 16 * r)));
    }
    const auto plane = [&](int c) {
      __m256i bytes = _mm256_setzero_si256();
      for (int r = 0; r < 3; ++r) {
        const auto places = Load<uint8_t, 32>(deinterleave_detail::kPlaces.at[c][r]);
        bytes = _mm256_or_si256(bytes, _mm256_shuffle_epi8(part[r], BitCast<__m256i>(places)));
      }
      return BitCast<U8<32>>(bytes);
    };
    return {plane(0), plane(1), plane(2)};
#endif
#if QUILLON_AVX512
  } else if constexpr (N == 64) {
    const __m512i a = BitCast<__m512i>(Load<uint8_t, 64>(bgr));
    const __m512i b = BitCast<__m512i>(Load<uint8_t, 64>(bgr + 64));
    const __m512i c = BitCast<__m512i>(Load<uint8_t, 64>(bgr + 128));
    const auto plane = [&](int channel) {
      const auto first = Load<uint8_t, 64>(deinterleave_detail::kWidePlaces.first[channel]);
      const auto second = Load<uint8_t, 64>(deinterleave_detail::kWidePlaces.second[channel]);
      const __m512i low = _mm512_permutex2var_epi8(a, BitCast<__m512i>(first), b);
      return BitCast<U8<64>>(_mm512_permutex2var_epi8(low, BitCast<__m512i>(second), c));
    };
    return {plane(0), plane(1), plane(2)};
#endif
  }
}

}  // namespace quillon::QUILLON_LEVEL
