// Convolution. The kernel is looked at once per call and takes the first way that is open to it,
// all of which give the exact quotient:
//   small weights   all sums within 16 bits: products of bytes
//   separable       rows weighed into 16 bits, then columns of those
//   3 x 3, 24 bits  every pixel beside 256 times itself, times the two parts of its weight
//   any             products of 16-bit halves of the weights, summed up apart
// The second and the last compute two rows of the result at a time, from pairs of source rows whose
// pixels alternate in memory: upper, lower, upper, lower. So every load serves four products.
#include "filters/convolution.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <numeric>

#include "core/buffer.h"
#include "filters/convolution_kernels.h"
#include "filters/row_frame.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

constexpr int kLargestSize = 7;
constexpr int kPairs = (kLargestSize + 1) / 2;  // of neighbours in a window

// A square of weights; beyond its sides, weights are 0.
struct Weights {
  const int* weights;
  int size;

  int at(int row, int column) const {
    const bool inside = row >= 0 && row < size && column >= 0 && column < size;
    return inside ? weights[row * size + column] : 0;
  }
};

// What a call knows about the rows it walks.
struct Walk {
  Walk(const GreyImage& image, GreyImage& destination, int windowSize)
      : source(image),
        result(destination),
        size(windowSize),
        count(image.width - windowSize + 1),
        longCount(std::max(count, kLeastColumns)),
        columns(longCount + windowSize - 1) {}

  // Calls computeRow(rows, y, out), which writes longCount pixels, for every inner row.
  template <class ComputeRow>
  void ForEachRow(const ComputeRow& computeRow) const {
    FilterInnerRows(source, result, size / 2, columns, size,
                    [&](const SourceRows& rows, int y, uint8_t* out) {
                      Write(out, [&](uint8_t* to) { computeRow(rows, y, to); });
                    });
  }

  // Has compute(to) write longCount pixels, of which `count` get to `out`.
  template <class Compute>
  void Write(uint8_t* out, const Compute& compute) const {
    if (count == longCount) return compute(out);
    uint8_t padded[kLeastColumns];
    compute(padded);
    std::memcpy(out, padded, static_cast<size_t>(count));
  }

  const GreyImage& source;
  GreyImage& result;
  int size;
  int count;      // columns of the result that are computed
  int longCount;  // the same, but at least the kLeastColumns that kernels write
  int columns;    // columns of the source that kernels read for those
};

// ---- small weights ------------------------------------------------------------------------------

struct Place {
  int row, column;
};

uint32_t BytePair(int first, int second) {
  const uint32_t pair = (first & 255) | (second & 255) << 8;
  return pair | pair << 16;
}

// With f = 2^(16 + shift) / divisor, rounded up by e / divisor, the quotient of sum * f by
// 2^(16 + shift) is exact as long as sum * e < 2^(16 + shift); rounded down by e / divisor, that of
// (sum + 1) * f is as long as (sum + 1) * e <= 2^(16 + shift). Only sums below 256 * divisor
// matter, 2^shift >= divisor / 4, and the lesser e is at most divisor / 2 <= 64: it always
// suffices.
ByteQuotient ByteQuotientBy(int divisor) {
  const int bits = std::bit_width(static_cast<unsigned>(divisor)) - 1;
  if (divisor == 1 << bits) return {.bias = 0, .factor = 0, .shift = bits};
  const int shift = bits - 1;  // the factor stays below 2^15
  const int down = (1 << (16 + shift)) / divisor;
  const bool goesDown = 2 * ((1 << (16 + shift)) % divisor) <= divisor;
  return {.bias = static_cast<int16_t>(goesDown),
          .factor = static_cast<int16_t>(goesDown ? down : down + 1),
          .shift = shift};
}

struct ByteTermList {
  // The row's weights are weightAt(column), 0 outside.
  template <class WeightAt>
  void AddRow(int row, int size, const WeightAt& weightAt) {
    for (int column = 0; column < size; column += 2) {
      const int left = weightAt(column - 1), centre = weightAt(column),
                right = weightAt(column + 1);
      if (left == 0 && centre == 0 && right == 0) continue;
      terms[count] = {nullptr, BytePair(centre, right), BytePair(left, centre)};
      places[count++] = {row, column};
    }
  }
  // The terms on rows that are row(0), row(1) ...
  template <class Row>
  const ByteTerm* On(const Row& row) {
    for (int i = 0; i < count; ++i) terms[i].from = row(places[i].row) + places[i].column;
    return terms;
  }

