// The operations of vec.h on x86: SSE2, AVX2 and AVX-512, each width where the level has it.
#pragma once

#include <immintrin.h>

namespace quillon::QUILLON_LEVEL::native {

// ---- 16 bytes: every level ---------------------------------------------------------------------

QUILLON_INLINE U8<16> AddSaturate(U8<16> a, U8<16> b) {
  return BitCast<U8<16>>(_mm_adds_epu8(BitCast<__m128i>(a), BitCast<__m128i>(b)));
}
QUILLON_INLINE U8<16> SubSaturate(U8<16> a, U8<16> b) {
  return BitCast<U8<16>>(_mm_subs_epu8(BitCast<__m128i>(a), BitCast<__m128i>(b)));
}
QUILLON_INLINE U8<16> Average(U8<16> a, U8<16> b) {
  return BitCast<U8<16>>(_mm_avg_epu8(BitCast<__m128i>(a), BitCast<__m128i>(b)));
}
QUILLON_INLINE U16<8> MulHigh(U16<8> a, U16<8> b) {
  return BitCast<U16<8>>(_mm_mulhi_epu16(BitCast<__m128i>(a), BitCast<__m128i>(b)));
}
QUILLON_INLINE I16<8> MulHigh(I16<8> a, I16<8> b) {
  return BitCast<I16<8>>(_mm_mulhi_epi16(BitCast<__m128i>(a), BitCast<__m128i>(b)));
}
QUILLON_INLINE I32<4> DotPairs(I16<8> a, I16<8> b) {
  return BitCast<I32<4>>(_mm_madd_epi16(BitCast<__m128i>(a), BitCast<__m128i>(b)));
}
QUILLON_INLINE U8<16> PackWithin16(I16<8> a, I16<8> b) {
  return BitCast<U8<16>>(_mm_packus_epi16(BitCast<__m128i>(a), BitCast<__m128i>(b)));
}
QUILLON_INLINE I16<8> PackWithin16(I32<4> a, I32<4> b) {
  return BitCast<I16<8>>(_mm_packs_epi32(BitCast<__m128i>(a), BitCast<__m128i>(b)));
}
QUILLON_INLINE U64<2> SumsOf8(U8<16> v) {
  return BitCast<U64<2>>(_mm_sad_epu8(BitCast<__m128i>(v), _mm_setzero_si128()));
}
QUILLON_INLINE F32<4> Sqrt(F32<4> v) { return BitCast<F32<4>>(_mm_sqrt_ps(BitCast<__m128>(v))); }
QUILLON_INLINE F64<2> Sqrt(F64<2> v) { return BitCast<F64<2>>(_mm_sqrt_pd(BitCast<__m128d>(v))); }
QUILLON_INLINE F32<4> ReciprocalEstimate(F32<4> v) {
  return BitCast<F32<4>>(_mm_rcp_ps(BitCast<__m128>(v)));
}
QUILLON_INLINE I32<4> RoundToWhole(F32<4> v) {
  return BitCast<I32<4>>(_mm_cvtps_epi32(BitCast<__m128>(v)));
}
QUILLON_INLINE uint32_t MoveMask(U8<16> v) {
  return static_cast<uint32_t>(_mm_movemask_epi8(BitCast<__m128i>(v)));
}
QUILLON_INLINE uint32_t MoveWordMask(U32<4> v) {
  return static_cast<uint32_t>(_mm_movemask_ps(BitCast<__m128>(v)));
}
QUILLON_INLINE I32<4> PrefixSums(I32<4> v) {
  v += BitCast<I32<4>>(_mm_slli_si128(BitCast<__m128i>(v), 4));
  return v + BitCast<I32<4>>(_mm_slli_si128(BitCast<__m128i>(v), 8));
}
QUILLON_INLINE I32<4> SplatLast(I32<4> v) {
  return BitCast<I32<4>>(_mm_shuffle_epi32(BitCast<__m128i>(v), 0xFF));
}
QUILLON_INLINE I16<8> LoadWidened(const uint8_t* from, I16<8>) {
  const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from));
  return BitCast<I16<8>>(_mm_unpacklo_epi8(bytes, _mm_setzero_si128()));
}
QUILLON_INLINE void StoreWidened(int16_t* to, U8<16> bytes) {
#if QUILLON_AVX2
  Store(to, _mm256_cvtepu8_epi16(BitCast<__m128i>(bytes)));
#else
  const __m128i zero = _mm_setzero_si128();
  Store(to, _mm_unpacklo_epi8(BitCast<__m128i>(bytes), zero));
  Store(to + 8, _mm_unpackhi_epi8(BitCast<__m128i>(bytes), zero));
#endif
}
QUILLON_INLINE I16<8> DotBytePairs(U8<16> a, I8<16> b) {
#if QUILLON_AVX2
  return BitCast<I16<8>>(_mm_maddubs_epi16(BitCast<__m128i>(a), BitCast<__m128i>(b)));
#else
  return BitCast<I16<8>>(EvenBytes(a)) * (BitCast<I16<8>>(b) << 8 >> 8) +
         BitCast<I16<8>>(OddBytes(a)) * (BitCast<I16<8>>(b) >> 8);
#endif
}

