// Conversion of pixels through colour tables, and access to one channel.
#pragma once

#include "quillon/image.h"

namespace quillon {

struct Kernels;

// Both are false when there is no memory for the result.

// Byte k of every pixel becomes the entry of table k for the pixel's colour.
bool ConvertByColourTables(const Kernels& kernels, const ColourImage& source, ColourImage& result,
                           const uint8_t* table0, const uint8_t* table1, const uint8_t* table2);

// Byte `channel` of every pixel; other channels than 0, 1 and 2 leave the new result all zero.
bool CopyChannel(const Kernels& kernels, const ColourImage& source, GreyImage& result, int channel);

}  // namespace quillon
