// Exports: image pyramid.
#include "pyramid/pyramid.h"

#include "exports/guards.h"

namespace quillon {

void IxImgPyramid(const GreyImage* source, GreyImage* result) {
  if (HasPixels(source) && result) ReduceImageBy16(BestKernels(), *source, *result);
}

}  // namespace quillon
