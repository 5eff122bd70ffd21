// Row kernels of rotation.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "simd/families.h"

namespace quillon {

// Positions in whole numbers have this many bits behind the binary point: with nine before it,
// enough for a strip of columns, they fit 32 bits.
constexpr int kPositionBits = 22;
constexpr int kStripColumns = 256;
constexpr int kLanesBeyond = 16;  // of fixedX and fixedY that can be read behind the last column

// Rows that are turned together, and the columns that go with them.
constexpr int kBandRows = 8;
constexpr int kBandColumns = 8;

// A band of rows in a strip of columns. Column x of row i shows the source at
//   (columnX[x] + rowX) + originX,  (rowY - columnY[x]) + originY
// which is, from the pixel at `start` on and within 1.01 units of 2^-kPositionBits,
//   fixedX[x] + startX[i],  fixedY[x] + startY[i]
// and column x + c within 1.52 units at
//   fixedX[x] + stepX[c] + startX[i],  fixedY[x] + stepY[c] + startY[i]
struct RotatedBand {
  const double* columnX;
  const double* columnY;
  double originX, originY;
  const uint8_t* top;  // the source's row 0; row 1 is `stride` bytes before it
  int32_t stride;
  int32_t width, height;

  const int32_t* fixedX;
  const int32_t* fixedY;
  int32_t stepX[kBandColumns], stepY[kBandColumns];  // what neighbouring columns add
  int32_t startColumn, startLine;
  const uint8_t* start;

  // Where the cache is asked for pixels ahead of time: `ahead` bytes from where a row reads now,
  // which is what some later row will show. 0 asks for nothing.
  int32_t ahead;

  int32_t startX[kBandRows], startY[kBandRows];
  struct Row {
    double rowX, rowY;
    // Columns first ... end - 1 are turned, all of which lie inside the source; none of rows behind
    // the last.
    int32_t first, end;
    uint8_t* out;
  } rows[kBandRows];
};

struct RotationKernels {
  // The pixel at the truncated position.
  void (*NearestBand)(const RotatedBand& band);
  // The interpolated pixel; there is a next column and a next row at every position, and at those
  // two units beyond.
  void (*BilinearBand)(const RotatedBand& band);
};

}  // namespace quillon
