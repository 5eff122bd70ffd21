#include "filters/smoothing.h"

#include <algorithm>

#include "core/buffer.h"
#include "filters/row_frame.h"
#include "filters/smoothing_kernels.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

// The memory behind column sums in kParts, cleared.
template <class T, int kParts>
class ColumnMemory {
 public:
  explicit ColumnMemory(int width)
      : length_(static_cast<size_t>(width) / kParts + kColumnPadding),
        memory_(Buffer<T>::Zeroed(kParts * length_)) {}
  explicit operator bool() const { return static_cast<bool>(memory_); }
  T* Part(int i) { return memory_.data() + static_cast<size_t>(i) * length_; }

 private:
  size_t length_;
  Buffer<T> memory_;
};

// The float 1.5 * 2^23. From 2^23 to 2^24 neighbouring floats are 1 apart: added to this, a number
// is rounded to a whole one, which then stands in the low bits of the sum.
constexpr float kWhole = 12582912;

// How to get from an integer sum to the mean, as a float, without converting integers to floats.
//
// Between 2^e and 2^(e + 1), floats lie 1 / weight apart, and the bits of each, read as an integer,
// are one more than those of the float before it. So adding `sum * weight` to the bits of a float
// adds `sum` to its value. The float to begin with (`bias`) is the multiple m * area of the area
// that comes first from 2^e on, with e such that the largest sum does not lead beyond 2^(e + 1).
// The float made so, times 1 / area, is m + mean, and the offset takes m away again.
constexpr MeanScale ScaleByBits(int area) {
  int exponent = 0, m = 0;
  do {
    ++exponent;
    m = ((1 << exponent) + area - 1) / area;
  } while ((m + 255) * area >= 2 << exponent);
  const int weight = (1 << 23) >> exponent;
  return {.converted = false,
          .weight = weight,
          .bias = __builtin_bit_cast(int32_t, static_cast<float>(m * area * weight)),
          .reciprocal = 1.0f / static_cast<float>(area * weight),
          .offset = kWhole - static_cast<float>(m)};
}

constexpr MeanScale ScaleByConversion(int area) {
  return {.converted = true,
          .weight = 1,
          .bias = 0,
          .reciprocal = 1.0f / static_cast<float>(area),
          .offset = kWhole};
}

// Whether this scale gives every sum's quotient by the area, rounded to nearest (there are no
// halves, for the area is odd). Rounding is monotone, so it is enough to look at the least and the
// greatest sum of each mean. Some levels multiply and add in one instruction, without rounding the
// product: both ways have to come out right.
constexpr bool IsExact(const MeanScale& scale, int area) {
  const auto isMean = [&](int sum, int mean) {
    const int bits = sum * scale.weight + scale.bias;
    const float value =
        scale.converted ? static_cast<float>(bits) : __builtin_bit_cast(float, bits);
    const float rounded = value * scale.reciprocal + scale.offset;
    const double fused = static_cast<double>(value) * static_cast<double>(scale.reciprocal) +
                         static_cast<double>(scale.offset - kWhole);
    return rounded == kWhole + static_cast<float>(mean) && static_cast<int>(fused + 0.5) == mean;
  };
  for (int mean = 0; mean <= 255; ++mean) {
    const int least = std::max(mean * area - area / 2, 0);
    const int most = std::min(mean * area + area / 2, 255 * area);
    if (!isMean(least, mean) || !isMean(most, mean)) return false;
  }
  return true;
}

constexpr MeanScale ScaleOf(int area) {
  constexpr int kLargestByBits = 101 * 101;  // larger ones fail AllNarrowMeansAreExact()
  return area <= kLargestByBits ? ScaleByBits(area) : ScaleByConversion(area);
}
constexpr bool AllNarrowMeansAreExact() {
  for (int size = 3; size <= kLargestNarrowMean; size += 2) {
    if (!IsExact(ScaleOf(size * size), size * size)) return false;
  }
  return true;
}
static_assert(AllNarrowMeansAreExact());

