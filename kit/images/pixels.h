// Whether there are pixels: an image that gets no memory keeps the size that was asked for.
#pragma once

#include "kit/errors.h"
#include "kit/text/text.h"
#include "quillon/image.h"

namespace quillon::kit {

template <class Pixel>
void RequirePixels(const CImage<Pixel>& image) {
  if (!image.bits) throw OutOfMemory("a picture of " + SizeText(image.width, image.height));
}

}  // namespace quillon::kit
