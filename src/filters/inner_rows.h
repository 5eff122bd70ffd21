// The walk of the filters whose border repeats the nearest pixel that has its whole window inside
// the image, outer columns first.
#pragma once

#include <cstring>

#include "filters/row_frame.h"

namespace quillon {

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

}  // namespace quillon
