// Convolution. The kernel is looked at once per call and takes the first way that is open to it,
// all of which give the exact quotient:
//   small weights   all sums within 16 bits: products of bytes
//   separable       columns weighed into 16 bits, then rows of those
//   any             products of 16-bit halves of the weights, summed up apart
#include "filters/convolution.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <numeric>

#include "core/buffer.h"
#include "filters/inner_rows.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

constexpr int kLargestSize = 7;
constexpr int kPairs = (kLargestSize + 1) / 2;  // terms of a row of weights

// A square of weights whose columns before the first and behind the last are zero.
struct Weights {
  const int* weights;
  int size;

  int at(int row, int column) const {
    return column < 0 || column >= size ? 0 : weights[row * size + column];
  }
};

// What a call knows about the rows it walks.
struct Walk {
  Walk(const Kernels& level, const GreyImage& image, GreyImage& destination, int windowSize)
      : kernels(level.convolution),
        source(image),
        result(destination),
        size(windowSize),
        count(image.width - windowSize + 1),
        longCount(std::max(count, kLeastColumns)),
        columns(longCount + windowSize - 1) {}

  // Calls computeRow(rows, y, out), which writes longCount pixels, for every inner row.
  template <class ComputeRow>
  void ForEachRow(int kept, const ComputeRow& computeRow) const {
    FilterInnerRows(source, result, size / 2, columns, kept,
                    [&](const SourceRows& rows, int y, uint8_t* out) {
                      if (count == longCount) return computeRow(rows, y, out);
                      uint8_t padded[kLeastColumns];
                      computeRow(rows, y, padded);
                      std::memcpy(out, padded, static_cast<size_t>(count));
                    });
  }

  const ConvolutionKernels& kernels;
  const GreyImage& source;
  GreyImage& result;
  int size;
  int count;      // computed columns
  int longCount;  // the same, as kernels need it
  int columns;    // of the source that they need
};

// ---- small weights ------------------------------------------------------------------------------

// Whether the positive and the negative weights each add up to at most 128: sums of bytes then stay
// within 128 * 255, and the divisor within 128.
bool AreSmall(const Weights& weights) {
  int64_t positive = 0, negative = 0;
  for (int i = 0; i < weights.size * weights.size; ++i) {
    (weights.weights[i] > 0 ? positive : negative) += weights.weights[i];
    if (weights.weights[i] > INT8_MAX) return false;
  }
  return positive <= 128 && negative >= -128;
}

uint32_t BytePair(int first, int second) {
  const uint32_t pair = (first & 255) | (second & 255) << 8;
  return pair | pair << 16;
}

// The factor is 2^(15 + shift) / divisor, rounded up by less than 1 with 2^shift >= divisor: the
// product with a sum below 2^15 is too large by less than 1 / divisor.
ByteQuotient QuotientBy(int divisor) {
  int shift = 0;
  while (1 << shift < divisor) ++shift;
  return {static_cast<uint16_t>(((1 << (15 + shift)) + divisor - 1) / divisor), shift};
}

struct Place {
  int row, column;
};

void ConvolveBytes(const Walk& walk, const Weights& weights, int divisor) {
  ByteTerm terms[kLargestSize * kPairs];
  Place places[kLargestSize * kPairs];
  int n = 0;
  for (int row = 0; row < walk.size; ++row) {
    for (int column = 0; column < walk.size; column += 2) {
      const int left = weights.at(row, column - 1), centre = weights.at(row, column);
      const int right = weights.at(row, column + 1);
      if (left == 0 && centre == 0 && right == 0) continue;
      terms[n] = {nullptr, BytePair(centre, right), BytePair(left, centre)};
      places[n++] = {row, column};
    }
  }
  const ByteQuotient quotient = QuotientBy(divisor);
  walk.ForEachRow(walk.size, [&](const SourceRows& rows, int y, uint8_t* out) {
    for (int i = 0; i < n; ++i) {
      terms[i].from = rows[y - walk.size / 2 + places[i].row] + places[i].column;
    }
    walk.kernels.ByteSums(terms, n, quotient, walk.longCount, out);
  });
}

// ---- larger weights -----------------------------------------------------------------------------

// The products with the float are the quotients of all sums whose quotient is at most 255: it is
// above 1 / divisor, by less than 2^-22 of it, so that multiples do not fall short and the number
// before a multiple, 1 / divisor >= 2^-13 below it, does not reach it.
WordQuotient LongQuotientBy(int64_t divisor) {
  const auto real = static_cast<double>(divisor);
  return {divisor, 1.0f / static_cast<float>(divisor) * 1.0000001f, 1.0 / real};
}

uint32_t WordPair(int first, int second) {
  return (static_cast<uint32_t>(first) & 0xFFFF) | static_cast<uint32_t>(second) << 16;
}

// Terms of weights that fit 16 bits, with the places of their columns.
class TermList {
 public:
  // The row's weights are weightAt(column).
  template <class WeightAt>
  void AddRow(int row, int size, const WeightAt& weightAt) {
    for (int column = 0; column < size; column += 2) {
      const int first = weightAt(column), second = column + 1 < size ? weightAt(column + 1) : 0;
      if (first == 0 && second == 0) continue;
      terms_[count_] = {nullptr, WordPair(first, second)};
      places_[count_++] = {row, column};
    }
  }
  // The terms on rows that are row(0), row(1) ...
  template <class Row>
  WordTerms On(const Row& row) {
    for (int i = 0; i < count_; ++i) terms_[i].from = row(places_[i].row) + places_[i].column;
    return {terms_, count_};
  }

