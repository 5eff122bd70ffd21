// Images for JavaScript: made and released here, their pixels copied in and out in one piece. The
// fields that JavaScript reads lie where include/quillon/image.h says.
#include <cstring>
#include <type_traits>

#include "bindings.h"
#include "quillon/quillon.h"

namespace quillon::web {
namespace {

// Calls visit with the image of its kind; an image knows its depth from the start.
template <class Visit>
auto Visited(void* image, bool isColour, Visit visit) {
  return isColour ? visit(*static_cast<ColourImage*>(image))
                  : visit(*static_cast<GreyImage*>(image));
}

// Blue, green, red as the library has them; red, green, blue, opaque as canvases do.
void ToRgba(const unsigned char* row, int width, bool isColour, unsigned char* rgba) {
  for (int x = 0; x < width; ++x, rgba += 4) {
    const unsigned char* pixel = isColour ? row + 3 * x : row + x;
    rgba[0] = isColour ? pixel[2] : pixel[0];
    rgba[1] = isColour ? pixel[1] : pixel[0];
    rgba[2] = pixel[0];
    rgba[3] = 255;
  }
}

}  // namespace

QUILLON_WEB void* ImageNew(bool isColour) {
  if (isColour) return new ColourImage;
  return new GreyImage;
}

QUILLON_WEB void ImageDelete(void* image, bool isColour) {
  Visited(image, isColour, [](auto& typed) { delete &typed; });
}

QUILLON_WEB void ImageCreate(void* image, bool isColour, int width, int height) {
  Visited(image, isColour, [&](auto& typed) { typed.Create(width, height); });
}

QUILLON_WEB void ImageAllocate(void* image, bool isColour, int bpp, int width, int height) {
  Visited(image, isColour, [&](auto& typed) {
    typed.Destroy();
    typed.AllocateBitmap(bpp, width, height);
  });
}

QUILLON_WEB void ImageCopy(void* image, bool isColour, const void* source) {
  Visited(image, isColour, [&](auto& typed) {
    typed.CopyFrom(static_cast<const std::remove_reference_t<decltype(typed)>*>(source));
  });
}

// Rows from the top, `size` bytes each, without what lies between them.
QUILLON_WEB void ImageGetRows(void* image, bool isColour, int size, unsigned char* packed) {
  Visited(image, isColour, [&](auto& typed) {
    for (int y = 0; y < typed.height; ++y) {
      std::memcpy(packed + static_cast<ptrdiff_t>(y) * size, typed.rows[y],
                  static_cast<size_t>(size));
    }
  });
}

QUILLON_WEB void ImageSetRows(void* image, bool isColour, int size, const unsigned char* packed) {
  Visited(image, isColour, [&](auto& typed) {
    for (int y = 0; y < typed.height; ++y) {
      std::memcpy(typed.rows[y], packed + static_cast<ptrdiff_t>(y) * size,
                  static_cast<size_t>(size));
    }
  });
}

QUILLON_WEB void ImageGetRgba(void* image, bool isColour, unsigned char* rgba) {
  Visited(image, isColour, [&](auto& typed) {
    for (int y = 0; y < typed.height; ++y) {
      ToRgba(typed.rows[y], typed.width, isColour,
             rgba + 4 * static_cast<ptrdiff_t>(y) * typed.width);
    }
  });
}

}  // namespace quillon::web