QUILLON_INLINE U8<16> CollectBytes(const uint8_t* start, const int32_t* offsets) {
  __m128i bytes = _mm_setzero_si128();
  const auto at = [&](int i) { return start[offsets[i]]; };
#if QUILLON_AVX2
  bytes = _mm_insert_epi8(bytes, at(0), 0);
  bytes = _mm_insert_epi8(bytes, at(1), 1);
  bytes = _mm_insert_epi8(bytes, at(2), 2);
  bytes = _mm_insert_epi8(bytes, at(3), 3);
  bytes = _mm_insert_epi8(bytes, at(4), 4);
  bytes = _mm_insert_epi8(bytes, at(5), 5);
  bytes = _mm_insert_epi8(bytes, at(6), 6);
  bytes = _mm_insert_epi8(bytes, at(7), 7);
#else  // the floor inserts two bytes at once
  bytes = _mm_insert_epi16(bytes, at(0) | at(1) << 8, 0);
  bytes = _mm_insert_epi16(bytes, at(2) | at(3) << 8, 1);
  bytes = _mm_insert_epi16(bytes, at(4) | at(5) << 8, 2);
  bytes = _mm_insert_epi16(bytes, at(6) | at(7) << 8, 3);
#endif
  return BitCast<U8<16>>(bytes);
}

QUILLON_INLINE U8<16> CollectBytePairs(const uint8_t* start, const int32_t* offsets) {
  const auto at = [&](int i) {
    uint16_t pair;
    __builtin_memcpy(&pair, start + offsets[i], sizeof pair);
    return pair;
  };
  __m128i pairs = _mm_setzero_si128();
  pairs = _mm_insert_epi16(pairs, at(0), 0);
  pairs = _mm_insert_epi16(pairs, at(1), 1);
  pairs = _mm_insert_epi16(pairs, at(2), 2);
  pairs = _mm_insert_epi16(pairs, at(3), 3);
  pairs = _mm_insert_epi16(pairs, at(4), 4);
  pairs = _mm_insert_epi16(pairs, at(5), 5);
  pairs = _mm_insert_epi16(pairs, at(6), 6);
  pairs = _mm_insert_epi16(pairs, at(7), 7);
  return BitCast<U8<16>>(pairs);
}

// Four perfect shuffles of the 48 bytes: each moves byte i to place 2i mod 47, and 16 i mod 47 is
// where byte i = 3j + c belongs, namely 16c + j.
QUILLON_INLINE void Deinterleave(U8<16>& a, U8<16>& b, U8<16>& c) {
  __m128i r0 = BitCast<__m128i>(a), r1 = BitCast<__m128i>(b), r2 = BitCast<__m128i>(c);
  for (int step = 0; step < 4; ++step) {
    const __m128i low = _mm_unpacklo_epi8(r0, _mm_unpackhi_epi64(r1, r1));
    const __m128i middle = _mm_unpacklo_epi8(_mm_unpackhi_epi64(r0, r0), r2);
    const __m128i high = _mm_unpacklo_epi8(r1, _mm_unpackhi_epi64(r2, r2));
    r0 = low, r1 = middle, r2 = high;
  }
  a = BitCast<U8<16>>(r0), b = BitCast<U8<16>>(r1), c = BitCast<U8<16>>(r2);
}