  ByteTerm terms[kLargestSize * kPairs];
  Place places[kLargestSize * kPairs];
  int count = 0;
};

void ConvolveBytes(const Kernels& kernels, const Walk& walk, const Weights& weights, int divisor) {
  ByteTermList list;
  for (int row = 0; row < walk.size; ++row) {
    list.AddRow(row, walk.size, [&](int column) { return weights.at(row, column); });
  }
  const ByteQuotient quotient = ByteQuotientBy(divisor);
  walk.ForEachRow([&](const SourceRows& rows, int y, uint8_t* out) {
    const uint8_t* window[kLargestSize];
    for (int row = 0; row < walk.size; ++row) window[row] = rows[y - walk.size / 2 + row];
    const ByteTerm* terms = list.On([&](int row) { return window[row]; });
    kernels.convolution.ByteSums(terms, list.count, quotient, walk.longCount, out);
  });
}

// ---- larger weights -----------------------------------------------------------------------------

// The way to divide sums by `divisor`, exactly; no sum is larger than 255 * magnitude. Each way
// multiplies by a float reciprocal, which is off on purpose, so that its error can be dealt with:
//
//   kFloat      The reciprocal is above 1 / divisor, by less than 2^-22 of it. So a sum that is a
//               multiple of the divisor does not come out below the quotient, and one that is 1
//               less, whose quotient is 1 / divisor >= 2^-13 lower, does not reach it.
//   kCorrected  It is 2^-22.5 to 2^-20.5 below. With both roundings, a quotient below 2^19 comes
//               out right or one too small, which the kernel sees and corrects; larger ones are
//               clamped to 255 either way.
//   kLong       The same. As floats, the halves of a long sum are off by 2^-24 each, together at
//               most 1/4 of the divisor.
PairQuotient PairQuotientBy(int64_t divisor, int64_t magnitude) {
  constexpr int64_t kLargestFloatDivisor = 8192;
  const auto real = static_cast<float>(divisor);
  const float above = 1 / real * 1.0000001f, below = 1 / real * 0.9999997f;
  PairQuotient quotient = {.way = PairQuotient::kDouble,
                           .divisor = static_cast<int32_t>(divisor),
                           .shift = std::countr_zero(static_cast<uint64_t>(divisor)),
                           .reciprocal = below,
                           .doubleReciprocal = 1 / static_cast<double>(divisor)};
  if (255 * magnitude > INT32_MAX) {
    const int64_t halves = magnitude + kLargestSize * kLargestSize * 65536;
    const bool isLong = divisor < 1 << 30 && halves <= 8192 * divisor;
    if (isLong) quotient.way = PairQuotient::kLong;
  } else if (divisor == int64_t{1} << quotient.shift) {
    quotient.way = PairQuotient::kShift;
  } else if (divisor <= kLargestFloatDivisor) {
    quotient.way = PairQuotient::kFloat;
    quotient.reciprocal = above;
  } else {
    quotient.way = PairQuotient::kCorrected;
  }
  return quotient;
}

uint32_t WordPair(int first, int second) {
  return (static_cast<uint32_t>(first) & 0xFFFF) | static_cast<uint32_t>(second) << 16;
}

// The terms of a convolution whose weights fit 16 bits. A term belongs to one column of one pair of
// source rows in the window; `places_` remembers which, and On() turns it into an address.
class PairTermList {
 public:
  // The column's weights are weightAt(row), 0 outside.
  template <class WeightAt>
  void AddColumn(int column, int size, const WeightAt& weightAt) {
    for (int row = 0; row < size; row += 2) {
      const int above = weightAt(row - 1), upper = weightAt(row), lower = weightAt(row + 1);
      if (above == 0 && upper == 0 && lower == 0) continue;
      Add({row / 2, column}, WordPair(upper, lower), WordPair(above, upper));
    }
  }
  // Kernels begin with the first term, so a convolution without any gets one that weighs 0.
  void FillUp() {
    if (count_ == 0) Add({0, 0}, 0, 0);
  }
  // The terms on pairs of rows that are pair(0), pair(1) ...
  template <class Pair>
  PairTerms On(const Pair& pair) {
    for (int i = 0; i < count_; ++i) terms_[i].from = pair(places_[i].row) + 2 * places_[i].column;
    return {terms_, count_};
  }

