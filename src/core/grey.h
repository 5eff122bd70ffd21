// Colour to grey.
#pragma once

#include "quillon/image.h"

namespace quillon {

struct Kernels;

// Re-creates `result` at the source's size. The source has pixels of three bytes.
void ColorToGrey(const Kernels& kernels, const ColourImage& source, GreyImage& result);

}  // namespace quillon
