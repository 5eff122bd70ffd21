// The frame that neighbourhood filters share: a result that may be the source itself, source rows
// that stay unmodified while the result is written, and borders that repeat the nearest computed
// pixel.
//
//   SourceRows rows(source, result, source.width, 3);
//   if (!rows || !PrepareResult(source, result)) return;
//   for (int y = 1; y < source.height - 1; ++y) {
//     rows.ReadTo(y + 1);
//     kernel(rows[y - 1], rows[y], rows[y + 1], result.rows[y], ...);
//   }
//   CopyBorderRows(result, 1);
#pragma once

#include <algorithm>

#include "core/buffer.h"
#include "filters/strip.h"
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
    strip.rows = std::min(kStripRows, source.height - 1 - y);
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
