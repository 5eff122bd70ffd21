// Median filters. The result may be the source.
#pragma once

#include "quillon/image.h"

namespace quillon {

struct Kernels;

void Median3x3(const Kernels& kernels, const GreyImage& source, GreyImage& result);
void Median5x5(const Kernels& kernels, const GreyImage& source, GreyImage& result);

}  // namespace quillon
