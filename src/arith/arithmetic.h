// Pixel arithmetic: two images by a rule, or one image by a function of its grey value.
#pragma once

#include "arith/arithmetic_kernels.h"
#include "quillon/image.h"

namespace quillon {

struct Kernels;

// The result may be a source; otherwise it is re-created at the source's size.

// Images of different sizes: nothing happens.
void CombinePixels(const Kernels& kernels, PairRule rule, const GreyImage& a, const GreyImage& b,
                   GreyImage& result);

// pixel << bits or pixel >> bits within 8 bits; 0 for bits of 8 or more, nothing happens below 0.
void ShiftPixelsLeft(const Kernels& kernels, const GreyImage& source, GreyImage& result, int bits);
void ShiftPixelsRight(const Kernels& kernels, const GreyImage& source, GreyImage& result, int bits);

// 255 - pixel.
void InvertPixels(const Kernels& kernels, const GreyImage& source, GreyImage& result);

// v = pixel * gain + offset in double; 255 from 255 on, 0 for v <= 0 or not a number, else
// truncated.
void ApplyGainOffset(const Kernels& kernels, const GreyImage& source, GreyImage& result,
                     double gain, double offset);

}  // namespace quillon