 private:
  // A weight's high half may need two terms: see ConvolveWords.
  static constexpr int kMost = 2 * kLargestSize * kPairs;

  void Add(Place place, uint32_t first, uint32_t second) {
    terms_[count_] = {nullptr, first, second};
    places_[count_++] = place;
  }

  PairTerm terms_[kMost];
  Place places_[kMost];
  int count_ = 0;
};

// Calls makePair(upper, lower, pair) for rows of the source from the top on, and
// computeRows(pairs, out) for two rows of the result at a time, with the pairs of their windows as
// pairs(0), pairs(1) ...
template <class MakePair, class ComputeRows>
void FilterPairs(const Walk& walk, const MakePair& makePair, const ComputeRows& computeRows) {
  const GreyImage& source = walk.source;
  const int radius = walk.size / 2, last = source.height - 1;
  const auto pitch = 2 * static_cast<size_t>(walk.columns + kLeastColumns);
  const int kept = radius + 1;  // pairs; more would not stay in the nearest cache
  Buffer<int16_t> ring(pitch * static_cast<size_t>(kept));
  Buffer<uint8_t> spare(2 * static_cast<size_t>(walk.longCount));
  SourceRows rows(source, walk.result, walk.columns, 2);
  if (!ring || !spare || !rows || !PrepareResult(source, walk.result)) return;
  const auto pairAt = [&](int i) { return ring.data() + static_cast<size_t>(i % kept) * pitch; };
  int made = 0;
  for (int y = radius; y <= last - radius; y += 2) {
    for (; 2 * made <= std::min(y + radius + 1, last); ++made) {
      const int upper = 2 * made, lower = std::min(upper + 1, last);
      rows.ReadTo(lower);
      makePair(rows[upper], rows[lower], pairAt(made));
    }
    const auto pair = [&](int i) { return pairAt((y - radius) / 2 + i); };
    uint8_t* out[2] = {spare.data(), spare.data() + walk.longCount};
    const int two = y < last - radius ? 2 : 1;
    if (walk.count == walk.longCount) {
      for (int i = 0; i < two; ++i) out[i] = walk.result.rows[y + i] + radius;
    }
    computeRows(pair, out);
    for (int i = 0; i < two; ++i) {
      uint8_t* row = walk.result.rows[y + i];
      if (out[i] != row + radius) {
        std::memcpy(row + radius, out[i], static_cast<size_t>(walk.count));
      }
      FillOuterColumns(row, source.width, radius);
    }
  }
  CopyBorderRows(walk.result, radius);
}

// column[y] * row[x]
struct Factors {
  int column[kLargestSize], row[kLargestSize];
};

// Divides by the greatest common divisor of all, and returns it.
int64_t Reduce(int64_t* values, int size) {
  int64_t divisor = 0;
  for (int i = 0; i < size; ++i) divisor = std::gcd(divisor, values[i]);
  if (divisor > 1) {
    for (int i = 0; i < size; ++i) values[i] /= divisor;
  }
  return divisor;
}

// Whether the positive and the negative weights each add up to at most 128: sums of bytes then stay
// within 128 * 255, and the divisor within 128.
bool AreSmall(const int* weights, int count) {
  int64_t positive = 0, negative = 0;
  for (int i = 0; i < count; ++i) {
    (weights[i] > 0 ? positive : negative) += weights[i];
    if (weights[i] > INT8_MAX) return false;
  }
  return positive <= 128 && negative >= -128;
}

// Splits weights of rank one; the row's weights are small, and all sums fit 32 bits. False where
// that is not so.
bool Separate(const Weights& weights, Factors& factors) {
  const int size = weights.size, cells = size * size;
  int pivot = 0;
  while (pivot < cells && weights.weights[pivot] == 0) ++pivot;
  if (pivot == cells) return false;
  int64_t row[kLargestSize], column[kLargestSize];
  for (int i = 0; i < size; ++i) row[i] = weights.at(pivot / size, i);
  Reduce(row, size);
  const int64_t head = row[pivot % size];
  int64_t columnSum = 0, rowSum = 0;
  for (int i = 0; i < size; ++i) {
    column[i] = weights.at(i, pivot % size) / head;
    for (int j = 0; j < size; ++j) {
      if (column[i] * row[j] != weights.at(i, j)) return false;
    }
    columnSum += std::abs(column[i]);
    rowSum += std::abs(row[i]);
  }
  if (columnSum > INT16_MAX || 255 * columnSum * rowSum > INT32_MAX) return false;
  std::copy_n(column, size, factors.column);
  std::copy_n(row, size, factors.row);
  return AreSmall(factors.row, size);
}

