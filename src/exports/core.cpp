// Exports: colour to grey.
#include "core/grey.h"
#include "exports/guards.h"

namespace quillon {

void IxColorToGray(const ColourImage* source, GreyImage* result) {
  if (!HasPixels(source) || source->bpp <= 8 || !result || result->bpp != 8) return;
  ColorToGrey(BestKernels(), *source, *result);
}

}  // namespace quillon
