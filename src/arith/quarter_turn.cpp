#include "arith/quarter_turn.h"

#include <algorithm>
#include <cstring>

#include "arith/quarter_turn_kernels.h"
#include "core/image_access.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

struct Interval {
  int first, end;
};

// Where in 0 ... count - 1 a place, moved by `shift`, lies in 0 ... side - 1.
Interval Covered(int count, int side, int shift) {
  const int first = std::clamp(-shift, 0, count);
  return {first, std::clamp(side - shift, first, count)};
}

// All that the interval of columns in the interval of rows leaves.
void ClearOutside(GreyImage& image, Interval columns, Interval rows) {
  for (int y = 0; y < image.height; ++y) {
    const bool covered = rows.first <= y && y < rows.end;
    const int first = covered ? columns.first : 0, end = covered ? columns.end : 0;
    std::memset(image.rows[y], 0, static_cast<size_t>(first));
    std::memset(image.rows[y] + end, 0, static_cast<size_t>(image.width - end));
  }
}

// One quarter either way. The centre is at half of width - 1 and height - 1: with the half that
// rounds to nearest, columns come from rows `across` pixels on, and rows from columns counted back
// from `back`.
void TurnOneQuarter(const Kernels& kernels, const GreyImage& source, GreyImage& result,
                    bool clockwise) {
  const int width = source.width, height = source.height;
  const int back = (width + height - 1) >> 1;
  const int across = (clockwise ? width - height + 1 : height - width + 1) >> 1;
  Interval columns, rows;
  if (clockwise) {  // the pixel (x, y) shows column y + across of row back - x
    rows = Covered(height, width, across);
    columns = Covered(width, height, height - 1 - back);
  } else {  // it shows column back - y of row x + across
    rows = Covered(height, width, width - 1 - back);
    columns = Covered(width, height, across);
  }
  ClearOutside(result, columns, rows);
  if (columns.first == columns.end || rows.first == rows.end) return;
  // A row's next one lies before it in memory. The source's rows are read left to right, the first
  // column becoming the top row or the bottom one.
  const ptrdiff_t down = -ptrdiff_t{result.stride};
  const int first = clockwise ? rows.first : rows.end - 1;
  const uint8_t* from = clockwise ? source.rows[back - columns.first] + first + across
                                  : source.rows[columns.first + across] + back - first;
  kernels.quarterTurn.Transpose(from, clockwise ? source.stride : -ptrdiff_t{source.stride},
                                columns.end - columns.first, result.rows[first] + columns.first,
                                clockwise ? down : -down, rows.end - rows.first);
}

}  // namespace

void TurnByQuarters(const Kernels& kernels, const GreyImage& source, GreyImage& result,
                    int quarters) {
  const int width = source.width, height = source.height;
  if (!RecreateForOverwrite(result, width, height)) return;
  if (quarters % 2 != 0) return TurnOneQuarter(kernels, source, result, quarters == 1);
  for (int y = height - 1; y >= 0; --y) {
    if (quarters == 0) {
      std::memcpy(result.rows[y], source.rows[y], static_cast<size_t>(width));
    } else {
      kernels.quarterTurn.ReverseRow(source.rows[height - 1 - y], result.rows[y], width);
    }
  }
}

}  // namespace quillon
