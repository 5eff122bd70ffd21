// What frames a neighbourhood filter: a result that may be the source itself, source rows that stay
// unmodified while the result is written, and a border that repeats the nearest computed pixel.
//
//   FilterInnerRows   row after row, for windows of any radius: smoothing, convolution
//   FilterStrips      four rows at a time, for 3 x 3 windows: what a source row contributes is
//                     computed once for the rows above, at and below it
//
// Both stand on SourceRows and its three helpers, and can be read as the example of their use.
#pragma once

#include <cstring>

#include "core/buffer.h"
#include "quillon/image.h"

namespace quillon {

// Rows of a source, top to bottom. They are the source's own memory, or copies in a ring where the
// filter works in place.
class SourceRows {
 public:
  // `columns` bytes of a row can be read, and the last `kept` rows read remain. A column beyond the
  // row's bytes reads as 0. False when there is no memory for the ring.
  SourceRows(const GreyImage& source, const GreyImage& result, int columns, int kept);
  explicit operator bool() const { return !copies_ || ring_; }

  // Row y can be used from now on; rows up to y - kept are forgotten. Call it before any row from
  // y - kept + 1 on is written.
  void ReadTo(int y);
  const uint8_t* operator[](int y) const { return copies_ ? Slot(y) : source_.rows[y]; }

 private:
  const uint8_t* Slot(int y) const {
    return ring_.data() + static_cast<size_t>(y % kept_) * pitch_;
  }

  const GreyImage& source_;
  bool copies_;
  int columns_;
  int kept_;
  size_t pitch_;
  int read_ = 0;  // rows in the ring so far
  Buffer<uint8_t> ring_;
};

// Re-creates the result at the source's size, unless it is the source. False when there is none.
bool PrepareResult(const GreyImage& source, GreyImage& result);

// The result of a filter whose window does not fit into the image: the source's pixels.
void CopyUnchanged(const GreyImage& source, GreyImage& result);

// The outermost `radius` rows on either side become copies of the nearest row inside.
void CopyBorderRows(GreyImage& result, int radius);

// Each outer column of a row takes its nearest computed one.
inline void FillOuterColumns(uint8_t* row, int width, int radius) {
  std::memset(row, row[radius], static_cast<size_t>(radius));
  std::memset(row + width - radius, row[width - 1 - radius], static_cast<size_t>(radius));
}

// Calls writeRow(rows, y, out) for every row whose window lies in the image, top to bottom; `out`
// is the row's first computed column. Of the last `kept` source rows up to y + radius, `columns`
// columns can be read; those behind the image's are anything. An image smaller than the window is
// copied.
template <class WriteRow>
void FilterInnerRows(const GreyImage& source, GreyImage& result, int radius, int columns, int kept,
                     const WriteRow& writeRow) {
  const int width = source.width, height = source.height;
  if (width <= 2 * radius || height <= 2 * radius) return CopyUnchanged(source, result);
  SourceRows rows(source, result, columns, kept);
  if (!rows || !PrepareResult(source, result)) return;
  for (int y = radius; y < height - radius; ++y) {
    rows.ReadTo(y + radius);
    writeRow(rows, y, result.rows[y] + radius);
    FillOuterColumns(result.rows[y], width, radius);
  }
  CopyBorderRows(result, radius);
}

// Up to four rows of a result, and the source rows that their 3 x 3 windows cover.
constexpr int kStripRows = 4;

struct Strip {
  int rows;                           // 1 ... kStripRows
  const uint8_t* in[kStripRows + 2];  // in[i], in[i + 1], in[i + 2] are the window rows of out[i]
  uint8_t* out[kStripRows];
};

// Computes the columns of [from, to) from columns from - 1 ... to. The results lie apart from the
// rows.
using StripKernel = void(const Strip& strip, int from, int to);

// The strips of the inner rows of a 3 x 3 filter, top to bottom. Reads `columns` bytes of a row;
// calls compute(strip) for each, whose result rows from column 1 to `columns` - 2 are then
// complete, and repeats columns at both ends: columns - 1 too, if it is part of the row or of its
// padding. Nothing happens without memory.
template <class Compute>
void FilterStrips(const GreyImage& source, GreyImage& result, int columns, const Compute& compute) {
  SourceRows rows(source, result, columns, kStripRows + 2);
  if (!rows || !PrepareResult(source, result)) return;
  const int end = columns - 1;
  for (int y = 1; y < source.height - 1; y += kStripRows) {
    Strip strip = {};
    strip.rows = source.height - 1 - y < kStripRows ? source.height - 1 - y : kStripRows;
    rows.ReadTo(y + strip.rows);
    for (int i = 0; i < strip.rows + 2; ++i) strip.in[i] = rows[y - 1 + i];
    for (int i = 0; i < strip.rows; ++i) strip.out[i] = result.rows[y + i];
    compute(strip);
    for (int i = 0; i < strip.rows; ++i) {
      uint8_t* out = strip.out[i];
      out[0] = out[1];
      if (end < source.stride) out[end] = out[end - 1];
    }
  }
  CopyBorderRows(result, 1);
}

}  // namespace quillon
