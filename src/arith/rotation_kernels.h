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

// What is the same for the pixels of a row in a strip of columns: column x shows the source at
//   (columnX[x] + rowX) + originX,  (rowY - columnY[x]) + originY
// which is, from the pixel at `start` on and within 1.01 units of 2^-kPositionBits,
//   fixedX[x] + startX,  fixedY[x] + startY
struct RotatedRow {
  const double* columnX;
  const double* columnY;
  double rowX, rowY;
  double originX, originY;
  const uint8_t* top;  // the source's row 0; row 1 is `stride` bytes before it
  int32_t stride;

  const int32_t* fixedX;
  const int32_t* fixedY;
  int32_t startX, startY;
  const uint8_t* start;

  // Of every eight pixels, the kernel asks the cache for one ahead of time: the one that pixel
  // number `fetched` will show some rows further down, `ahead` bytes from where it reads now.
  // `fetched` changes from row to row, so eight rows ask for all that the later row needs;
  // kStripColumns asks for nothing.
  int32_t fetched;
  int32_t ahead;
};

struct RotationKernels {
  // Columns first ... end - 1 of the result, all of which lie inside the source: the pixel at the
  // truncated position.
  void (*NearestRow)(const RotatedRow& row, uint8_t* out, int first, int end);
  // The interpolated pixel; there is a next column and a next row at every position, and at those
  // one unit beyond.
  void (*BilinearRow)(const RotatedRow& row, uint8_t* out, int first, int end);

  // Column x of the `rows` rows of `to` = the `rows` first pixels of row x of `from`, for `columns`
  // columns. From row to row it is `pitch` bytes.
  void (*Transpose)(const uint8_t* from, ptrdiff_t fromPitch, int columns, uint8_t* to,
                    ptrdiff_t toPitch, int rows);
  // to[x] = from[count - 1 - x]; the rows lie apart.
  void (*ReverseRow)(const uint8_t* from, uint8_t* to, int count);
};

}  // namespace quillon
