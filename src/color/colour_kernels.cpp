// Row kernels of the colour spaces. Compiled once per level.
//
// The Lab tables are evaluated in single precision, and a byte is trusted only where its value
// keeps a margin from the next edge between two bytes. The margins bound, with room to spare, what
// can differ; e = 2^-24 is half a unit in the last place of 1. X, Y, Z lie within 3 e of
// themselves, 1 e of their roots; these are computed within 3.1 e (products 1.4, polynomial 0.7,
// sum 1). That the exponent is not quite a third is left out: t^(1/3) 3.33333e-7 ln t is 0 to
// 3.7e-7, or for t > 1 below 2e-8 the other way. So L is off by 295.8 (4.2 e + 3.7e-7), a by
// 691.37 (8.4 e + 3.9e-7), b by 252.054 (8.4 e + 3.9e-7) and a few roundings of the value: below
// 2.4e-4, 6.5e-4, 2.6e-4.
#include "color/colour_kernels.h"

#include "simd/blocks.h"
#include "simd/deinterleave.h"

namespace quillon::QUILLON_LEVEL {
namespace {

constexpr int kLanes = kVectorBytes / 4;
using Real = F32<kLanes>;
using Whole = I32<kLanes>;

constexpr float kLightnessMargin = 3e-4f, kRedGreenMargin = 8e-4f, kBlueYellowMargin = 3e-4f;

// X, Y or Z of the colours of a row.
struct Stimulus {
  float base, perBlue;
  QUILLON_INLINE Real At(Real blue) const { return blue * perBlue + base; }
};

// What lies above this becomes its root, what lies below goes on along a line.
constexpr float kEdge = 0.008856f, kEdgeMargin = 1e-7f;

// t to the power 1 / 3, without a division.
QUILLON_INLINE Real CubeRoot(Real t) {
  // A third of the bits is a third of the logarithm: r is 1 / root within 3.7 %. (W. Kahan,
  // "Computing a real cube root", 1991)
  const auto third = MulHigh(BitCast<U16<2 * kLanes>>(t), Splat<uint16_t, 2 * kLanes>(0x5555));
  const Real r = BitCast<Real>(0x54A13800 - BitCast<Whole>(third));
  const Real root = t * (r * r);
  // The root is this one times (1 - h) to the power -2/3: 1 and a polynomial of least greatest
  // error, 0.4 e, in two halves that need not wait for each other.
  const Real h = 1 - root * r;
  const Real square = h * h;
  const Real high = h * 0.429481378f + 0.459129738f, low = h * 0.493794120f + 0.555532537f;
  return root + root * (h * 0.666666694f + square * (low + square * high));
}

// kDark: some may lie below.
template <bool kDark>
QUILLON_INLINE Real RootOf(Real t, Whole& doubt) {
  if constexpr (!kDark) return CubeRoot(t);
  doubt |= Abs(t - kEdge) < kEdgeMargin;
  return t > kEdge ? CubeRoot(t) : t * 7.787f + 0.1379f;
}

// The value rounded; adds to `doubt` where that may not be the nearest: how the processor is set to
// round is not relied upon.
QUILLON_INLINE Whole ToByte(Real value, float margin, Whole& doubt) {
  const Whole whole = RoundToWhole(value);
  const Real off = value - Convert<float, kLanes>(whole);
  doubt |= BitCast<Real>(BitCast<Whole>(off) & 0x7FFFFFFF) > 0.5f - margin;
  return whole;
}

// Four vectors of 32-bit lanes as one of bytes, clamped.
QUILLON_INLINE U8<kVectorBytes> PackBytes(const Whole (&lanes)[4]) {
  return PackLanes(PackLanes(lanes[0], lanes[1]), PackLanes(lanes[2], lanes[3]));
}

// The kVectorBytes colours from b0 on.
template <bool kDark>
QUILLON_INLINE void LabBlock(const Stimulus& x, const Stimulus& y, const Stimulus& z, int b0,
                             ColourRow& row) {
  Real blue;
  for (int i = 0; i < kLanes; ++i) blue[i] = static_cast<float>(b0 + i);
  Whole bytes[3][4];
  for (int part = 0; part < 4; ++part, blue += kLanes) {
    const int first = b0 + part * kLanes;
    Whole doubt = {};
    const Real fx = RootOf<kDark>(x.At(blue), doubt);
    const Real fy = RootOf<kDark>(y.At(blue), doubt);
    const Real fz = RootOf<kDark>(z.At(blue), doubt);
    bytes[0][part] = ToByte(fy * 295.8f - 40.8f, kLightnessMargin, doubt);
    bytes[1][part] = ToByte((fx - fy) * 691.37f + 119.16633f, kRedGreenMargin, doubt);
    bytes[2][part] = ToByte((fy - fz) * 252.054f + 135.93486f, kBlueYellowMargin, doubt);
    row.doubt[first / 64] |= uint64_t{MoveWordMask(doubt)} << (first % 64);
  }
  for (int c = 0; c < 3; ++c) Store(row.channel[c] + b0, PackBytes(bytes[c]));
}

void LabRow(int b1, int b2, ColourRow& row) {
  constexpr double kX = 1.0521265581994328 / 255, kY = 1.0 / 255, kZ = 0.9182247410147117 / 255;
  const auto stimulus = [&](double red, double green, double blue) {
    return Stimulus{static_cast<float>(red * b2 + green * b1), static_cast<float>(blue)};
  };
  const Stimulus x = stimulus(0.412453 * kX, 0.35758 * kX, 0.180423 * kX);
  const Stimulus y = stimulus(0.212671 * kY, 0.71516 * kY, 0.072169 * kY);
  const Stimulus z = stimulus(0.019334 * kZ, 0.119193 * kZ, 0.950227 * kZ);
  for (uint64_t& word : row.doubt) word = 0;
  for (int b0 = 0; b0 < kColourRow; b0 += kVectorBytes) {
    const auto isBright = [&](const Stimulus& s) {
      return s.base + s.perBlue * static_cast<float>(b0) > kEdge + kEdgeMargin;
    };
    if (isBright(x) && isBright(y) && isBright(z)) {
      LabBlock<false>(x, y, z, b0, row);
    } else {
      LabBlock<true>(x, y, z, b0, row);
    }
  }
}

template <int kChannel>
QUILLON_INLINE void CopyChannel(const uint8_t* bgr, uint8_t* grey, int count) {
  const int tail = ForEachBlock(count, [&](auto width, int x) {
    const auto planes = LoadPlanes<width>(bgr + 3 * x);
    Store(grey + x, kChannel == 0 ? planes.blue : kChannel == 1 ? planes.green : planes.red);
  });
  for (int x = tail; x < count; ++x) grey[x] = bgr[3 * x + kChannel];
}

void ChannelRow(const uint8_t* bgr, uint8_t* grey, int count, int channel) {
  if (channel == 0) CopyChannel<0>(bgr, grey, count);
  if (channel == 1) CopyChannel<1>(bgr, grey, count);
  if (channel == 2) CopyChannel<2>(bgr, grey, count);
}

QUILLON_INLINE uint32_t LoadFour(const uint8_t* from) {
  uint32_t bytes;
  __builtin_memcpy(&bytes, from, sizeof bytes);
  return bytes;
}

QUILLON_INLINE void StoreFour(uint8_t* to, uint32_t bytes) {
  __builtin_memcpy(to, &bytes, sizeof bytes);
}

// Four pixels are read before any is written, so that `to` may be `from`. A store of four bytes
// also writes a byte of the next pixel, whose own store replaces it; the last of four begins a byte
// early instead.
void ConvertRow(const uint8_t* from, uint8_t* to, int count, const uint8_t* table0,
                const uint8_t* table1, const uint8_t* table2) {
  const auto entry = [=](uint32_t colour) {
    return table0[colour] | static_cast<uint32_t>(table1[colour]) << 8 |
           static_cast<uint32_t>(table2[colour]) << 16;
  };
  for (; count >= 4; count -= 4, from += 12, to += 12) {
    const uint32_t first = entry(LoadFour(from) & 0xFFFFFF);
    const uint32_t second = entry(LoadFour(from + 3) & 0xFFFFFF);
    const uint32_t third = entry(LoadFour(from + 6) & 0xFFFFFF);
    const uint32_t fourth = entry(LoadFour(from + 8) >> 8);
    StoreFour(to, first);
    StoreFour(to + 3, second);
    StoreFour(to + 6, third);
    StoreFour(to + 8, third >> 16 | fourth << 8);
  }
  for (; count > 0; --count, from += 3, to += 3) {
    const uint32_t converted = entry(from[0] | from[1] << 8 | from[2] << 16);
    __builtin_memcpy(to, &converted, 3);
  }
}

}  // namespace

const ColourKernels colour = {.LabRow = LabRow, .ChannelRow = ChannelRow, .ConvertRow = ConvertRow};

}  // namespace quillon::QUILLON_LEVEL