// "v": any vector register of the level.
template <class V>
QUILLON_INLINE void Keep(V& v) {
  asm("" : "+v"(v));
}

#if QUILLON_AVX2

// ---- 32 bytes ----------------------------------------------------------------------------------

QUILLON_INLINE U8<32> AddSaturate(U8<32> a, U8<32> b) {
  return BitCast<U8<32>>(_mm256_adds_epu8(BitCast<__m256i>(a), BitCast<__m256i>(b)));
}
QUILLON_INLINE U8<32> SubSaturate(U8<32> a, U8<32> b) {
  return BitCast<U8<32>>(_mm256_subs_epu8(BitCast<__m256i>(a), BitCast<__m256i>(b)));
}
QUILLON_INLINE U8<32> Average(U8<32> a, U8<32> b) {
  return BitCast<U8<32>>(_mm256_avg_epu8(BitCast<__m256i>(a), BitCast<__m256i>(b)));
}
QUILLON_INLINE U16<16> MulHigh(U16<16> a, U16<16> b) {
  return BitCast<U16<16>>(_mm256_mulhi_epu16(BitCast<__m256i>(a), BitCast<__m256i>(b)));
}
QUILLON_INLINE I16<16> MulHigh(I16<16> a, I16<16> b) {
  return BitCast<I16<16>>(_mm256_mulhi_epi16(BitCast<__m256i>(a), BitCast<__m256i>(b)));
}
QUILLON_INLINE I32<8> DotPairs(I16<16> a, I16<16> b) {
  return BitCast<I32<8>>(_mm256_madd_epi16(BitCast<__m256i>(a), BitCast<__m256i>(b)));
}
QUILLON_INLINE U8<32> PackWithin16(I16<16> a, I16<16> b) {
  return BitCast<U8<32>>(_mm256_packus_epi16(BitCast<__m256i>(a), BitCast<__m256i>(b)));
}
QUILLON_INLINE I16<16> PackWithin16(I32<8> a, I32<8> b) {
  return BitCast<I16<16>>(_mm256_packs_epi32(BitCast<__m256i>(a), BitCast<__m256i>(b)));
}
QUILLON_INLINE U64<4> SumsOf8(U8<32> v) {
  return BitCast<U64<4>>(_mm256_sad_epu8(BitCast<__m256i>(v), _mm256_setzero_si256()));
}
QUILLON_INLINE F32<8> Sqrt(F32<8> v) { return BitCast<F32<8>>(_mm256_sqrt_ps(BitCast<__m256>(v))); }
QUILLON_INLINE F64<4> Sqrt(F64<4> v) {
  return BitCast<F64<4>>(_mm256_sqrt_pd(BitCast<__m256d>(v)));
}
QUILLON_INLINE F32<8> ReciprocalEstimate(F32<8> v) {
  return BitCast<F32<8>>(_mm256_rcp_ps(BitCast<__m256>(v)));
}
QUILLON_INLINE I32<8> RoundToWhole(F32<8> v) {
  return BitCast<I32<8>>(_mm256_cvtps_epi32(BitCast<__m256>(v)));
}
QUILLON_INLINE uint32_t MoveMask(U8<32> v) {
  return static_cast<uint32_t>(_mm256_movemask_epi8(BitCast<__m256i>(v)));
}
QUILLON_INLINE uint32_t MoveWordMask(U32<8> v) {
  return static_cast<uint32_t>(_mm256_movemask_ps(BitCast<__m256>(v)));
}
QUILLON_INLINE I32<8> PrefixSums(I32<8> v) {
  v += BitCast<I32<8>>(_mm256_slli_si256(BitCast<__m256i>(v), 4));
  v += BitCast<I32<8>>(_mm256_slli_si256(BitCast<__m256i>(v), 8));
  const __m256i totals = _mm256_shuffle_epi32(BitCast<__m256i>(v), 0xFF);
  return v + BitCast<I32<8>>(_mm256_permute2x128_si256(totals, totals, 0x08));
}
QUILLON_INLINE I32<8> SplatLast(I32<8> v) {
  return BitCast<I32<8>>(_mm256_permutevar8x32_epi32(BitCast<__m256i>(v), _mm256_set1_epi32(7)));
}
// One instruction, where the compiler's own way takes four.
QUILLON_INLINE I16<16> LoadWidened(const uint8_t* from, I16<16>) {
  const auto* bytes = reinterpret_cast<const __m128i*>(from);
  return BitCast<I16<16>>(_mm256_cvtepu8_epi16(_mm_loadu_si128(bytes)));
}
QUILLON_INLINE I16<16> DotBytePairs(U8<32> a, I8<32> b) {
  return BitCast<I16<16>>(_mm256_maddubs_epi16(BitCast<__m256i>(a), BitCast<__m256i>(b)));
}
QUILLON_INLINE U8<16> ShuffleBytes(U8<16> table, U8<16> places) {
  return BitCast<U8<16>>(_mm_shuffle_epi8(BitCast<__m128i>(table), BitCast<__m128i>(places)));
}
QUILLON_INLINE U8<32> ShuffleBytes(U8<32> table, U8<32> places) {
  return BitCast<U8<32>>(_mm256_shuffle_epi8(BitCast<__m256i>(table), BitCast<__m256i>(places)));
}
QUILLON_INLINE U8<32> BlendByTopBit(U8<32> a, U8<32> b, U8<32> by) {
  return BitCast<U8<32>>(
      _mm256_blendv_epi8(BitCast<__m256i>(a), BitCast<__m256i>(b), BitCast<__m256i>(by)));
}

