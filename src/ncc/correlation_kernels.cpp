// Kernels of the correlation. Compiled once per level.
#include "ncc/correlation_kernels.h"

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

template <class V>
QUILLON_INLINE uint64_t SumLanes(V v) {
  uint64_t sum = 0;
  for (size_t i = 0; i < sizeof(V) / sizeof(v[0]); ++i) sum += static_cast<uint64_t>(v[i]);
  return sum;
}

// Products of bytes, four neighbours a lane: at most 4 * 255^2.
template <class V>
QUILLON_INLINE auto ProductSums(V a, V b) {
  using Words = I16<sizeof(V) / 2>;
  return DotPairs(BitCast<Words>(EvenBytes(a)), BitCast<Words>(EvenBytes(b))) +
         DotPairs(BitCast<Words>(OddBytes(a)), BitCast<Words>(OddBytes(b)));
}

void SumProducts(const uint8_t* a, const uint8_t* b, int count, uint64_t sums[3]) {
  sums[0] = sums[1] = sums[2] = 0;
  // Lanes of 32 bits hold 8256 sums of four products; stretches stay below that.
  constexpr int kStretch = 8192 * kVectorBytes;
  int x = 0;
  while (x <= count - kVectorBytes) {
    const int end = count - x < kStretch ? count : x + kStretch;
    U64<kVectorBytes / 8> values = {};
    I32<kVectorBytes / 4> squares = {}, products = {};
    for (; x <= end - kVectorBytes; x += kVectorBytes) {
      const auto va = Load<uint8_t, kVectorBytes>(a + x), vb = Load<uint8_t, kVectorBytes>(b + x);
      values += SumsOf8(va);
      squares += ProductSums(va, va);
      products += ProductSums(va, vb);
    }
    sums[0] += SumLanes(values);
    sums[1] += SumLanes(squares);
    sums[2] += SumLanes(products);
  }
  for (; x < count; ++x) {
    sums[0] += a[x];
    sums[1] += static_cast<uint64_t>(a[x] * a[x]);
    sums[2] += static_cast<uint64_t>(a[x] * b[x]);
  }
}

}  // namespace

const CorrelationKernels correlation = {.SumProducts = SumProducts};

}  // namespace quillon::QUILLON_LEVEL
