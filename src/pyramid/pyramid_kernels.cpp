// Row kernels of the image pyramid: block means. Compiled once per level.
#include "pyramid/pyramid_kernels.h"

#include "simd/blocks.h"

namespace quillon::QUILLON_LEVEL {
namespace {

// Means from the sums of the block's columns, eight columns a sum.
template <int kLevel>
QUILLON_INLINE uint8_t Mean(const uint64_t* eights) {
  if constexpr (kLevel == 4) {
    // Dark on purpose, half of the mean: the halves are divided by 512, not the block by 256.
    return static_cast<uint8_t>(eights[0] / 512 + eights[1] / 512);
  } else {
    uint64_t sum = 0;
    for (int i = 0; i < (1 << kLevel) / 8; ++i) sum += eights[i];
    return static_cast<uint8_t>(sum >> 2 * kLevel);
  }
}

// The same at levels 1 to 3, whose rows may end between vectors.
template <int kLevel>
void ReduceTail(const uint8_t* const* rows, uint8_t* out, int from, int count) {
  constexpr int kSide = 1 << kLevel;
  for (int x = from; x < count; ++x) {
    int sum = 0;
    for (int row = 0; row < kSide; ++row) {
      for (int i = 0; i < kSide; ++i) sum += rows[row][kSide * x + i];
    }
    out[x] = static_cast<uint8_t>(sum >> 2 * kLevel);
  }
}

// Sums of neighbouring pairs, down all rows of a block.
template <int kRows, int kBytes>
QUILLON_INLINE U16<kBytes / 2> PairSums(const uint8_t* const* rows, int x) {
  U16<kBytes / 2> sums = {};
  for (int row = 0; row < kRows; ++row) {
    const auto bytes = Load<uint8_t, kBytes>(rows[row] + x);
    sums += EvenBytes(bytes) + OddBytes(bytes);
  }
  return sums;
}

void ReduceBy2(const uint8_t* const* rows, uint8_t* out, int count) {
  const int tail = ForEachBlock(count, [&](auto width, int x) {
    const auto low = PairSums<2, width>(rows, 2 * x) >> 2;
    const auto high = PairSums<2, width>(rows, 2 * x + width) >> 2;
    Store(out + x, PackLanes(low, high));
  });
  ReduceTail<1>(rows, out, tail, count);
}

void ReduceBy4(const uint8_t* const* rows, uint8_t* out, int count) {
  const int tail = ForEachBlock(count, [&](auto width, int x) {
    const auto means = [&](int quarter) {
      const auto pairs = BitCast<U32<width / 4>>(PairSums<4, width>(rows, 4 * x + quarter * width));
      return ((pairs & 0xFFFF) + (pairs >> 16)) >> 4;
    };
    Store(out + x, PackLanes(PackLanes(means(0), means(1)), PackLanes(means(2), means(3))));
  });
  ReduceTail<2>(rows, out, tail, count);
}

// Sums of each eight columns, down all rows of a block.
template <int kRows, int kBytes>
QUILLON_INLINE void SumEights(const uint8_t* const* rows, int x, uint64_t* eights) {
  constexpr int kPart = kBytes < kVectorBytes ? kBytes : kVectorBytes;
  EightSums<kPart> sums[kBytes / kPart];
  for (int row = 0; row < kRows; ++row) {
    for (int part = 0; part < kBytes / kPart; ++part) {
      sums[part].Add(Load<uint8_t, kPart>(rows[row] + x + part * kPart));
    }
  }
  for (int part = 0; part < kBytes / kPart; ++part) {
    Store(eights + part * kPart / 8, sums[part].Sums());
  }
}

// Whole cache lines of every row before the next line: at level 6 their 64 addresses may share one
// set of the cache.
template <int kLevel>
void ReduceByEights(const uint8_t* const* rows, uint8_t* out, int count) {
  constexpr int kSide = 1 << kLevel, kLine = 64, kLeast = kSide < 16 ? 16 : kSide;
  const int tail = ForEachBlock<kLine, kLeast>(kSide * count, [&](auto width, int x) {
    uint64_t eights[width / 8];
    SumEights<kSide, width>(rows, x, eights);
    for (int i = 0; i < width / kSide; ++i) {
      out[x / kSide + i] = Mean<kLevel>(eights + i * kSide / 8);
    }
  });
  if constexpr (kLevel == 3) ReduceTail<3>(rows, out, tail / kSide, count);
}

}  // namespace

const PyramidKernels pyramid = {.ReduceRow = {ReduceBy2, ReduceBy4, ReduceByEights<3>,
                                              ReduceByEights<4>, ReduceByEights<5>,
                                              ReduceByEights<6>}};

}  // namespace quillon::QUILLON_LEVEL
