// Splitting packed blue-green-red pixels into planes.
#pragma once

#include "simd/vec.h"

namespace quillon::QUILLON_LEVEL {

template <int N>
struct Planes {
  U8<N> blue, green, red;
};

// The planes of 48 bytes.
QUILLON_INLINE Planes<16> Deinterleave(U8<16> a, U8<16> b, U8<16> c) {
  native::Deinterleave(a, b, c);
  return {a, b, c};
}

#if QUILLON_AVX2
namespace deinterleave_detail {
// In each 48 bytes, plane c has every third byte. `from` tells, for each of 16 places, in which of
// the three 16-byte parts that place holds a byte of the plane; `order` then sorts them.
struct Places {
  alignas(32) uint8_t fromSecond[3][32], fromThird[3][32], order[3][32];
};
constexpr Places MakePlaces() {
  Places places = {};
  for (int c = 0; c < 3; ++c) {
    for (int i = 0; i < 32; ++i) {
      const int place = i % 16;
      places.fromSecond[c][i] = (16 + place) % 3 == c ? 255 : 0;
      places.fromThird[c][i] = (32 + place) % 3 == c ? 255 : 0;
      places.order[c][i] = static_cast<uint8_t>((3 * place + c) % 16);
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
    const auto part = [&](int r) {
      return Join(Load<uint8_t, 16>(bgr + 16 * r), Load<uint8_t, 16>(bgr + 48 + 16 * r));
    };
    const auto first = part(0), second = part(1), third = part(2);
    const auto plane = [&](int c) {
      using deinterleave_detail::kPlaces;
      const auto fromSecond = BitCast<I8<32>>(Load<uint8_t, 32>(kPlaces.fromSecond[c]));
      const auto fromThird = BitCast<I8<32>>(Load<uint8_t, 32>(kPlaces.fromThird[c]));
      const U8<32> mixed = fromThird ? third : (fromSecond ? second : first);
      return ShuffleBytes(mixed, Load<uint8_t, 32>(kPlaces.order[c]));
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