#endif  // QUILLON_AVX2

#if QUILLON_AVX512

// ---- 64 bytes ----------------------------------------------------------------------------------

QUILLON_INLINE U8<64> AddSaturate(U8<64> a, U8<64> b) {
  return BitCast<U8<64>>(_mm512_adds_epu8(BitCast<__m512i>(a), BitCast<__m512i>(b)));
}
QUILLON_INLINE U8<64> SubSaturate(U8<64> a, U8<64> b) {
  return BitCast<U8<64>>(_mm512_subs_epu8(BitCast<__m512i>(a), BitCast<__m512i>(b)));
}
QUILLON_INLINE U8<64> Average(U8<64> a, U8<64> b) {
  return BitCast<U8<64>>(_mm512_avg_epu8(BitCast<__m512i>(a), BitCast<__m512i>(b)));
}
QUILLON_INLINE U16<32> MulHigh(U16<32> a, U16<32> b) {
  return BitCast<U16<32>>(_mm512_mulhi_epu16(BitCast<__m512i>(a), BitCast<__m512i>(b)));
}
QUILLON_INLINE I16<32> MulHigh(I16<32> a, I16<32> b) {
  return BitCast<I16<32>>(_mm512_mulhi_epi16(BitCast<__m512i>(a), BitCast<__m512i>(b)));
}
QUILLON_INLINE I32<16> DotPairs(I16<32> a, I16<32> b) {
  return BitCast<I32<16>>(_mm512_madd_epi16(BitCast<__m512i>(a), BitCast<__m512i>(b)));
}
QUILLON_INLINE U8<64> PackWithin16(I16<32> a, I16<32> b) {
  return BitCast<U8<64>>(_mm512_packus_epi16(BitCast<__m512i>(a), BitCast<__m512i>(b)));
}
QUILLON_INLINE I16<32> PackWithin16(I32<16> a, I32<16> b) {
  return BitCast<I16<32>>(_mm512_packs_epi32(BitCast<__m512i>(a), BitCast<__m512i>(b)));
}
QUILLON_INLINE U64<8> SumsOf8(U8<64> v) {
  return BitCast<U64<8>>(_mm512_sad_epu8(BitCast<__m512i>(v), _mm512_setzero_si512()));
}
QUILLON_INLINE F32<16> Sqrt(F32<16> v) {
  return BitCast<F32<16>>(_mm512_maskz_sqrt_ps(0xFFFF, BitCast<__m512>(v)));
}
QUILLON_INLINE F64<8> Sqrt(F64<8> v) {
  return BitCast<F64<8>>(_mm512_maskz_sqrt_pd(0xFF, BitCast<__m512d>(v)));
}
QUILLON_INLINE F32<16> ReciprocalEstimate(F32<16> v) {
  return BitCast<F32<16>>(_mm512_maskz_rcp14_ps(0xFFFF, BitCast<__m512>(v)));
}
QUILLON_INLINE I32<16> RoundToWhole(F32<16> v) {
  return BitCast<I32<16>>(_mm512_maskz_cvtps_epi32(0xFFFF, BitCast<__m512>(v)));
}
QUILLON_INLINE uint64_t MoveMask(U8<64> v) { return _mm512_movepi8_mask(BitCast<__m512i>(v)); }
QUILLON_INLINE uint32_t MoveWordMask(U32<16> v) {
  return _mm512_movepi32_mask(BitCast<__m512i>(v));
}
QUILLON_INLINE I32<16> PrefixSums(I32<16> v) {
  v += BitCast<I32<16>>(_mm512_bslli_epi128(BitCast<__m512i>(v), 4));
  v += BitCast<I32<16>>(_mm512_bslli_epi128(BitCast<__m512i>(v), 8));
  const I32<16> none = {};  // its lanes are 16 and on
  const I32<16> one =
      __builtin_shufflevector(v, none, 16, 16, 16, 16, 3, 3, 3, 3, 7, 7, 7, 7, 11, 11, 11, 11);
  const I32<16> two =
      __builtin_shufflevector(v, none, 16, 16, 16, 16, 16, 16, 16, 16, 3, 3, 3, 3, 7, 7, 7, 7);
  const I32<16> three =
      __builtin_shufflevector(v, none, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 3, 3, 3, 3);
  return (v + one) + (two + three);
}
QUILLON_INLINE I32<16> SplatLast(I32<16> v) {
  return __builtin_shufflevector(v, v, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15,
                                 15);
}
QUILLON_INLINE I16<32> LoadWidened(const uint8_t* from, I16<32>) {
  const auto* bytes = reinterpret_cast<const __m256i*>(from);
  return BitCast<I16<32>>(_mm512_cvtepu8_epi16(_mm256_loadu_si256(bytes)));
}
QUILLON_INLINE I16<32> DotBytePairs(U8<64> a, I8<64> b) {
  return BitCast<I16<32>>(_mm512_maddubs_epi16(BitCast<__m512i>(a), BitCast<__m512i>(b)));
}
QUILLON_INLINE U8<64> ShuffleBytes(U8<64> table, U8<64> places) {
  return BitCast<U8<64>>(_mm512_shuffle_epi8(BitCast<__m512i>(table), BitCast<__m512i>(places)));
}
QUILLON_INLINE U8<16> ShuffleBytePairs(U8<16> first, U8<16> second, U8<16> places) {
  return BitCast<U8<16>>(_mm_permutex2var_epi8(BitCast<__m128i>(first), BitCast<__m128i>(places),
                                               BitCast<__m128i>(second)));
}
using DotFactor = int8_t;
QUILLON_INLINE I32<4> AddDotBytes(I32<4> sum, U8<16> a, U8<16> b) {
  return BitCast<I32<4>>(
      _mm_dpbusd_epi32(BitCast<__m128i>(sum), BitCast<__m128i>(a), BitCast<__m128i>(b)));
}
QUILLON_INLINE I32<8> AddDotBytes(I32<8> sum, U8<32> a, U8<32> b) {
  return BitCast<I32<8>>(
      _mm256_dpbusd_epi32(BitCast<__m256i>(sum), BitCast<__m256i>(a), BitCast<__m256i>(b)));
}
QUILLON_INLINE I32<16> AddDotBytes(I32<16> sum, U8<64> a, U8<64> b) {
  return BitCast<I32<16>>(
      _mm512_dpbusd_epi32(BitCast<__m512i>(sum), BitCast<__m512i>(a), BitCast<__m512i>(b)));
}
QUILLON_INLINE U8<64> MergeLowBytes(I32<16> a, I32<16> b, I32<16> c, I32<16> d) {
  const __m512i lowest = _mm512_maskz_broadcast_i32x4(
      0xFFFF, _mm_setr_epi32(0x00000000, 0x04040404, 0x08080808, 0x0C0C0C0C));
  __m512i merged = BitCast<__m512i>(a);
  merged = _mm512_mask_shuffle_epi8(merged, 0x2222222222222222, BitCast<__m512i>(b), lowest);
  merged = _mm512_mask_shuffle_epi8(merged, 0x4444444444444444, BitCast<__m512i>(c), lowest);
  merged = _mm512_mask_shuffle_epi8(merged, 0x8888888888888888, BitCast<__m512i>(d), lowest);
  return BitCast<U8<64>>(merged);
}