// Slides a window of `size` rows down the image. move(entering, leaving) brings the column sums up
// to date by adding one row and subtracting another, then writeRow(out) makes a row of means of
// them.
template <class Move, class WriteRow>
void SlideDown(const GreyImage& source, GreyImage& result, int size, const Move& move,
               const WriteRow& writeRow) {
  const auto nothing = Buffer<uint8_t>::Zeroed(static_cast<size_t>(source.width));
  if (!nothing) return;
  const int radius = size / 2;
  for (int y = 0; y < size - 1; ++y) move(source.rows[y], nothing.data());
  FilterInnerRows(source, result, radius, source.width, size + 1,
                  [&](const SourceRows& rows, int y, uint8_t* out) {
                    move(rows[y + radius], y > radius ? rows[y - radius - 1] : nothing.data());
                    writeRow(out);
                  });
}

void NarrowMean(const Kernels& kernels, const GreyImage& source, GreyImage& result, int size) {
  ColumnMemory<uint16_t, 2> memory(source.width);
  if (!memory) return;
  const SmoothingKernels& k = kernels.smoothing;
  const ColumnSums sums = {memory.Part(0), memory.Part(1)};
  const int count = source.width - size + 1;
  const MeanScale scale = ScaleOf(size * size);
  const auto move = [&](const uint8_t* entering, const uint8_t* leaving) {
    k.MoveColumns(sums, entering, leaving, source.width);
  };
  SlideDown(source, result, size, move,
            [&](uint8_t* out) { k.Mean(sums, count, size, scale, out); });
}

void WideMean(const Kernels& kernels, const GreyImage& source, GreyImage& result, int size) {
  ColumnMemory<uint32_t, 4> memory(source.width);
  if (!memory) return;
  const WideColumnSums sums = {{memory.Part(0), memory.Part(1), memory.Part(2), memory.Part(3)}};
  const int count = source.width - size + 1;
  const auto move = [&](const uint8_t* entering, const uint8_t* leaving) {
    kernels.smoothing.MoveWideColumns(sums, entering, leaving, source.width);
  };
  SlideDown(source, result, size, move,
            [&](uint8_t* out) { kernels.smoothing.MeanWide(sums, count, size, out); });
}

// A small window: every row is read once, for what later rows need of it is in the state.
void SmoothInBands(const SmallWindow& window, const GreyImage& source, GreyImage& result,
                   int size) {
  const int width = source.width, height = source.height, radius = size / 2;
  if (width < size || height < size) return CopyUnchanged(source, result);
  const int count = width - size + 1;
  const size_t blocks = static_cast<size_t>(count) / 64 + 1;
  auto state = Buffer<uint8_t>::Zeroed(blocks * 64 * static_cast<size_t>(window.stateBytes));
  Buffer<uint8_t> nowhere(static_cast<size_t>(count));
  SourceRows rows(source, result, width, kBand);
  if (!state || !nowhere || !rows || !PrepareResult(source, result)) return;

  const uint8_t* from[kBand];
  uint8_t* to[kBand];
  for (int y = 0; y < height; y += kBand) {
    const int n = std::min(kBand, height - y);
    rows.ReadTo(y + n - 1);
    for (int i = 0; i < n; ++i) {
      from[i] = rows[y + i];
      to[i] = y + i < 2 * radius ? nowhere.data() : result.rows[y + i - radius] + radius;
    }
    window.AddRows(from, to, n, count, state.data());
    for (int i = 0; i < n; ++i) {
      if (y + i >= 2 * radius) FillOuterColumns(result.rows[y + i - radius], width, radius);
    }
  }
  CopyBorderRows(result, radius);
}

}  // namespace

void GaussianSmoothing(const Kernels& kernels, const GreyImage& source, GreyImage& result,
                       int size) {
  SmoothInBands(kernels.smoothing.gaussians[size / 2 - 1], source, result, size);
}

void MeanSmoothing(const Kernels& kernels, const GreyImage& source, GreyImage& result, int size) {
  constexpr int kLargestSmall = 7;
  if (size < 1 || size % 2 == 0) return;
  if (size == 1 || size > source.width || size > source.height)
    return CopyUnchanged(source, result);
  if (size <= kLargestSmall) {
    SmoothInBands(kernels.smoothing.means[size / 2 - 1], source, result, size);
  } else if (size <= kLargestNarrowMean) {
    NarrowMean(kernels, source, result, size);
  } else {
    WideMean(kernels, source, result, size);
  }
}

}  // namespace quillon
