// The operations of vec.h on 64-bit ARM.
#pragma once

#include <arm_neon.h>

namespace quillon::QUILLON_LEVEL::native {

// ---- bytes -------------------------------------------------------------------------------------

QUILLON_INLINE U8<16> AddSaturate(U8<16> a, U8<16> b) {
  return BitCast<U8<16>>(vqaddq_u8(BitCast<uint8x16_t>(a), BitCast<uint8x16_t>(b)));
}
QUILLON_INLINE U8<16> SubSaturate(U8<16> a, U8<16> b) {
  return BitCast<U8<16>>(vqsubq_u8(BitCast<uint8x16_t>(a), BitCast<uint8x16_t>(b)));
}
QUILLON_INLINE U8<16> MulSaturate(U8<16> a, U8<16> b) {
  const auto first = BitCast<uint8x16_t>(a), second = BitCast<uint8x16_t>(b);
  const uint16x8_t low = vmull_u8(vget_low_u8(first), vget_low_u8(second));
  return BitCast<U8<16>>(vqmovn_high_u16(vqmovn_u16(low), vmull_high_u8(first, second)));
}
QUILLON_INLINE U8<16> Average(U8<16> a, U8<16> b) {
  return BitCast<U8<16>>(vrhaddq_u8(BitCast<uint8x16_t>(a), BitCast<uint8x16_t>(b)));
}
// Pairs of columns go down in 16 bits each.
template <int N>
using Eights = U16<N / 2>;
QUILLON_INLINE void AddEights(U16<8>& sums, U8<16> bytes) {
  sums = BitCast<U16<8>>(vpadalq_u8(BitCast<uint16x8_t>(sums), BitCast<uint8x16_t>(bytes)));
}
QUILLON_INLINE U64<2> SumsOfEights(U16<8> sums) {
  return BitCast<U64<2>>(vpaddlq_u32(vpaddlq_u16(BitCast<uint16x8_t>(sums))));
}
QUILLON_INLINE U64<2> SumsOf8(U8<16> v) {
  return SumsOfEights(BitCast<U16<8>>(vpaddlq_u8(BitCast<uint8x16_t>(v))));
}

// Each top bit is moved to the bit of its place within eight bytes; their sums are the two halves.
QUILLON_INLINE uint32_t MoveMask(U8<16> v) {
  constexpr U8<16> kBits = {1, 2, 4, 8, 16, 32, 64, 128, 1, 2, 4, 8, 16, 32, 64, 128};
  const int8x16_t signs = vshrq_n_s8(BitCast<int8x16_t>(v), 7);
  const uint8x16_t bits = vandq_u8(BitCast<uint8x16_t>(signs), BitCast<uint8x16_t>(kBits));
  return vaddv_u8(vget_low_u8(bits)) | static_cast<uint32_t>(vaddv_u8(vget_high_u8(bits))) << 8;
}
QUILLON_INLINE uint32_t MoveWordMask(U32<4> v) {
  constexpr U32<4> kPlaces = {0, 1, 2, 3};
  return vaddvq_u32(BitCast<uint32x4_t>(v >> 31 << kPlaces));
}

// The table look-up gives 0 for every place beyond the table: so bits 4 to 6 are cut off.
QUILLON_INLINE U8<16> ShuffleBytes(U8<16> table, U8<16> places) {
  return BitCast<U8<16>>(
      vqtbl1q_u8(BitCast<uint8x16_t>(table), BitCast<uint8x16_t>(places & 0x8F)));
}
QUILLON_INLINE U8<16> ShuffleBytePairs(U8<16> first, U8<16> second, U8<16> places) {
  const uint8x16x2_t tables = {{BitCast<uint8x16_t>(first), BitCast<uint8x16_t>(second)}};
  return BitCast<U8<16>>(vqtbl2q_u8(tables, BitCast<uint8x16_t>(places)));
}
QUILLON_INLINE U8<16> BlendByTopBit(U8<16> a, U8<16> b, U8<16> by) {
  return BitCast<I8<16>>(by) < 0 ? b : a;
}

// A table of 256 bytes: each quarter answers for its own 64 places, and leaves the others be.
using TablePart = uint8x16x4_t;
QUILLON_INLINE TablePart LoadTablePart(const uint8_t* from) { return vld1q_u8_x4(from); }
QUILLON_INLINE U8<16> LookUp(const TablePart (&parts)[4], U8<16> places) {
  uint8x16_t found = vqtbl4q_u8(parts[0], BitCast<uint8x16_t>(places));
  found = vqtbx4q_u8(found, parts[1], BitCast<uint8x16_t>(places - 64));
  found = vqtbx4q_u8(found, parts[2], BitCast<uint8x16_t>(places - 128));
  return BitCast<U8<16>>(vqtbx4q_u8(found, parts[3], BitCast<uint8x16_t>(places - 192)));
}

QUILLON_INLINE void Deinterleave(U8<16>& a, U8<16>& b, U8<16>& c) {
  constexpr U8<16> kEveryThird = {0, 3, 6, 9, 12, 15, 18, 21, 24, 27, 30, 33, 36, 39, 42, 45};
  const uint8x16x3_t pixels = {
      {BitCast<uint8x16_t>(a), BitCast<uint8x16_t>(b), BitCast<uint8x16_t>(c)}};
  const auto plane = [&](uint8_t first) {
    return BitCast<U8<16>>(vqtbl3q_u8(pixels, BitCast<uint8x16_t>(kEveryThird + first)));
  };
  a = plane(0), b = plane(1), c = plane(2);
}

// ---- any lanes ---------------------------------------------------------------------------------

template <class V>
QUILLON_INLINE V ShiftLeft(V v, int bits) {
  return v << bits;
}
template <class V>
QUILLON_INLINE V ShiftRight(V v, int bits) {
  return v >> bits;
}

// ---- 16-bit lanes ------------------------------------------------------------------------------

namespace neon_detail {
// The high halves of 32-bit lanes.
QUILLON_INLINE uint16x8_t HighHalves(uint32x4_t low, uint32x4_t high) {
  return vuzp2q_u16(vreinterpretq_u16_u32(low), vreinterpretq_u16_u32(high));
}
}  // namespace neon_detail

QUILLON_INLINE U16<8> MulHigh(U16<8> a, U16<8> b) {
  const auto x = BitCast<uint16x8_t>(a), y = BitCast<uint16x8_t>(b);
  return BitCast<U16<8>>(
      neon_detail::HighHalves(vmull_u16(vget_low_u16(x), vget_low_u16(y)), vmull_high_u16(x, y)));
}
QUILLON_INLINE I16<8> MulHigh(I16<8> a, I16<8> b) {
  const auto x = BitCast<int16x8_t>(a), y = BitCast<int16x8_t>(b);
  const int32x4_t low = vmull_s16(vget_low_s16(x), vget_low_s16(y));
  return BitCast<I16<8>>(neon_detail::HighHalves(vreinterpretq_u32_s32(low),
                                                 vreinterpretq_u32_s32(vmull_high_s16(x, y))));
}
QUILLON_INLINE I32<4> DotPairs(I16<8> a, I16<8> b) {
  const auto x = BitCast<int16x8_t>(a), y = BitCast<int16x8_t>(b);
  return BitCast<I32<4>>(
      vpaddq_s32(vmull_s16(vget_low_s16(x), vget_low_s16(y)), vmull_high_s16(x, y)));
}
QUILLON_INLINE I16<8> DotBytePairs(U8<16> a, I8<16> b) {
  const auto even = BitCast<I16<8>>(EvenBytes(a)) * (BitCast<I16<8>>(b) << 8 >> 8);
  return even + BitCast<I16<8>>(OddBytes(a)) * (BitCast<I16<8>>(b) >> 8);
}
QUILLON_INLINE U8<16> PackWithin16(I16<8> a, I16<8> b) {
  return BitCast<U8<16>>(
      vqmovun_high_s16(vqmovun_s16(BitCast<int16x8_t>(a)), BitCast<int16x8_t>(b)));
}
QUILLON_INLINE I16<8> PackWithin16(I32<4> a, I32<4> b) {
  return BitCast<I16<8>>(vqmovn_high_s32(vqmovn_s32(BitCast<int32x4_t>(a)), BitCast<int32x4_t>(b)));
}
QUILLON_INLINE I16<8> LoadWidened(const uint8_t* from, I16<8>) {
  return BitCast<I16<8>>(vmovl_u8(vld1_u8(from)));
}
QUILLON_INLINE void StoreWidened(int16_t* to, U8<16> bytes) {
  Store(to, vmovl_u8(vget_low_u8(BitCast<uint8x16_t>(bytes))));
  Store(to + 8, vmovl_high_u8(BitCast<uint8x16_t>(bytes)));
}

// ---- 32-bit lanes ------------------------------------------------------------------------------

QUILLON_INLINE I32<4> AddDotPairs(I32<4> sum, I16<8> a, I16<8> b) {
  return BitCast<I32<4>>(BitCast<U32<4>>(sum) + BitCast<U32<4>>(DotPairs(a, b)));
}
#if QUILLON_BYTE_DOTS
using DotFactor = uint8_t;
QUILLON_INLINE I32<4> AddDotBytes(I32<4> sum, U8<16> a, U8<16> b) {
  return BitCast<I32<4>>(
      vdotq_u32(BitCast<uint32x4_t>(sum), BitCast<uint8x16_t>(a), BitCast<uint8x16_t>(b)));
}
#endif
QUILLON_INLINE I32<4> LoadBytesAsLongs(const uint8_t* from) {
  uint32_t bytes;
  __builtin_memcpy(&bytes, from, sizeof bytes);
  const uint16x8_t words = vmovl_u8(vcreate_u8(bytes));
  return BitCast<I32<4>>(vmovl_u16(vget_low_u16(words)));
}
QUILLON_INLINE void WidenWords(U16<8> low, U16<8> high, I32<4> (&longs)[4]) {
  longs[0] = BitCast<I32<4>>(vmovl_u16(vget_low_u16(BitCast<uint16x8_t>(low))));
  longs[1] = BitCast<I32<4>>(vmovl_high_u16(BitCast<uint16x8_t>(low)));
  longs[2] = BitCast<I32<4>>(vmovl_u16(vget_low_u16(BitCast<uint16x8_t>(high))));
  longs[3] = BitCast<I32<4>>(vmovl_high_u16(BitCast<uint16x8_t>(high)));
}
QUILLON_INLINE U8<16> PackToBytes(const I32<4> (&values)[4]) {
  return PackWithin16(PackWithin16(values[0], values[1]), PackWithin16(values[2], values[3]));
}
QUILLON_INLINE U32<4> Gather(const uint32_t* from, I32<4> index) {
  return U32<4>{from[index[0]], from[index[1]], from[index[2]], from[index[3]]};
}
QUILLON_INLINE I32<4> PrefixSums(I32<4> v) {
  const int32x4_t none = vdupq_n_s32(0);
  v += BitCast<I32<4>>(vextq_s32(none, BitCast<int32x4_t>(v), 3));
  return v + BitCast<I32<4>>(vextq_s32(none, BitCast<int32x4_t>(v), 2));
}
QUILLON_INLINE I32<4> SplatLast(I32<4> v) {
  return BitCast<I32<4>>(vdupq_laneq_s32(BitCast<int32x4_t>(v), 3));
}

// ---- floating point ----------------------------------------------------------------------------

QUILLON_INLINE F32<4> Sqrt(F32<4> v) {
  return BitCast<F32<4>>(vsqrtq_f32(BitCast<float32x4_t>(v)));
}
QUILLON_INLINE F64<2> Sqrt(F64<2> v) {
  return BitCast<F64<2>>(vsqrtq_f64(BitCast<float64x2_t>(v)));
}
QUILLON_INLINE F32<4> ReciprocalEstimate(F32<4> v) {
  const float32x4_t rough = vrecpeq_f32(BitCast<float32x4_t>(v));  // off by 1 / 256 at the most
  return BitCast<F32<4>>(vmulq_f32(rough, vrecpsq_f32(BitCast<float32x4_t>(v), rough)));
}
QUILLON_INLINE I32<4> RoundToWhole(F32<4> v) {
  return BitCast<I32<4>>(vcvtnq_s32_f32(BitCast<float32x4_t>(v)));
}
QUILLON_INLINE F32<4> MulAdd(F32<4> a, F32<4> b, F32<4> c) {
  return BitCast<F32<4>>(
      vfmaq_f32(BitCast<float32x4_t>(c), BitCast<float32x4_t>(a), BitCast<float32x4_t>(b)));
}

// ---- from all over memory ----------------------------------------------------------------------

QUILLON_INLINE U8<16> CollectBytes(const uint8_t* start, const int32_t* offsets) {
  uint8x16_t bytes = vdupq_n_u8(0);
  bytes = vld1q_lane_u8(start + offsets[0], bytes, 0);
  bytes = vld1q_lane_u8(start + offsets[1], bytes, 1);
  bytes = vld1q_lane_u8(start + offsets[2], bytes, 2);
  bytes = vld1q_lane_u8(start + offsets[3], bytes, 3);
  bytes = vld1q_lane_u8(start + offsets[4], bytes, 4);
  bytes = vld1q_lane_u8(start + offsets[5], bytes, 5);
  bytes = vld1q_lane_u8(start + offsets[6], bytes, 6);
  bytes = vld1q_lane_u8(start + offsets[7], bytes, 7);
  return BitCast<U8<16>>(bytes);
}
QUILLON_INLINE U8<16> CollectBytePairs(const uint8_t* start, const int32_t* offsets) {
  const auto at = [&](int i) {
    uint16_t pair;
    __builtin_memcpy(&pair, start + offsets[i], sizeof pair);
    return pair;
  };
  return BitCast<U8<16>>(U16<8>{at(0), at(1), at(2), at(3), at(4), at(5), at(6), at(7)});
}

template <class V>
QUILLON_INLINE void Keep(V& v) {
  asm("" : "+w"(v));
}

// The compiler's shuffle is the one instruction that there is.
template <class V>
constexpr bool kShiftsBytes = false;
template <int kShift, class V>
V BytesFrom(V low, V high);

}  // namespace quillon::QUILLON_LEVEL::native
