// Exports: edges and sharpening.
#include "exports/guards.h"
#include "filters/gradient.h"

namespace quillon {

void IxSobel(const GreyImage* source, GreyImage* result) {
  if (HasPixels(source) && result) Sobel(BestKernels(), *source, *result);
}

void IxPrewitt(const GreyImage* source, GreyImage* result) {
  if (HasPixels(source) && result) Prewitt(BestKernels(), *source, *result);
}

void IxRobert(const GreyImage* source, GreyImage* result) {
  if (HasPixels(source) && result) Robert(BestKernels(), *source, *result);
}

void IxLaplacian(const GreyImage* source, GreyImage* result) {
  if (HasPixels(source) && result) Laplacian(BestKernels(), *source, *result);
}

void IxLaplacianSharping(const GreyImage* source, GreyImage* result) {
  if (HasPixels(source) && result) LaplacianSharpen(BestKernels(), *source, *result);
}

}  // namespace quillon
