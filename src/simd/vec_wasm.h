// The operations of vec.h on WebAssembly with 128-bit vectors.
#pragma once

#include <wasm_simd128.h>

namespace quillon::QUILLON_LEVEL::native {

// ---- bytes -------------------------------------------------------------------------------------

QUILLON_INLINE U8<16> AddSaturate(U8<16> a, U8<16> b) {
  return BitCast<U8<16>>(wasm_u8x16_add_sat(BitCast<v128_t>(a), BitCast<v128_t>(b)));
}
QUILLON_INLINE U8<16> SubSaturate(U8<16> a, U8<16> b) {
  return BitCast<U8<16>>(wasm_u8x16_sub_sat(BitCast<v128_t>(a), BitCast<v128_t>(b)));
}
QUILLON_INLINE U8<16> MulSaturate(U8<16> a, U8<16> b) {
  const v128_t first = BitCast<v128_t>(a), second = BitCast<v128_t>(b);
  const auto clamped = [](v128_t products) {
    return wasm_u16x8_min(products, wasm_u16x8_splat(255));
  };
  return BitCast<U8<16>>(
      wasm_u8x16_narrow_i16x8(clamped(wasm_u16x8_extmul_low_u8x16(first, second)),
                              clamped(wasm_u16x8_extmul_high_u8x16(first, second))));
}
QUILLON_INLINE U8<16> Average(U8<16> a, U8<16> b) {
  return BitCast<U8<16>>(wasm_u8x16_avgr(BitCast<v128_t>(a), BitCast<v128_t>(b)));
}

// Pairs of columns go down in 16 bits each.
template <int N>
using Eights = U16<N / 2>;
QUILLON_INLINE void AddEights(U16<8>& sums, U8<16> bytes) {
  sums += BitCast<U16<8>>(wasm_u16x8_extadd_pairwise_u8x16(BitCast<v128_t>(bytes)));
}
QUILLON_INLINE U64<2> SumsOfEights(U16<8> sums) {
  const auto quads = BitCast<U64<2>>(wasm_u32x4_extadd_pairwise_u16x8(BitCast<v128_t>(sums)));
  return (quads & 0xFFFFFFFF) + (quads >> 32);
}
QUILLON_INLINE U64<2> SumsOf8(U8<16> v) {
  U16<8> sums = {};
  AddEights(sums, v);
  return SumsOfEights(sums);
}

QUILLON_INLINE uint32_t MoveMask(U8<16> v) { return wasm_i8x16_bitmask(BitCast<v128_t>(v)); }
QUILLON_INLINE uint32_t MoveWordMask(U32<4> v) { return wasm_i32x4_bitmask(BitCast<v128_t>(v)); }

// Places beyond the table give 0: so bits 4 to 6 are cut off.
QUILLON_INLINE U8<16> ShuffleBytes(U8<16> table, U8<16> places) {
  return BitCast<U8<16>>(
      wasm_i8x16_swizzle(BitCast<v128_t>(table), BitCast<v128_t>(places & 0x8F)));
}
QUILLON_INLINE U8<16> BlendByTopBit(U8<16> a, U8<16> b, U8<16> by) {
  return BitCast<I8<16>>(by) < 0 ? b : a;
}

// Two shuffles a plane: of the first 32 bytes, then with the last 16.
QUILLON_INLINE void Deinterleave(U8<16>& a, U8<16>& b, U8<16>& c) {
  const U8<16> blue =
      __builtin_shufflevector(a, b, 0, 3, 6, 9, 12, 15, 18, 21, 24, 27, 30, 0, 0, 0, 0, 0);
  const U8<16> green =
      __builtin_shufflevector(a, b, 1, 4, 7, 10, 13, 16, 19, 22, 25, 28, 31, 0, 0, 0, 0, 0);
  const U8<16> red =
      __builtin_shufflevector(a, b, 2, 5, 8, 11, 14, 17, 20, 23, 26, 29, 0, 0, 0, 0, 0, 0);
  a = __builtin_shufflevector(blue, c, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 17, 20, 23, 26, 29);
  b = __builtin_shufflevector(green, c, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 18, 21, 24, 27, 30);
  c = __builtin_shufflevector(red, c, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 16, 19, 22, 25, 28, 31);
}

// ---- any lanes ---------------------------------------------------------------------------------

// Out of a loop, the compiler would move the spreading of the number of bits over all lanes; then
// it no longer sees that they are alike, and shifts lane by lane. Here it takes the number for a
// new one each time.
template <class V>
QUILLON_INLINE V ShiftLeft(V v, int bits) {
  asm volatile("" : "+r"(bits));
  return v << bits;
}
template <class V>
QUILLON_INLINE V ShiftRight(V v, int bits) {
  asm volatile("" : "+r"(bits));
  return v >> bits;
}

// ---- 16-bit lanes ------------------------------------------------------------------------------

QUILLON_INLINE U16<8> MulHigh(U16<8> a, U16<8> b) {
  const auto x = BitCast<v128_t>(a), y = BitCast<v128_t>(b);
  const auto low = BitCast<U16<8>>(wasm_u32x4_extmul_low_u16x8(x, y));
  const auto high = BitCast<U16<8>>(wasm_u32x4_extmul_high_u16x8(x, y));
  return __builtin_shufflevector(low, high, 1, 3, 5, 7, 9, 11, 13, 15);
}
QUILLON_INLINE I32<4> DotPairs(I16<8> a, I16<8> b) {
  return BitCast<I32<4>>(wasm_i32x4_dot_i16x8(BitCast<v128_t>(a), BitCast<v128_t>(b)));
}
// Products of the even and of the odd places, with 0 for the others. Their high halves stand at odd
// places, so half of them stay where they are.
QUILLON_INLINE I16<8> MulHigh(I16<8> a, I16<8> b) {
  const auto pairs = BitCast<U32<4>>(b);
  const auto even = BitCast<U32<4>>(DotPairs(a, BitCast<I16<8>>(pairs & 0xFFFF)));
  const I32<4> odd = DotPairs(a, BitCast<I16<8>>(pairs & 0xFFFF0000));
  return __builtin_shufflevector(BitCast<I16<8>>(even >> 16), BitCast<I16<8>>(odd), 0, 9, 2, 11, 4,
                                 13, 6, 15);
}
QUILLON_INLINE I16<8> DotBytePairs(U8<16> a, I8<16> b) {
  const auto even = BitCast<I16<8>>(EvenBytes(a)) * (BitCast<I16<8>>(b) << 8 >> 8);
  return even + BitCast<I16<8>>(OddBytes(a)) * (BitCast<I16<8>>(b) >> 8);
}
QUILLON_INLINE U8<16> PackWithin16(I16<8> a, I16<8> b) {
  return BitCast<U8<16>>(wasm_u8x16_narrow_i16x8(BitCast<v128_t>(a), BitCast<v128_t>(b)));
}
QUILLON_INLINE I16<8> PackWithin16(I32<4> a, I32<4> b) {
  return BitCast<I16<8>>(wasm_i16x8_narrow_i32x4(BitCast<v128_t>(a), BitCast<v128_t>(b)));
}
QUILLON_INLINE I16<8> LoadWidened(const uint8_t* from, I16<8>) {
  return BitCast<I16<8>>(wasm_u16x8_load8x8(from));
}
QUILLON_INLINE void StoreWidened(int16_t* to, U8<16> bytes) {
  Store(to, wasm_u16x8_extend_low_u8x16(BitCast<v128_t>(bytes)));
  Store(to + 8, wasm_u16x8_extend_high_u8x16(BitCast<v128_t>(bytes)));
}

// ---- 32-bit lanes ------------------------------------------------------------------------------

QUILLON_INLINE I32<4> AddDotPairs(I32<4> sum, I16<8> a, I16<8> b) {
  return BitCast<I32<4>>(BitCast<U32<4>>(sum) + BitCast<U32<4>>(DotPairs(a, b)));
}
QUILLON_INLINE I32<4> LoadBytesAsLongs(const uint8_t* from) {
  const v128_t words = wasm_u16x8_extend_low_u8x16(wasm_v128_load32_zero(from));
  return BitCast<I32<4>>(wasm_u32x4_extend_low_u16x8(words));
}
QUILLON_INLINE void WidenWords(U16<8> low, U16<8> high, I32<4> (&longs)[4]) {
  longs[0] = BitCast<I32<4>>(wasm_u32x4_extend_low_u16x8(BitCast<v128_t>(low)));
  longs[1] = BitCast<I32<4>>(wasm_u32x4_extend_high_u16x8(BitCast<v128_t>(low)));
  longs[2] = BitCast<I32<4>>(wasm_u32x4_extend_low_u16x8(BitCast<v128_t>(high)));
  longs[3] = BitCast<I32<4>>(wasm_u32x4_extend_high_u16x8(BitCast<v128_t>(high)));
}
QUILLON_INLINE U8<16> PackToBytes(const I32<4> (&values)[4]) {
  return PackWithin16(PackWithin16(values[0], values[1]), PackWithin16(values[2], values[3]));
}
QUILLON_INLINE U32<4> Gather(const uint32_t* from, I32<4> index) {
  return U32<4>{from[index[0]], from[index[1]], from[index[2]], from[index[3]]};
}
QUILLON_INLINE I32<4> PrefixSums(I32<4> v) {
  const I32<4> none = {};
  v += __builtin_shufflevector(none, v, 0, 4, 5, 6);
  return v + __builtin_shufflevector(none, v, 0, 0, 4, 5);
}
QUILLON_INLINE I32<4> SplatLast(I32<4> v) { return __builtin_shufflevector(v, v, 3, 3, 3, 3); }

// ---- floating point ----------------------------------------------------------------------------

QUILLON_INLINE F32<4> Sqrt(F32<4> v) {
  return BitCast<F32<4>>(wasm_f32x4_sqrt(BitCast<v128_t>(v)));
}
QUILLON_INLINE F64<2> Sqrt(F64<2> v) {
  return BitCast<F64<2>>(wasm_f64x2_sqrt(BitCast<v128_t>(v)));
}
QUILLON_INLINE F32<4> ReciprocalEstimate(F32<4> v) { return 1 / v; }
QUILLON_INLINE I32<4> RoundToWhole(F32<4> v) {
  return BitCast<I32<4>>(wasm_i32x4_trunc_sat_f32x4(wasm_f32x4_nearest(BitCast<v128_t>(v))));
}
QUILLON_INLINE F32<4> MulAdd(F32<4> a, F32<4> b, F32<4> c) { return a * b + c; }

// ---- from all over memory ----------------------------------------------------------------------

QUILLON_INLINE U8<16> CollectBytes(const uint8_t* start, const int32_t* offsets) {
  v128_t bytes = wasm_i64x2_splat(0);
  bytes = wasm_v128_load8_lane(start + offsets[0], bytes, 0);
  bytes = wasm_v128_load8_lane(start + offsets[1], bytes, 1);
  bytes = wasm_v128_load8_lane(start + offsets[2], bytes, 2);
  bytes = wasm_v128_load8_lane(start + offsets[3], bytes, 3);
  bytes = wasm_v128_load8_lane(start + offsets[4], bytes, 4);
  bytes = wasm_v128_load8_lane(start + offsets[5], bytes, 5);
  bytes = wasm_v128_load8_lane(start + offsets[6], bytes, 6);
  bytes = wasm_v128_load8_lane(start + offsets[7], bytes, 7);
  return BitCast<U8<16>>(bytes);
}
QUILLON_INLINE U8<16> CollectBytePairs(const uint8_t* start, const int32_t* offsets) {
  v128_t pairs = wasm_i64x2_splat(0);
  pairs = wasm_v128_load16_lane(start + offsets[0], pairs, 0);
  pairs = wasm_v128_load16_lane(start + offsets[1], pairs, 1);
  pairs = wasm_v128_load16_lane(start + offsets[2], pairs, 2);
  pairs = wasm_v128_load16_lane(start + offsets[3], pairs, 3);
  pairs = wasm_v128_load16_lane(start + offsets[4], pairs, 4);
  pairs = wasm_v128_load16_lane(start + offsets[5], pairs, 5);
  pairs = wasm_v128_load16_lane(start + offsets[6], pairs, 6);
  pairs = wasm_v128_load16_lane(start + offsets[7], pairs, 7);
  return BitCast<U8<16>>(pairs);
}

// There are no registers to keep a vector in: the engine that compiles the module assigns them.
template <class V>
QUILLON_INLINE void Keep(V&) {}

// The compiler's shuffle is the one instruction that there is.
template <class V>
constexpr bool kShiftsBytes = false;
template <int kShift, class V>
V BytesFrom(V low, V high);

}  // namespace quillon::QUILLON_LEVEL::native
