#include "core/image_access.h"

#include <cstring>
#include <utility>

#include "core/buffer.h"

namespace quillon {
namespace {

// Whether the store can stay. The handle's palette and context are then as after a re-creation.
template <class Pixel>
bool KeepStore(CImage<Pixel>& image, int width, int height) {
  if (!HasPixels(&image) || image.width != width || image.height != height ||
      image.bpp != CImage<Pixel>::kDepth) {
    return false;
  }
  image.memoryDC = nullptr;
  if (image.bpp == 8) store::InstallGreyRamp(image.bitmap);
  return true;
}

// An image without width or height cannot be created, whatever memory there is.
template <class Pixel>
bool WasCreated(const CImage<Pixel>& image) {
  const bool wasCreated = HasPixels(&image);
  if (!wasCreated && image.width > 0 && image.height > 0) NoteLackOfMemory();
  return wasCreated;
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
  if (!KeepStore(image, width, height)) image.CreateForOverwrite(width, height);
  if (!WasCreated(image)) return false;
  ClearPadding(image);
  return true;
}

template <class Pixel>
bool RecreateZeroed(CImage<Pixel>& image, int width, int height) {
  if (KeepStore(image, width, height)) {
    std::memset(image.bits, 0, static_cast<size_t>(image.imageSize));
  } else {
    image.Create(width, height);
  }
  return WasCreated(image);
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
