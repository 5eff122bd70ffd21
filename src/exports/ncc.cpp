// Exports: image pyramid and template matching.
#include "exports/guards.h"
#include "ncc/pyramid.h"

namespace quillon {

void IxImgPyramid(const GreyImage* source, GreyImage* result) {
  if (HasPixels(source) && result) ReduceImageBy16(BestKernels(), *source, *result);
}

}  // namespace quillon