QUILLON_INLINE U8<64> SievedBytes(U8<64> bytes, uint64_t bits) {
  return BitCast<U8<64>>(_mm512_maskz_compress_epi8(bits, BitCast<__m512i>(bytes)));
}
QUILLON_INLINE U64<8> BitCounts(U64<8> v) {
  return BitCast<U64<8>>(_mm512_popcnt_epi64(BitCast<__m512i>(v)));
}
QUILLON_INLINE U64<8> ChooseBits(U64<8> by, U64<8> a, U64<8> b) {
  return BitCast<U64<8>>(_mm512_ternarylogic_epi64(BitCast<__m512i>(by), BitCast<__m512i>(a),
                                                   BitCast<__m512i>(b), 0xCA));
}

// Tables of 64 bytes a part: one byte permute reaches two of them.
using TablePart = U8<64>;
QUILLON_INLINE TablePart LoadTablePart(const uint8_t* from) { return Load<uint8_t, 64>(from); }
QUILLON_INLINE U8<64> LookUp(const TablePart (&parts)[1], U8<64> places) {
  return BitCast<U8<64>>(_mm512_maskz_permutexvar_epi8(~uint64_t{0}, BitCast<__m512i>(places),
                                                       BitCast<__m512i>(parts[0])));
}
QUILLON_INLINE __m512i LookUpTwo(TablePart first, TablePart second, U8<64> places) {
  return _mm512_permutex2var_epi8(BitCast<__m512i>(first), BitCast<__m512i>(places),
                                  BitCast<__m512i>(second));
}
QUILLON_INLINE U8<64> LookUp(const TablePart (&parts)[2], U8<64> places) {
  return BitCast<U8<64>>(LookUpTwo(parts[0], parts[1], places));
}
QUILLON_INLINE U8<64> LookUp(const TablePart (&parts)[3], U8<64> places) {
  const __mmask64 isUpper = _mm512_movepi8_mask(BitCast<__m512i>(places));
  return BitCast<U8<64>>(_mm512_mask_permutexvar_epi8(LookUpTwo(parts[0], parts[1], places),
                                                      isUpper, BitCast<__m512i>(places),
                                                      BitCast<__m512i>(parts[2])));
}
QUILLON_INLINE U8<64> LookUp(const TablePart (&parts)[4], U8<64> places) {
  // The mask before the permutes: after them, it took 1.3 times as long.
  const __mmask64 isUpper = _mm512_movepi8_mask(BitCast<__m512i>(places));
  return BitCast<U8<64>>(_mm512_mask_blend_epi8(isUpper, LookUpTwo(parts[0], parts[1], places),
                                                LookUpTwo(parts[2], parts[3], places)));
}

