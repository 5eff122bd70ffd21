// Row kernels of colour to grey. Compiled once per level.
#include "core/grey_kernels.h"

#include "simd/blocks.h"
#include "simd/deinterleave.h"

namespace quillon::QUILLON_LEVEL {
namespace {

// Weights of 1024; they add up to 1021, so white becomes 252.
constexpr int16_t kBlue = 116, kGreen = 600, kRed = 305;

// value * weight / 1024, truncated, for V of 16-bit lanes holding 0 ... 255: the shift by 6 puts
// the quotient into the high half of the product. Both factors are below 2^15.
template <class V>
QUILLON_INLINE V Weighted(V value, int16_t weight) {
  using Signed = I16<sizeof(V) / 2>;
  return BitCast<V>(MulHigh(BitCast<Signed>(value << 6), Signed{} + weight));
}

template <class V>
QUILLON_INLINE V FixedPointGrey(V blue, V green, V red) {
  return Weighted(blue, kBlue) + Weighted(green, kGreen) + Weighted(red, kRed);
}

uint8_t FixedPointGrey(const uint8_t* bgr) {
  return static_cast<uint8_t>((bgr[0] * kBlue >> 10) + (bgr[1] * kGreen >> 10) +
                              (bgr[2] * kRed >> 10));
}

void GreyRow(const uint8_t* bgr, uint8_t* grey, int count) {
  const int tail = ForEachBlock(count, [&](auto width, int x) {
    const auto p = LoadPlanes<width>(bgr + 3 * x);
    const auto even = FixedPointGrey(EvenBytes(p.blue), EvenBytes(p.green), EvenBytes(p.red));
    const auto odd = FixedPointGrey(OddBytes(p.blue), OddBytes(p.green), OddBytes(p.red));
    Store(grey + x, MergeBytes(even, odd));
  });
  for (int x = tail; x < count; ++x) grey[x] = FixedPointGrey(bgr + 3 * x);
}

void SplitRow(const uint8_t* bgr, uint8_t* plane0, uint8_t* plane1, uint8_t* plane2, int count) {
  const int tail = ForEachBlock(count, [&](auto width, int x) {
    const auto p = LoadPlanes<width>(bgr + 3 * x);
    Store(plane0 + x, p.blue);
    Store(plane1 + x, p.green);
    Store(plane2 + x, p.red);
  });
  for (int x = tail; x < count; ++x) {
    plane0[x] = bgr[3 * x];
    plane1[x] = bgr[3 * x + 1];
    plane2[x] = bgr[3 * x + 2];
  }
}

void DeinterleaveBgr16(uint8_t* first, uint8_t* second, uint8_t* third) {
  const auto a = Load<uint8_t, 16>(first);
  const auto b = Load<uint8_t, 16>(second);
  const auto c = Load<uint8_t, 16>(third);
  const auto p = Deinterleave(a, b, c);
  Store(first, p.blue);
  Store(second, p.green);
  Store(third, p.red);
}

}  // namespace

const GreyKernels grey = {
    .GreyRow = GreyRow, .SplitRow = SplitRow, .DeinterleaveBgr16 = DeinterleaveBgr16};

}  // namespace quillon::QUILLON_LEVEL
