// Row kernels of colour to grey and of splitting colour rows into planes.
#pragma once

#include <stdint.h>

#include "simd/families.h"

namespace quillon {

struct GreyKernels {
  // The fixed-point grey of `count` pixels; count is a multiple of 8.
  void (*GreyRow)(const uint8_t* bgr, uint8_t* grey, int count);
  // The three planes of `count` pixels.
  void (*SplitRow)(const uint8_t* bgr, uint8_t* plane0, uint8_t* plane1, uint8_t* plane2,
                   int count);
  // Sixteen packed pixels in three blocks of 16 bytes become sixteen blue, green and red values.
  void (*DeinterleaveBgr16)(uint8_t* first, uint8_t* second, uint8_t* third);
};

}  // namespace quillon
