// Median filters, several rows at a time.
#include "filters/median.h"

#include <algorithm>

#include "filters/median_kernels.h"
#include "filters/row_frame.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

// One past the last computed column of the 3 x 3 median. Columns come in blocks of 16 from column 1
// on: where width - 1 is a multiple of 16 they take in the last column, whose right neighbour is
// the byte after the row. Hosts have calibrated on it.
int ColumnsEnd3x3(int width) { return std::max(1 + (width - 1) / 16 * 16, width - 1); }

// Copies of the last six rows of a source, split into even and odd columns; the filter may write
// over the source.
class SplitRows {
 public:
  static constexpr int kKept = 6;

  explicit SplitRows(int width)
      : pitch_(static_cast<size_t>(width) / 2 + kMedianSlack),
        bytes_(Buffer<uint8_t>::Zeroed(2 * kKept * pitch_)) {}
  explicit operator bool() const { return static_cast<bool>(bytes_); }

  // Rows up to y, as far as the source has them.
  void ReadTo(const MedianKernels& kernels, const GreyImage& source, int y) {
    for (; read_ <= std::min(y, source.height - 1); ++read_) {
      kernels.Split(source.rows[read_], source.width, (*this)[read_]);
    }
  }
  SplitRow operator[](int y) {
    uint8_t* even = bytes_.data() + static_cast<size_t>(y % kKept) * 2 * pitch_;
    return {even, even + pitch_};
  }

 private:
  size_t pitch_;
  Buffer<uint8_t> bytes_;
  int read_ = 0;
};

void FinishRow5x5(const uint8_t* medians, uint8_t* out, int width) {
  std::memcpy(out + 2, medians + 2, static_cast<size_t>(width) - 4);
  out[0] = out[1] = out[2];
  out[width - 1] = out[width - 2] = out[width - 3];
}

}  // namespace

void Median3x3(const Kernels& kernels, const GreyImage& source, GreyImage& result) {
  const int width = source.width, height = source.height;
  if (width < 3 || height < 3) return CopyUnchanged(source, result);
  const int end = ColumnsEnd3x3(width);
  FilterStrips(source, result, end + 1,
               [&](const Strip& strip) { kernels.median.Filter3x3(strip, 1, end); });
}

void Median5x5(const Kernels& kernels, const GreyImage& source, GreyImage& result) {
  const int width = source.width, height = source.height;
  if (width < 5 || height < 5) return CopyUnchanged(source, result);
  SplitRows rows(width);
  const size_t pitch = static_cast<size_t>(width) + kMedianSlack;
  Buffer<uint8_t> medians(2 * pitch);
  if (!rows || !medians || !PrepareResult(source, result)) return;
  uint8_t* const upper = medians.data();
  uint8_t* const lower = upper + pitch;
  const int pairs = (width - 3) / 2;
  for (int y = 2; y < height - 2; y += 2) {
    rows.ReadTo(kernels.median, source, y + 3);
    const SplitRow window[6] = {rows[y - 2], rows[y - 1], rows[y],
                                rows[y + 1], rows[y + 2], rows[y + 3]};
    kernels.median.Rows5x5(window, upper, lower, pairs);
    FinishRow5x5(upper, result.rows[y], width);
    if (y + 1 < height - 2) FinishRow5x5(lower, result.rows[y + 1], width);
  }
  CopyBorderRows(result, 2);
}

}  // namespace quillon
