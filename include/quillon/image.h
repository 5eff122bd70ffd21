// The image object that host and library share.
//
//   quillon::CImage<unsigned char> grey;     // 8 bits a pixel
//   grey.Create(640, 480);                   // all zero
//   grey.rows[y][x] = 255;                   // row 0 is the top row as displayed
//
// The order and widths of the fields are a binary contract: in the 32-bit Windows build the object
// has 100 bytes and a table of four virtual operations, whatever compiler built the host. The row
// table and the work buffers are blocks of the C heap that either side may free, so on Windows the
// host shares the C runtime of the library (msvcrt.dll).
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "quillon/handles.h"
#include "quillon/pixel_store.h"

namespace quillon {

// A colour pixel: the byte order of a 24-bit bitmap, without padding.
struct RGB_24 {
  unsigned char blue, green, red;
};
static_assert(sizeof(RGB_24) == 3);

// Not final: the compiler would then call the object's own operations without looking into its
// table, where a host may have put others.
template <class Pixel>
class CImage {
 public:
  static constexpr int kDepth = 8 * static_cast<int>(sizeof(Pixel));

  // An empty image: no pixels, but it already reports its depth. The distortion words stay as
  // they are.
  CImage() {}
  ~CImage() { Destroy(); }
  CImage(const CImage&) = delete;
  CImage& operator=(const CImage&) = delete;

  // The four virtual operations, in the order of their slots. Away from Windows there is no device
  // to draw on: the first two do nothing and GetMemoryDC returns null.

  // Combines a part of this image into `destination` with a raster operation, through the context
  // of GetMemoryDC, which ReleaseMemoryDC ends: both are called through the table. Always 1.
  virtual int Draw(HDC destination, int x, int y, int drawnWidth, int drawnHeight, int sourceX,
                   int sourceY, unsigned long operation);
  // Combines `other`, from its point (x, y), into `destination` at (x, y), at this image's size.
  // Always 1.
  virtual int DrawBitmap(HDC destination, int x, int y, HBITMAP other, unsigned long operation);
  // A new device context with this image selected into it; kept in memoryDC.
  virtual HDC GetMemoryDC();
  // Releases memoryDC. The field keeps its stale value.
  virtual void ReleaseMemoryDC();

  // Re-creates the image at width x height, all zero, at the class's depth, with a grey palette
  // when that is 8. Forgets the memory DC of an image that had a bitmap.
  void Create(int newWidth, int newHeight) { Create(newWidth, newHeight, store::Contents::kZero); }
  // The same for a caller who writes every pixel: all bytes may hold anything.
  void CreateForOverwrite(int newWidth, int newHeight) {
    Create(newWidth, newHeight, store::Contents::kAnything);
  }
  // Re-creates the image at the source's size and depth and copies its bytes, padding included. A
  // source without pixels gives its geometry alone, none at all leaves the image without pixels.
  void CopyFrom(const CImage* source);
  // Makes geometry, pixel store and row table; what was there before is not released. Colour
  // images have 24 bits a pixel, whatever is asked. Sizes that are not positive, or need more than
  // 2^31 - 1 bytes, or memory that is not there, give an empty image: width, height and what
  // follows from them are as asked, but bitmap, bits and rows are null. Those three tell whether
  // there are pixels.
  void AllocateBitmap(int newBpp, int newWidth, int newHeight) {
    AllocateBitmap(newBpp, newWidth, newHeight, store::Contents::kZero);
  }
  // Releases everything the image owns; its geometry stays. An image without a bitmap is left
  // alone.
  void Destroy();

  HBITMAP bitmap = nullptr;        // owns the pixels; null while the image is empty
  unsigned char* bits = nullptr;   // the bottom row: rows are stored bottom up
  unsigned char** rows = nullptr;  // rows[y] = bits + (height - 1 - y) * stride
  int32_t width = 0;
  int32_t height = 0;
  int32_t bpp = kDepth;
  int32_t stride = 0;  // bytes from row to row: a multiple of 4
  int32_t bytesPerPixel = 0;
  int32_t paletteEntries = 0;
  int32_t imageSize = 0;  // stride * height
  HDC memoryDC = nullptr;

