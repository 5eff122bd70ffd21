// Row kernels of rotation.
#pragma once

#include <stdint.h>

#include "simd/table.h"

namespace quillon {

// What is the same for all pixels of a row: column x shows the source at
//   (columnX[x] + rowX) + originX,  (rowY - columnY[x]) + originY
struct RotatedRow {
  const double* columnX;
  const double* columnY;
  double rowX, rowY;
  double originX, originY;
  const uint8_t* top;  // the source's row 0; row 1 is `stride` bytes before it
  int32_t stride;
};

struct RotationKernels {
  // Columns first ... end - 1 of the result, all of which lie inside the source: the pixel at the
  // truncated position.
  void (*NearestRow)(const RotatedRow& row, uint8_t* out, int first, int end);
  // The interpolated pixel; there is a next column and a next row at every position.
  void (*BilinearRow)(const RotatedRow& row, uint8_t* out, int first, int end);
};

QUILLON_KERNELS(RotationKernels, rotation)

}  // namespace quillon
