#include "core/image_access.h"

#include <cstring>
#include <utility>

namespace quillon {
namespace {

// A fresh image, or the old store with the handle's palette and context as after a re-creation.
// Tells whether the store was kept.
template <class Pixel>
bool Recreate(CImage<Pixel>& image, int width, int height) {
  const bool sameGeometry = HasPixels(&image) && image.width == width && image.height == height &&
                            image.bpp == CImage<Pixel>::kDepth;
  if (!sameGeometry) {
    image.Create(width, height);
    return false;
  }
  image.memoryDC = nullptr;
  if (image.bpp == 8) store::InstallGreyRamp(image.bitmap);
  return true;
}

template <class Pixel>
void ClearPadding(CImage<Pixel>& image) {
  const size_t used = static_cast<size_t>(image.width) * sizeof(Pixel);
  const size_t padding = static_cast<size_t>(image.stride) - used;
  if (padding == 0) return;
  for (int y = 0; y < image.height; ++y) std::memset(image.rows[y] + used, 0, padding);
}

}  // namespace

template <class Pixel>
bool RecreateForOverwrite(CImage<Pixel>& image, int width, int height) {
  if (Recreate(image, width, height)) ClearPadding(image);
  return HasPixels(&image);
}

template <class Pixel>
bool RecreateZeroed(CImage<Pixel>& image, int width, int height) {
  if (Recreate(image, width, height)) {
    std::memset(image.bits, 0, static_cast<size_t>(image.imageSize));
  }
  return HasPixels(&image);
}

void SwapPixels(GreyImage& a, GreyImage& b) {
  std::swap(a.bitmap, b.bitmap);
  std::swap(a.bits, b.bits);
  std::swap(a.rows, b.rows);
  std::swap(a.width, b.width);
  std::swap(a.height, b.height);
  std::swap(a.bpp, b.bpp);
  std::swap(a.stride, b.stride);
  std::swap(a.bytesPerPixel, b.bytesPerPixel);
  std::swap(a.paletteEntries, b.paletteEntries);
  std::swap(a.imageSize, b.imageSize);
  a.memoryDC = b.memoryDC = nullptr;
}

template bool RecreateForOverwrite(GreyImage&, int, int);
template bool RecreateForOverwrite(ColourImage&, int, int);
template bool RecreateZeroed(GreyImage&, int, int);
template bool RecreateZeroed(ColourImage&, int, int);

}  // namespace quillon
