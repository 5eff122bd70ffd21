// What workers need of images beside their fields: is there anything to read, and a result that is
// ready to be written.
#pragma once

#include "quillon/image.h"

namespace quillon {

// Whether the image can be read as rows of `width` pixels of this type.
template <class Pixel>
bool HasPixels(const CImage<Pixel>* image) {
  return image && image->bitmap && image->bits && image->rows && image->width > 0 &&
         image->height > 0 &&
         image->stride >= static_cast<int64_t>(image->width) * static_cast<int>(sizeof(Pixel));
}

// An image with pixels that reports 8 bits.
inline bool IsGrey(const GreyImage* image) { return HasPixels(image) && image->bpp == 8; }

// Re-creates `image` for a worker that writes every pixel of it. Where the geometry stays, the
// store stays too: a fresh one costs more in page faults than most operations. Row padding is zero
// afterwards, as in a fresh store; pixels hold anything. False when there is no image to write.
template <class Pixel>
bool RecreateForOverwrite(CImage<Pixel>& image, int width, int height);

// The same for a worker that leaves pixels unwritten: all bytes are zero.
template <class Pixel>
bool RecreateZeroed(CImage<Pixel>& image, int width, int height);

// Exchanges the pixels of two images; calibration and the rest stay. For a result that replaces its
// own source: where there is no memory for it, the source is still there.
void SwapPixels(GreyImage& a, GreyImage& b);

}  // namespace quillon
