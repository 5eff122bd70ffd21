// Exports: thresholds.
#include "exports/guards.h"
#include "point/threshold.h"

namespace quillon {

void IxThreshold(GreyImage* image, int threshold) {
  if (IsGrey(image)) ApplyThreshold(BestKernels(), *image, threshold);
}

void IxDoubleThreshold(GreyImage* image, int low, int high) {
  if (IsGrey(image)) ApplyDoubleThreshold(BestKernels(), *image, low, high);
}

void IxOtsuThreshold(GreyImage* image) {
  if (!IsGrey(image)) return;
  const Kernels& kernels = BestKernels();
  ApplyThreshold(kernels, *image, ComputeOtsuThreshold(kernels, *image));
}

}  // namespace quillon