// Sixteen bytes of each of four lines, which are put in their places while they are loaded.
QUILLON_INLINE U8<64> LoadFourLines(const uint8_t* line, ptrdiff_t pitch) {
  const auto at = [&](int i) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(line + i * pitch));
  };
  __m512i lines = _mm512_zextsi128_si512(at(0));
  lines = _mm512_mask_broadcast_i32x4(lines, 0x00F0, at(1));
  lines = _mm512_mask_broadcast_i32x4(lines, 0x0F00, at(2));
  return BitCast<U8<64>>(_mm512_mask_broadcast_i32x4(lines, 0xF000, at(3)));
}

#endif  // QUILLON_AVX512

// ---- any width ---------------------------------------------------------------------------------

template <class V>
QUILLON_INLINE V ShiftLeft(V v, int bits) {
  return v << bits;
}
template <class V>
QUILLON_INLINE V ShiftRight(V v, int bits) {
  return v >> bits;
}

template <class V>
QUILLON_INLINE V MulSaturate(V a, V b) {
#if QUILLON_AVX2
  using Words = U16<sizeof(V) / 2>;
  const auto clamped = [](Words products) { return Min(products, Words{} + 255); };
  return MergeBytes(clamped(EvenBytes(a) * EvenBytes(b)), clamped(OddBytes(a) * OddBytes(b)));
#else
  // There is no minimum of these lanes. What products are short of 255, 0 where they are not, is
  // 255 less the result.
  const auto rest = [](V c, V d) {
    const auto products = BitCast<U16<8>>(c) * BitCast<U16<8>>(d);
    return BitCast<I16<8>>(_mm_subs_epu16(_mm_set1_epi16(255), BitCast<__m128i>(products)));
  };
  const V zero = {};
  return ~PackWithin16(rest(ZipLow(a, zero), ZipLow(b, zero)),
                       rest(ZipHigh(a, zero), ZipHigh(b, zero)));
#endif
}

