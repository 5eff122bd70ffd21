// Gradient and edge filters. The result may be the source.
#pragma once

#include "quillon/image.h"

namespace quillon {

struct Kernels;

void Sobel(const Kernels& kernels, const GreyImage& source, GreyImage& result);
void Prewitt(const Kernels& kernels, const GreyImage& source, GreyImage& result);
void Robert(const Kernels& kernels, const GreyImage& source, GreyImage& result);
void Laplacian(const Kernels& kernels, const GreyImage& source, GreyImage& result);
void LaplacianSharpen(const Kernels& kernels, const GreyImage& source, GreyImage& result);

}  // namespace quillon
