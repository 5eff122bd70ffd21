// The walk of the filters whose border repeats the nearest pixel that has its whole window inside
// the image, outer columns first.
#pragma once

#include <cstring>

#include "filters/row_frame.h"

namespace quillon {

// Calls writeRow(rows, y, out) for every row whose window lies in the image, top to bottom; `out`
// is the row's first computed column. The last `kept` source rows up to y + radius can be read. An
// image smaller than the window is copied.
template <class WriteRow>
void FilterInnerRows(const GreyImage& source, GreyImage& result, int radius, int kept,
                     const WriteRow& writeRow) {
  const int width = source.width, height = source.height;
  if (width <= 2 * radius || height <= 2 * radius) return CopyUnchanged(source, result);
  SourceRows rows(source, result, width, kept);
  if (!rows || !PrepareResult(source, result)) return;
  for (int y = radius; y < height - radius; ++y) {
    rows.ReadTo(y + radius);
    uint8_t* row = result.rows[y];
    writeRow(rows, y, row + radius);
    std::memset(row, row[radius], static_cast<size_t>(radius));
    std::memset(row + width - radius, row[width - 1 - radius], static_cast<size_t>(radius));
  }
  CopyBorderRows(result, radius);
}

}  // namespace quillon