  // Calibration state: blocks of the C heap, released with the image.
  double* flatFieldTable = nullptr;          // 256 gains
  double* distortionCoefficients = nullptr;  // 10 rows of (x, y)
  double** distortionCoefficientRows = nullptr;
  int32_t* distortionMap = nullptr;  // correctedHeight rows of (source x, source y)
  int32_t** distortionMapRows = nullptr;
  int32_t centreX, centreY;
  int32_t correctedWidth, correctedHeight;
  int32_t xMax, xMin, yMin, yMax;

 private:
  // Rows are padded to a multiple of 4 bytes.
  static int64_t RowBytes(int depth, int pixels) {
    return (static_cast<int64_t>(pixels) * depth + 31) / 32 * 4;
  }
  void ReleasePixels();
  void SetGeometry(int depth, int newWidth, int newHeight);
  void AllocateBitmap(int newBpp, int newWidth, int newHeight, store::Contents contents);
  void Create(int newWidth, int newHeight, store::Contents contents);
};

using GreyImage = CImage<unsigned char>;
using ColourImage = CImage<RGB_24>;

// ---- the contract, held by the compiler ---------------------------------------------------------

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
#endif
static_assert(sizeof(GreyImage) == (sizeof(void*) == 4 ? 100 : 144));
static_assert(sizeof(GreyImage) == sizeof(ColourImage));
static_assert(offsetof(GreyImage, bitmap) == 1 * sizeof(void*));
static_assert(offsetof(GreyImage, bits) == 2 * sizeof(void*));
static_assert(offsetof(GreyImage, rows) == 3 * sizeof(void*));
static_assert(offsetof(GreyImage, width) == 4 * sizeof(void*));
static_assert(offsetof(GreyImage, height) == 4 * sizeof(void*) + 4);
static_assert(offsetof(GreyImage, bpp) == 4 * sizeof(void*) + 8);
static_assert(offsetof(GreyImage, stride) == 4 * sizeof(void*) + 12);
static_assert(offsetof(GreyImage, bytesPerPixel) == 4 * sizeof(void*) + 16);
static_assert(offsetof(GreyImage, paletteEntries) == 4 * sizeof(void*) + 20);
static_assert(offsetof(GreyImage, imageSize) == 4 * sizeof(void*) + 24);
static_assert(offsetof(GreyImage, memoryDC) == (sizeof(void*) == 4 ? 44 : 64));
static_assert(offsetof(GreyImage, flatFieldTable) == (sizeof(void*) == 4 ? 48 : 72));
static_assert(offsetof(GreyImage, distortionMapRows) == (sizeof(void*) == 4 ? 64 : 104));
static_assert(offsetof(GreyImage, centreX) == (sizeof(void*) == 4 ? 68 : 112));
static_assert(offsetof(GreyImage, yMax) == (sizeof(void*) == 4 ? 96 : 140));
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

// ---- members ------------------------------------------------------------------------------------

template <class Pixel>
void CImage<Pixel>::ReleasePixels() {
  if (!bitmap) return;
  free(rows);
  store::Free(bitmap);
  bitmap = nullptr;
  bits = nullptr;
  rows = nullptr;
}

// In 32 bits that wrap: a size that is too large for them has no store.
template <class Pixel>
void CImage<Pixel>::SetGeometry(int depth, int newWidth, int newHeight) {
  width = newWidth;
  height = newHeight;
  bpp = depth;
  stride = static_cast<int32_t>(RowBytes(depth, newWidth));
  bytesPerPixel = depth / 8;
  paletteEntries = depth >= 0 && depth <= 8 ? 1 << depth : 0;
  imageSize =
      static_cast<int32_t>(static_cast<uint32_t>(stride) * static_cast<uint32_t>(newHeight));
}

template <class Pixel>
void CImage<Pixel>::AllocateBitmap(int newBpp, int newWidth, int newHeight,
                                   store::Contents contents) {
  const int depth = sizeof(Pixel) == 1 ? newBpp : kDepth;
  SetGeometry(depth, newWidth, newHeight);
  bitmap = nullptr;
  bits = nullptr;
  rows = nullptr;
  if (newWidth <= 0 || newHeight <= 0 || depth <= 0 || depth > 32) return;
  if (RowBytes(depth, newWidth) > INT32_MAX / newHeight) return;

  const store::Pixels pixels = store::New(depth, newWidth, newHeight, imageSize, contents);
  if (!pixels.bits) return;
  auto** table =
      static_cast<unsigned char**>(malloc(sizeof(unsigned char*) * static_cast<size_t>(newHeight)));
  if (!table) {
    store::Free(pixels.bitmap);
    return;
  }
  for (int y = 0; y < newHeight; ++y) {
    table[y] = pixels.bits + static_cast<ptrdiff_t>(newHeight - 1 - y) * stride;
  }
  bitmap = pixels.bitmap;
  bits = pixels.bits;
  rows = table;
}

template <class Pixel>
void CImage<Pixel>::Create(int newWidth, int newHeight, store::Contents contents) {
  if (bitmap) memoryDC = nullptr;
  ReleasePixels();
  AllocateBitmap(kDepth, newWidth, newHeight, contents);
  if (bitmap && paletteEntries == 256) store::InstallGreyRamp(bitmap);
}

template <class Pixel>
void CImage<Pixel>::CopyFrom(const CImage* source) {
  if (source == this) return;
  ReleasePixels();
  if (!source) return;
  if (source->bits) {
    AllocateBitmap(source->bpp, source->width, source->height, store::Contents::kAnything);
  } else {
    SetGeometry(sizeof(Pixel) == 1 ? source->bpp : kDepth, source->width, source->height);
  }
  paletteEntries = source->paletteEntries < 256 ? source->paletteEntries : 256;
  if (!bitmap) return;
  if (paletteEntries == 256) store::InstallGreyRamp(bitmap);
  // A source that reports another depth than its store has may hold fewer bytes.
  const int32_t least = source->imageSize < imageSize ? source->imageSize : imageSize;
  const size_t held = least > 0 ? static_cast<size_t>(least) : 0;
  memcpy(bits, source->bits, held);
  memset(bits + held, 0, static_cast<size_t>(imageSize) - held);
}

template <class Pixel>
void CImage<Pixel>::Destroy() {
  if (!bitmap) return;
  free(flatFieldTable);
  free(distortionCoefficients);
  free(distortionCoefficientRows);
  free(distortionMap);
  free(distortionMapRows);
  flatFieldTable = nullptr;
  distortionCoefficients = nullptr;
  distortionCoefficientRows = nullptr;
  distortionMap = nullptr;
  distortionMapRows = nullptr;
  ReleasePixels();
}

template <class Pixel>
int CImage<Pixel>::Draw(HDC destination, int x, int y, int drawnWidth, int drawnHeight, int sourceX,
                        int sourceY, unsigned long operation) {
  HDC source = GetMemoryDC();
  store::Select(source, bitmap);
  store::Blit(destination, x, y, drawnWidth, drawnHeight, source, sourceX, sourceY, operation);
  ReleaseMemoryDC();
  return 1;
}

template <class Pixel>
int CImage<Pixel>::DrawBitmap(HDC destination, int x, int y, HBITMAP other,
                              unsigned long operation) {
  HDC source = store::NewMemoryDC(other);
  store::Blit(destination, x, y, width, height, source, x, y, operation);
  store::DeleteContext(source);
  return 1;
}

template <class Pixel>
HDC CImage<Pixel>::GetMemoryDC() {
  memoryDC = store::NewMemoryDC(bitmap);
  return memoryDC;
}

template <class Pixel>
void CImage<Pixel>::ReleaseMemoryDC() {
  if (memoryDC) store::ReleaseMemoryDC(memoryDC);
}

}  // namespace quillon
