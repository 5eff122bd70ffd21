// Gradient filters. A row has block columns, 1 ... 8 * ((width - 1) / 8), and tail columns after
// them up to width - 2. Prewitt and sharpening weigh the two differently, and where width - 1 is a
// multiple of 8 the blocks take in the last column, whose right neighbour is then the byte after
// the row. Hosts have calibrated on both.
#include "filters/gradient.h"

#include <algorithm>

#include "filters/gradient_kernels.h"
#include "filters/row_frame.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

struct Columns {
  int blockEnd;  // block columns are 1 ... blockEnd - 1
  int end;       // and tail columns go on to end - 1
};

Columns ColumnsOf(int width) {
  const int blockEnd = 1 + (width - 1) / 8 * 8;
  return {blockEnd, std::max(blockEnd, width - 1)};
}

bool TooSmall(const GreyImage& image) { return image.width < 3 || image.height < 3; }

void Filter3x3(StripKernel* block, StripKernel* tail, const GreyImage& source, GreyImage& result) {
  const Columns columns = ColumnsOf(source.width);
  FilterStrips(source, result, columns.end + 1, [&](const Strip& strip) {
    if (block == tail) return block(strip, 1, columns.end);
    // Where the tail has its own weights, it is computed first and in full vectors, over columns
    // that the blocks then overwrite.
    constexpr int kFullVector = 16;
    if (columns.end > columns.blockEnd) {
      tail(strip, std::max(columns.end - kFullVector, 1), columns.end);
    }
    block(strip, 1, columns.blockEnd);
  });
}

// No pixel of a small image has all its neighbours: there is no edge in it.
void Gradient(StripKernel* block, StripKernel* tail, const GreyImage& source, GreyImage& result) {
  if (!TooSmall(source)) return Filter3x3(block, tail, source, result);
  if (!PrepareResult(source, result)) return;
  for (int y = 0; y < result.height; ++y) {
    std::memset(result.rows[y], 0, static_cast<size_t>(result.width));
  }
}

}  // namespace

void Sobel(const Kernels& kernels, const GreyImage& source, GreyImage& result) {
  const auto& k = kernels.gradient;
  Gradient(k.Sobel, k.Sobel, source, result);
}

void Prewitt(const Kernels& kernels, const GreyImage& source, GreyImage& result) {
  const auto& k = kernels.gradient;
  Gradient(k.Prewitt, k.Sobel, source, result);
}

// A 2 x 2 operator in the frame of the others: row 0, which it could compute, is a copy all the
// same.
void Robert(const Kernels& kernels, const GreyImage& source, GreyImage& result) {
  const auto& k = kernels.gradient;
  Gradient(k.Robert, k.Robert, source, result);
}

void Laplacian(const Kernels& kernels, const GreyImage& source, GreyImage& result) {
  const auto& k = kernels.gradient;
  Gradient(k.Laplacian, k.Laplacian, source, result);
}

void LaplacianSharpen(const Kernels& kernels, const GreyImage& source, GreyImage& result) {
  const auto& k = kernels.gradient;
  if (TooSmall(source)) return CopyUnchanged(source, result);
  Filter3x3(k.Sharpen, k.WeakSharpen, source, result);
}

}  // namespace quillon
