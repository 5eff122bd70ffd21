// Exports: edges, sharpening and medians.
#include "exports/guards.h"
#include "filters/gradient.h"
#include "filters/median.h"

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

void IxMedianFilter3x3(const GreyImage* source, GreyImage* result) {
  if (HasPixels(source) && result) Median3x3(BestKernels(), *source, *result);
}

void IxMedianFilter5x5(const GreyImage* source, GreyImage* result) {
  if (HasPixels(source) && result) Median5x5(BestKernels(), *source, *result);
}

}  // namespace quillon
