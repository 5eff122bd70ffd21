// Where an image's pixels live: a device-independent bitmap section on Windows, a heap block
// elsewhere. Host and library both compile this file, so both can free what the other made.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "quillon/handles.h"

#ifdef _WIN32
// The graphics calls in use, declared as windows.h declares them, which this header does without.
struct tagBITMAPINFO;
struct tagRGBQUAD;
extern "C" {
__declspec(dllimport) HBITMAP
    __stdcall CreateDIBSection(HDC, const struct tagBITMAPINFO*, unsigned int, void**, void*,
                               unsigned long);
__declspec(dllimport) unsigned int __stdcall SetDIBColorTable(HDC, unsigned int, unsigned int,
                                                              const struct tagRGBQUAD*);
__declspec(dllimport) HDC __stdcall CreateCompatibleDC(HDC);
__declspec(dllimport) void* __stdcall SelectObject(HDC, void*);
__declspec(dllimport) int __stdcall BitBlt(HDC, int, int, int, int, HDC, int, int, unsigned long);
__declspec(dllimport) int __stdcall DeleteObject(void*);
__declspec(dllimport) int __stdcall DeleteDC(HDC);
}
#endif

namespace quillon::store {

struct Pixels {
  HBITMAP bitmap;       // null when the store could not be made
  unsigned char* bits;  // the bottom row
};

// What fresh pixels hold. Clearing a store that is written at once costs as much as a fast
// operation.
enum class Contents { kZero, kAnything };

#ifdef _WIN32

struct BitmapHeader {  // BITMAPINFOHEADER
  uint32_t size;
  int32_t width, height;
  uint16_t planes, bitCount;
  uint32_t compression, imageSize;
  int32_t xPixelsPerMetre, yPixelsPerMetre;
  uint32_t coloursUsed, coloursImportant;
};
static_assert(sizeof(BitmapHeader) == 40);

struct BitmapInfo {
  BitmapHeader header;
  uint32_t palette[256];  // left empty here; InstallGreyRamp sets it through a context
};

// A bottom-up section of `height` rows; fresh sections read as zero, whatever is asked.
inline Pixels New(int bpp, int width, int height, int /*imageSize*/, Contents) {
  BitmapInfo info = {};
  info.header.size = sizeof(BitmapHeader);
  info.header.width = width;
  info.header.height = height;
  info.header.planes = 1;
  info.header.bitCount = static_cast<uint16_t>(bpp);
  constexpr unsigned int kRgbColours = 0;
  void* bits = nullptr;
  HBITMAP bitmap = CreateDIBSection(nullptr, reinterpret_cast<const struct tagBITMAPINFO*>(&info),
                                    kRgbColours, &bits, nullptr, 0);
  return {bitmap, static_cast<unsigned char*>(bits)};
}

inline void Free(HBITMAP bitmap) { DeleteObject(bitmap); }

inline HDC NewMemoryDC(HBITMAP bitmap) {
  HDC dc = CreateCompatibleDC(nullptr);
  SelectObject(dc, bitmap);
  return dc;
}

// Hosts have come to rely on this order of the two release calls.
inline void ReleaseMemoryDC(HDC dc) {
  DeleteObject(dc);
  DeleteDC(dc);
}

inline void InstallGreyRamp(HBITMAP bitmap) {
  uint32_t ramp[256];
  for (uint32_t i = 0; i < 256; ++i) ramp[i] = i * 0x010101u;
  HDC dc = NewMemoryDC(bitmap);
  SetDIBColorTable(dc, 0, 256, reinterpret_cast<const struct tagRGBQUAD*>(ramp));
  ReleaseMemoryDC(dc);
}

inline void Blit(HDC to, int x, int y, int width, int height, HDC from, int fromX, int fromY,
                 unsigned long operation) {
  BitBlt(to, x, y, width, height, from, fromX, fromY, operation);
}

inline void Select(HDC dc, HBITMAP bitmap) { SelectObject(dc, bitmap); }
inline void DeleteContext(HDC dc) { DeleteDC(dc); }

#else

constexpr size_t kPixelAlignment = 64;

// One heap block; the bitmap handle is its address. A large one that is to be zero comes as
// untouched zero pages from the system; a small one ends where its pixels end, for memory checkers
// to see.
inline Pixels New(int /*bpp*/, int /*width*/, int /*height*/, int imageSize, Contents contents) {
  constexpr int kLarge = 1 << 17;
  const size_t size = static_cast<size_t>(imageSize);
  const bool zero = contents == Contents::kZero;
  void* block = nullptr;
  if (imageSize >= kLarge) {
    block = zero ? calloc(1, size + kPixelAlignment) : malloc(size + kPixelAlignment);
  } else if (posix_memalign(&block, kPixelAlignment, size) != 0) {
    block = nullptr;
  } else if (zero) {
    memset(block, 0, size);
  }
  const uintptr_t first = reinterpret_cast<uintptr_t>(block);
  const uintptr_t aligned = (first + kPixelAlignment - 1) & ~(kPixelAlignment - 1);
  return {static_cast<HBITMAP>(block), reinterpret_cast<unsigned char*>(aligned)};
}

inline void Free(HBITMAP bitmap) { free(bitmap); }

// There is nothing to draw on: contexts are null and drawing does nothing.
inline HDC NewMemoryDC(HBITMAP) { return nullptr; }
inline void ReleaseMemoryDC(HDC) {}
inline void InstallGreyRamp(HBITMAP) {}
inline void Blit(HDC, int, int, int, int, HDC, int, int, unsigned long) {}
inline void Select(HDC, HBITMAP) {}
inline void DeleteContext(HDC) {}

#endif

}  // namespace quillon::store