template <int N>
using Eights = U64<N / 8>;
template <class Sums, class V>
QUILLON_INLINE void AddEights(Sums& sums, V bytes) {
  sums += SumsOf8(bytes);
}
template <class Sums>
QUILLON_INLINE Sums SumsOfEights(Sums sums) {
  return sums;
}

// ---- one register of the level -----------------------------------------------------------------

template <class Sum, class V>
QUILLON_INLINE Sum AddDotPairs(Sum sum, V a, V b) {
#if QUILLON_AVX512
  if constexpr (sizeof(V) == 64) {
    return BitCast<Sum>(
        _mm512_dpwssd_epi32(BitCast<__m512i>(sum), BitCast<__m512i>(a), BitCast<__m512i>(b)));
  }
#endif
  using Wrapping = U32<sizeof(V) / 4>;
  return BitCast<Sum>(BitCast<Wrapping>(sum) + BitCast<Wrapping>(DotPairs(a, b)));
}

template <class V>
QUILLON_INLINE V MulAdd(V a, V b, V c) {
#if QUILLON_AVX512
  if constexpr (sizeof(V) == 64) {
    return BitCast<V>(_mm512_fmadd_ps(BitCast<__m512>(a), BitCast<__m512>(b), BitCast<__m512>(c)));
  }
#endif
  return a * b + c;
}

#if QUILLON_AVX512

QUILLON_INLINE I32<16> LoadBytesAsLongs(const uint8_t* from) {
  const __m128i bytes = BitCast<__m128i>(Load<uint8_t, 16>(from));
  return BitCast<I32<16>>(_mm512_maskz_cvtepu8_epi32(0xFFFF, bytes));
}
QUILLON_INLINE void WidenWords(U16<8> low, U16<8> high, I32<16> (&longs)[1]) {
  longs[0] =
      BitCast<I32<16>>(_mm512_maskz_cvtepu16_epi32(0xFFFF, BitCast<__m256i>(Join(low, high))));
}
QUILLON_INLINE U8<16> PackToBytes(const I32<16> (&values)[1]) {
  return BitCast<U8<16>>(_mm512_maskz_cvtepi32_epi8(0xFFFF, BitCast<__m512i>(values[0])));
}
QUILLON_INLINE U32<16> Gather(const uint32_t* from, I32<16> index) {
  return BitCast<U32<16>>(_mm512_mask_i32gather_epi32(_mm512_setzero_si512(), 0xFFFF,
                                                      BitCast<__m512i>(index), from, 4));
}

