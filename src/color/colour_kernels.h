// Row kernels of the colour spaces.
#pragma once

#include <stdint.h>

#include "simd/families.h"

namespace quillon {

// The colours that share bytes b1 and b2: one row of each table, b0 = 0 ... 255.
constexpr int kColourRow = 256;

struct ColourRow {
  uint8_t* channel[3];
  // Bit b0 % 64 of word b0 / 64: a channel of this colour lies too near the edge between two bytes
  // for single precision to tell; the bytes written are not to be trusted.
  uint64_t doubt[kColourRow / 64];
};

struct ColourKernels {
  void (*LabRow)(int b1, int b2, ColourRow& row);
  // grey[x] = byte `channel` of pixel x.
  void (*ChannelRow)(const uint8_t* bgr, uint8_t* grey, int count, int channel);
  // Pixel x of `to` = the entries of the three tables for pixel x of `from`; `to` may be `from`.
  void (*ConvertRow)(const uint8_t* from, uint8_t* to, int count, const uint8_t* table0,
                     const uint8_t* table1, const uint8_t* table2);
};

}  // namespace quillon
