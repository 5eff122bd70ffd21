// Binarisation in place: fixed, band, and at Otsu's level.
#pragma once

#include "quillon/image.h"

namespace quillon {

struct Kernels;

// 255 where the pixel is above the threshold, else 0.
void ApplyThreshold(const Kernels& kernels, GreyImage& image, int threshold);

// 255 where min(low, high) < pixel < high, else 0.
void ApplyDoubleThreshold(const Kernels& kernels, GreyImage& image, int low, int high);

// The level 0 ... 255 that separates the histogram into two classes of greatest variance between
// them; the lowest of equals.
int ComputeOtsuThreshold(const Kernels& kernels, const GreyImage& image);

}  // namespace quillon