 private:
  static constexpr int kMost = 2 * kLargestSize * kPairs;  // the upper halves may take two each

  WordTerm terms_[kMost];
  Place places_[kMost];
  int count_ = 0;
};

// factor * column[y] * row[x], column and row without a common divisor.
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

// Splits weights of rank one; columns of bytes so weighed fit 16 bits and all sums 32. False where
// that is not so.
bool Separate(const Weights& weights, Factors& factors) {
  const int size = weights.size;
  int pivot = 0;
  const int cells = size * size;
  while (pivot < cells && weights.weights[pivot] == 0) ++pivot;
  if (pivot == cells) return false;
  int64_t row[kLargestSize], column[kLargestSize];
  for (int i = 0; i < size; ++i) row[i] = weights.at(pivot / size, i);
  Reduce(row, size);
  const int64_t head = row[pivot % size];
  for (int i = 0; i < size; ++i) {
    column[i] = weights.at(i, pivot % size) / head;
    for (int j = 0; j < size; ++j) {
      if (column[i] * row[j] != weights.at(i, j)) return false;
    }
  }
  const int64_t factor = Reduce(column, size);
  int64_t columnSum = 0, rowSum = 0;
  for (int i = 0; i < size; ++i) {
    row[i] *= factor;
    columnSum += std::abs(column[i]);
    rowSum += std::abs(row[i]);
  }
  if (255 * columnSum > INT16_MAX || rowSum > INT16_MAX) return false;
  if (255 * columnSum * rowSum > INT32_MAX) return false;
  std::copy_n(column, size, factors.column);
  std::copy_n(row, size, factors.row);
  return true;
}

void ConvolveSeparably(const Walk& walk, const Factors& factors, int64_t divisor) {
  auto sums = Buffer<int16_t>::Zeroed(static_cast<size_t>(walk.columns) + kLeastColumns);
  if (!sums) return;
  TermList across;
  across.AddRow(0, walk.size, [&](int column) { return factors.row[column]; });
  const WordTerms terms = across.On([&](int) { return sums.data(); });
  const WordQuotient quotient = LongQuotientBy(divisor);
  walk.ForEachRow(walk.size, [&](const SourceRows& rows, int y, uint8_t* out) {
    ColumnTerm down[kLargestSize];
    for (int i = 0; i < walk.size; ++i) {
      down[i] = {rows[y - walk.size / 2 + i], static_cast<int16_t>(factors.column[i])};
    }
    walk.kernels.ColumnSums(down, walk.size, walk.columns, sums.data());
    walk.kernels.WordSums(terms, {}, quotient, walk.longCount, out);
  });
}

// Every weight is low + 65536 * high, low and high of 16 bits with sign. The largest weights have a
// high half of 32768, which goes into two terms.
void ConvolveWords(const Walk& walk, const Weights& weights, int64_t divisor) {
  TermList low, high;
  const auto lowHalf = [](int weight) { return static_cast<int16_t>(weight); };
  const auto highHalf = [&](int weight) {
    return static_cast<int>((static_cast<int64_t>(weight) - lowHalf(weight)) >> 16);
  };
  for (int row = 0; row < walk.size; ++row) {
    const auto weightAt = [&](int column) { return weights.at(row, column); };
    low.AddRow(row, walk.size, [&](int column) { return lowHalf(weightAt(column)); });
    high.AddRow(row, walk.size,
                [&](int column) { return std::min(highHalf(weightAt(column)), INT16_MAX); });
    high.AddRow(row, walk.size,
                [&](int column) { return std::max(highHalf(weightAt(column)) - INT16_MAX, 0); });
  }
  const auto pitch = static_cast<size_t>(walk.columns) + kLeastColumns;
  auto ring = Buffer<int16_t>::Zeroed(pitch * static_cast<size_t>(walk.size));
  if (!ring) return;
  const auto widened = [&](int y) {
    return ring.data() + static_cast<size_t>(y % walk.size) * pitch;
  };
  const WordQuotient quotient = LongQuotientBy(divisor);
  int read = 0;
  walk.ForEachRow(walk.size, [&](const SourceRows& rows, int y, uint8_t* out) {
    const int radius = walk.size / 2;
    for (; read <= y + radius; ++read) {
      const ColumnTerm copy = {rows[read], 1};
      walk.kernels.ColumnSums(&copy, 1, walk.columns, widened(read));
    }
    const auto row = [&](int i) { return widened(y - radius + i); };
    walk.kernels.WordSums(low.On(row), high.On(row), quotient, walk.longCount, out);
  });
}

}  // namespace

void Convolve(const Kernels& kernels, const GreyImage& source, GreyImage& result, const int* values,
              int size) {
  if (source.width < size || source.height < size) return CopyUnchanged(source, result);
  const Walk walk(kernels, source, result, size);
  const Weights weights = {values, size};
  const int64_t sum = std::accumulate(values, values + size * size, int64_t{0});
  const int64_t divisor = std::max<int64_t>(sum, 1);
  Factors factors;
  const bool small = AreSmall(weights);
  // Below seven columns the products of bytes are fewer than those of the detour.
  if (small && size < 7) {
    ConvolveBytes(walk, weights, static_cast<int>(divisor));
  } else if (Separate(weights, factors)) {
    ConvolveSeparably(walk, factors, divisor);
  } else if (small) {
    ConvolveBytes(walk, weights, static_cast<int>(divisor));
  } else {
    ConvolveWords(walk, weights, divisor);
  }
}

}  // namespace quillon