#elif QUILLON_AVX2

QUILLON_INLINE I32<8> LoadBytesAsLongs(const uint8_t* from) {
  const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from));
  return BitCast<I32<8>>(_mm256_cvtepu8_epi32(bytes));
}
QUILLON_INLINE void WidenWords(U16<8> low, U16<8> high, I32<8> (&longs)[2]) {
  longs[0] = BitCast<I32<8>>(_mm256_cvtepu16_epi32(BitCast<__m128i>(low)));
  longs[1] = BitCast<I32<8>>(_mm256_cvtepu16_epi32(BitCast<__m128i>(high)));
}
QUILLON_INLINE U8<16> PackToBytes(const I32<8> (&values)[2]) {
  const auto mixed = BitCast<U64<4>>(PackWithin16(values[0], values[1]));
  const auto words = BitCast<I16<16>>(__builtin_shufflevector(mixed, mixed, 0, 2, 1, 3));
  return PackWithin16(Low(words), High(words));
}
QUILLON_INLINE U32<8> Gather(const uint32_t* from, I32<8> index) {
  const auto* ints = reinterpret_cast<const int*>(from);
  return BitCast<U32<8>>(_mm256_i32gather_epi32(ints, BitCast<__m256i>(index), 4));
}

#else

QUILLON_INLINE I32<4> LoadBytesAsLongs(const uint8_t* from) {
  int32_t bytes;
  __builtin_memcpy(&bytes, from, 4);
  const __m128i zero = _mm_setzero_si128();
  const __m128i words = _mm_unpacklo_epi8(_mm_cvtsi32_si128(bytes), zero);
  return BitCast<I32<4>>(_mm_unpacklo_epi16(words, zero));
}
QUILLON_INLINE void WidenWords(U16<8> low, U16<8> high, I32<4> (&longs)[4]) {
  const __m128i zero = _mm_setzero_si128();
  longs[0] = BitCast<I32<4>>(_mm_unpacklo_epi16(BitCast<__m128i>(low), zero));
  longs[1] = BitCast<I32<4>>(_mm_unpackhi_epi16(BitCast<__m128i>(low), zero));
  longs[2] = BitCast<I32<4>>(_mm_unpacklo_epi16(BitCast<__m128i>(high), zero));
  longs[3] = BitCast<I32<4>>(_mm_unpackhi_epi16(BitCast<__m128i>(high), zero));
}
QUILLON_INLINE U8<16> PackToBytes(const I32<4> (&values)[4]) {
  return PackWithin16(PackWithin16(values[0], values[1]), PackWithin16(values[2], values[3]));
}
QUILLON_INLINE U32<4> Gather(const uint32_t* from, I32<4> index) {
  return U32<4>{from[index[0]], from[index[1]], from[index[2]], from[index[3]]};
}

#endif

// BytesFrom, where the compiler's shuffle would take more instructions.
template <class V>
constexpr bool kShiftsBytes = sizeof(V) == 16 || (sizeof(V) == 32 && !QUILLON_AVX512);

template <int kShift, class V>
QUILLON_INLINE V BytesFrom(V low, V high) {
  if constexpr (sizeof(V) == 16) {
    return BitCast<V>(_mm_slli_si128(BitCast<__m128i>(high), 16 - kShift) |
                      _mm_srli_si128(BitCast<__m128i>(low), kShift));
#if QUILLON_AVX2
  } else {
    const __m256i from = BitCast<__m256i>(low), to = BitCast<__m256i>(high);
    const __m256i next = _mm256_permute2x128_si256(from, to, 0x21);
    if constexpr (kShift < 16) return BitCast<V>(_mm256_alignr_epi8(next, from, kShift));
    return BitCast<V>(_mm256_alignr_epi8(to, next, kShift % 16));
#endif
  }
}

}  // namespace quillon::QUILLON_LEVEL::native