void ConvolveSeparably(const Kernels& kernels, const Walk& walk, const Factors& factors,
                       const PairQuotient& quotient) {
  const auto weightIn = [&](const int* weights) {
    return [=, size = walk.size](int i) { return i >= 0 && i < size ? weights[i] : 0; };
  };
  ByteTermList upperRow, lowerRow;
  upperRow.AddRow(0, walk.size, weightIn(factors.row));
  lowerRow.AddRow(0, walk.size, weightIn(factors.row));
  PairTermList down;
  down.AddColumn(0, walk.size, weightIn(factors.column));
  const ConvolutionKernels& k = kernels.convolution;
  FilterPairs(
      walk,
      [&](const uint8_t* upper, const uint8_t* lower, int16_t* pair) {
        k.PairByteSums(upperRow.On([=](int) { return upper; }),
                       lowerRow.On([=](int) { return lower; }), upperRow.count, walk.longCount,
                       pair);
      },
      [&](const auto& pairs, uint8_t* const* out) {
        k.SplitPairSums(down.On(pairs), quotient, walk.longCount, out);
      });
}

// Every weight is low + 65536 * high, low and high of 16 bits with sign. The largest weights have a
// high half of 32768, which goes into two terms.
void ConvolveWords(const Kernels& kernels, const Walk& walk, const Weights& weights,
                   const PairQuotient& quotient) {
  PairTermList low, high;
  const auto lowHalf = [](int weight) { return static_cast<int16_t>(weight); };
  const auto highHalf = [&](int weight) {
    return static_cast<int>((static_cast<int64_t>(weight) - lowHalf(weight)) >> 16);
  };
  for (int column = 0; column < walk.size; ++column) {
    const auto weightAt = [&](int row) { return weights.at(row, column); };
    low.AddColumn(column, walk.size, [&](int row) { return lowHalf(weightAt(row)); });
    high.AddColumn(column, walk.size,
                   [&](int row) { return std::min(highHalf(weightAt(row)), INT16_MAX); });
    high.AddColumn(column, walk.size,
                   [&](int row) { return std::max(highHalf(weightAt(row)) - INT16_MAX, 0); });
  }
  low.FillUp();
  const ConvolutionKernels& k = kernels.convolution;
  FilterPairs(
      walk,
      [&](const uint8_t* upper, const uint8_t* lower, int16_t* pair) {
        k.PairPixels(upper, lower, walk.columns, pair);
      },
      [&](const auto& pairs, uint8_t* const* out) {
        k.PairSums(low.On(pairs), high.On(pairs), quotient, walk.longCount, out);
      });
}

// ---- 3 x 3 weights of 24 bits -------------------------------------------------------------------

// False where the weights are no WideWeights, or 16 bits are enough for them.
bool Widen(const Weights& weights, const PairQuotient& quotient, WideWeights& wide) {
  constexpr int kLeastDivisor = 4096;
  constexpr int64_t kMostMagnitude = (1 << 24) - 1, kMostRatio = 128;
  const bool isBelow =
      quotient.way == PairQuotient::kCorrected || quotient.way == PairQuotient::kLong;
  if (weights.size != 3 || !isBelow || quotient.divisor < kLeastDivisor) return false;
  int64_t magnitudes[2] = {}, largest = 0;
  for (int i = 0; i < 9; ++i) {
    const int64_t weight = weights.weights[i], low = ((weight & 255) ^ 128) - 128;
    const int64_t high = (weight - low) / 256;
    if (std::abs(high) > INT16_MAX) return false;
    wide.pairs[i] = WordPair(static_cast<int>(low), static_cast<int>(high));
    largest = std::max(largest, std::abs(weight));
    magnitudes[i / 5] += std::abs(weight);
  }
  wide.divisor = quotient.divisor;
  wide.reciprocal = quotient.reciprocal;
  return largest > INT16_MAX && std::max(magnitudes[0], magnitudes[1]) <= kMostMagnitude &&
         magnitudes[0] + magnitudes[1] <= kMostRatio * wide.divisor;
}

