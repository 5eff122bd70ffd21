// Row kernels of the colour spaces. Compiled once per level.
//
// The Lab tables are evaluated in single precision, and a byte is trusted only where its value
// keeps a margin from the next edge between two bytes. The margins bound, with room to spare, what
// rounding can do; e = 2^-24 is half a unit in the last place of 1. X, Y, Z lie within 6 e of
// themselves, roots within 8 e (two roundings of the last iteration, the correction and its
// rounding), so f within 10 e * 1.02; L 295.8, a 691.37 * 2, b 252.054 * 2 times that and a few
// roundings of the value: below 2.5e-4, 9.5e-4, 4.2e-4.
#include "color/colour_kernels.h"

#include "simd/blocks.h"
#include "simd/deinterleave.h"

namespace quillon::QUILLON_LEVEL {
namespace {

constexpr int kLanes = kVectorBytes / 4;
using Real = F32<kLanes>;
using Whole = I32<kLanes>;

constexpr float kLightnessMargin = 5e-4f, kRedGreenMargin = 2e-3f, kBlueYellowMargin = 1e-3f;

// Bytes of three channels, and where one of them cannot be told.
struct Entry {
  Whole channel[3];
  Whole doubt;
};

// The value truncated to 0 ... 255; adds to `doubt` where it lies within `margin` of an edge.
QUILLON_INLINE Whole ToByte(Real value, float margin, Whole& doubt) {
  const Real inside = Min(Max(value, Real{}), Real{} + 255.5f);
  const Whole whole = Convert<int32_t, kLanes>(inside);
  const Real above = inside - Convert<float, kLanes>(whole);
  doubt |= (above < margin) | (above > 1 - margin);
  return whole;
}

// t to the power 0.333333, or the line that continues it towards 0.
QUILLON_INLINE Real RootOf(Real t, Whole& doubt) {
  constexpr float kEdge = 0.008856f, kEdgeMargin = 1e-7f;
  // A third of the bits is a third of the logarithm; two of Halley's iterations, of third order,
  // leave the rounding of the last. (W. Kahan, "Computing a real cube root", 1991)
  const Real bits = Convert<float, kLanes>(BitCast<Whole>(t));
  Real root = BitCast<Real>(Convert<int32_t, kLanes>(bits * (1.0f / 3)) + 709921077);
  for (int i = 0; i < 2; ++i) {
    const Real cube = root * root * root;
    root = root * ((cube + 2 * t) / (2 * cube + t));
  }
  // The exponent is a third less 3.33e-7; for that little the logarithm of the bits is enough.
  const Real logarithm = (bits - 1064866805.0f) * (0.69314718f / (1 << 23));
  const Real power = root - root * (logarithm * 3.33333e-7f);
  doubt |= Abs(t - kEdge) < kEdgeMargin;
  return t > kEdge ? power : t * 7.787f + 0.1379f;
}

QUILLON_INLINE Entry Lab(Real blue, float green, float red) {
  constexpr double kX = 1.0521265581994328 / 255, kZ = 0.9182247410147117 / 255;
  const Real x = blue * static_cast<float>(0.180423 * kX) +
                 static_cast<float>((0.412453 * red + 0.35758 * green) * kX);
  const Real y = blue * static_cast<float>(0.072169 / 255) +
                 static_cast<float>((0.212671 * red + 0.71516 * green) / 255);
  const Real z = blue * static_cast<float>(0.950227 * kZ) +
                 static_cast<float>((0.019334 * red + 0.119193 * green) * kZ);
  Entry entry = {};
  const Real fx = RootOf(x, entry.doubt), fy = RootOf(y, entry.doubt), fz = RootOf(z, entry.doubt);
  const auto rounded = [&](Real value, float margin) {
    return ToByte(Min(Max(value, Real{}), Real{} + 255) + 0.5f, margin, entry.doubt);
  };
  entry.channel[0] = rounded(fy * 295.8f - 40.8f, kLightnessMargin);
  entry.channel[1] = rounded((fx - fy) * 691.37f + 119.16633f, kRedGreenMargin);
  entry.channel[2] = rounded((fy - fz) * 252.054f + 135.93486f, kBlueYellowMargin);
  return entry;
}

// Four vectors of 32-bit lanes as one of bytes.
QUILLON_INLINE U8<kVectorBytes> PackBytes(const Whole (&lanes)[4]) {
  return PackLanes(PackLanes(lanes[0], lanes[1]), PackLanes(lanes[2], lanes[3]));
}

void LabRow(int b1, int b2, ColourRow& row) {
  Whole firstBlues;
  for (int i = 0; i < kLanes; ++i) firstBlues[i] = i;
  for (uint64_t& word : row.doubt) word = 0;
  for (int b0 = 0; b0 < kColourRow; b0 += kVectorBytes) {
    Whole bytes[3][4], doubts[4];
    for (int part = 0; part < 4; ++part) {
      const Real blue = Convert<float, kLanes>(firstBlues + (b0 + part * kLanes));
      const Entry entry = Lab(blue, static_cast<float>(b1), static_cast<float>(b2));
      for (int c = 0; c < 3; ++c) bytes[c][part] = entry.channel[c];
      doubts[part] = entry.doubt & 255;
    }
    for (int c = 0; c < 3; ++c) Store(row.channel[c] + b0, PackBytes(bytes[c]));
    row.doubt[b0 / 64] |= MoveMask(PackBytes(doubts)) << (b0 % 64);
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

// One store a pixel, of four bytes: the next pixel's store replaces the fourth. So that `to` may be
// `from`, a pixel is read before the store that reaches its first byte.
void ConvertRow(const uint8_t* from, uint8_t* to, int count, const uint8_t* table0,
                const uint8_t* table1, const uint8_t* table2) {
  if (count <= 0) return;
  uint32_t colour = from[0] | from[1] << 8 | from[2] << 16;
  const auto entry = [&] {
    return table0[colour] | static_cast<uint32_t>(table1[colour]) << 8 |
           static_cast<uint32_t>(table2[colour]) << 16;
  };
  const uint8_t* const last = to + 3 * (count - 1);
  for (; to < last; to += 3) {
    const uint32_t converted = entry();
    __builtin_memcpy(&colour, from + 2, sizeof colour);  // from the byte before the next pixel
    colour >>= 8;
    from += 3;
    __builtin_memcpy(to, &converted, sizeof converted);
  }
  const uint32_t converted = entry();
  __builtin_memcpy(to, &converted, 3);
}

}  // namespace

const ColourKernels colour = {.LabRow = LabRow, .ChannelRow = ChannelRow, .ConvertRow = ConvertRow};

}  // namespace quillon::QUILLON_LEVEL
