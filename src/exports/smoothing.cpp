// Exports: smoothing and convolution.
#include "filters/smoothing.h"

#include "exports/guards.h"
#include "filters/convolution.h"

namespace quillon {
namespace {

void Gaussian(const GreyImage* source, GreyImage* result, int size) {
  if (HasPixels(source) && result) GaussianSmoothing(BestKernels(), *source, *result, size);
}

void Mean(const GreyImage* source, GreyImage* result, int size) {
  if (HasPixels(source) && result) MeanSmoothing(BestKernels(), *source, *result, size);
}

void Convolution(const GreyImage* source, GreyImage* result, const int* kernel, int size) {
  if (!HasPixels(source) || !result || !kernel) return;
  Convolve(BestKernels(), *source, *result, kernel, size);
}

}  // namespace

void IxGaussianSmoothing3x3(const GreyImage* source, GreyImage* result) {
  Gaussian(source, result, 3);
}

void IxGaussianSmoothing5x5(const GreyImage* source, GreyImage* result) {
  Gaussian(source, result, 5);
}

void IxGaussianSmoothing7x7(const GreyImage* source, GreyImage* result) {
  Gaussian(source, result, 7);
}

void IxMeanSmoothing(const GreyImage* source, GreyImage* result, int size) {
  Mean(source, result, size);
}

void IxMeanSmoothing3x3(const GreyImage* source, GreyImage* result) { Mean(source, result, 3); }

void IxMeanSmoothing5x5(const GreyImage* source, GreyImage* result) { Mean(source, result, 5); }

void IxMeanSmoothing7x7(const GreyImage* source, GreyImage* result) { Mean(source, result, 7); }

void IxArbitraryConvolution3x3(const GreyImage* source, GreyImage* result, const int* kernel) {
  Convolution(source, result, kernel, 3);
}

void IxArbitraryConvolution5x5(const GreyImage* source, GreyImage* result, const int* kernel) {
  Convolution(source, result, kernel, 5);
}

void IxArbitraryConvolution7x7(const GreyImage* source, GreyImage* result, const int* kernel) {
  Convolution(source, result, kernel, 7);
}

}  // namespace quillon