// Walks panels of columns, so narrow that three rows of wide pixels stay in the nearest cache, and
// in them bands of rows, so high that few source rows are widened twice.
void ConvolveWide(const Kernels& kernels, const Walk& walk, const WideWeights& weights) {
  constexpr int kMostColumns = 1024, kBand = 32, kCacheLine = 64;
  const ConvolutionKernels& k = kernels.convolution;
  const int panels = (walk.longCount + kMostColumns - 1) / kMostColumns;
  const int aligned = (walk.longCount / panels + kCacheLine) / kCacheLine * kCacheLine;
  const int panel = std::min(aligned, walk.longCount), columns = panel + 2;
  const auto pitch = 2 * static_cast<size_t>(columns);
  Buffer<int16_t> wide(3 * pitch);
  SourceRows rows(walk.source, walk.result, walk.columns, kBand + 2);
  if (!wide || !rows || !PrepareResult(walk.source, walk.result)) return;
  const auto wideRow = [&](int y) { return wide.data() + static_cast<size_t>(y % 3) * pitch; };
  const auto computePanel = [&](int x, int top, int bottom) {
    for (int y = top; y <= bottom; ++y) {
      // Fetch the next row while this one is computed: processors foresee columns, but no rows.
      for (int ahead = 0; y < bottom && ahead < columns; ahead += kCacheLine) {
        __builtin_prefetch(rows[y + 1] + x + ahead);
      }
      k.WidenPixels(rows[y] + x, columns, wideRow(y));
      if (y < top + 2) continue;
      const int16_t* const window[3] = {wideRow(y - 2), wideRow(y - 1), wideRow(y)};
      walk.Write(walk.result.rows[y - 1] + 1,
                 [&](uint8_t* to) { k.WideSums(weights, window, panel, to + x); });
    }
  };
  const int last = walk.source.height - 1;
  for (int top = 0; top + 1 < last; top += kBand) {
    const int bottom = std::min(top + kBand + 1, last);
    rows.ReadTo(bottom);
    for (int x = 0; x < walk.longCount; x += panel) {
      computePanel(std::min(x, walk.longCount - panel), top, bottom);
    }
    for (int y = top + 1; y < bottom; ++y) {
      FillOuterColumns(walk.result.rows[y], walk.source.width, 1);
    }
  }
  CopyBorderRows(walk.result, 1);
}

}  // namespace

void Convolve(const Kernels& kernels, const GreyImage& source, GreyImage& result, const int* values,
              int size) {
  if (source.width < size || source.height < size) return CopyUnchanged(source, result);
  const int cells = size * size;
  int64_t longValues[kLargestSize * kLargestSize];
  std::copy_n(values, cells, longValues);
  int64_t sum = std::accumulate(longValues, longValues + cells, int64_t{0});
  // What divides all weights divides their sum. Where the sum is not the divisor, it stays.
  if (sum > 0) sum /= Reduce(longValues, cells);
  const int64_t divisor = std::max<int64_t>(sum, 1);
  int reduced[kLargestSize * kLargestSize];
  int64_t magnitude = 0;
  for (int i = 0; i < cells; ++i) {
    reduced[i] = static_cast<int>(longValues[i]);
    magnitude += std::abs(longValues[i]);
  }
  const Walk walk(source, result, size);
  const Weights weights = {reduced, size};
  const PairQuotient quotient = PairQuotientBy(divisor, magnitude);
  const bool small = AreSmall(reduced, cells);
  // Small weights that are separable as well: up to 5 x 5, weighing all pixels takes fewer products
  // than rows first and columns after.
  const bool direct = small && size < 7;
  Factors factors;
  WideWeights wide;
  if (!direct && Separate(weights, factors)) {
    ConvolveSeparably(kernels, walk, factors, quotient);
  } else if (small) {
    ConvolveBytes(kernels, walk, weights, static_cast<int>(divisor));
  } else if (kernels.convolution.WideSums && Widen(weights, quotient, wide)) {
    ConvolveWide(kernels, walk, wide);
  } else {
    ConvolveWords(kernels, walk, weights, quotient);
  }
}

}  // namespace quillon
