// A 32-bit Windows host that shares nothing with the library but the binary contract: the image is
// a struct written out by hand, the names are looked up in the DLL. Prints PASSED at the end.
#include <windows.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace {

struct Image {
  const void* const* operations;
  HBITMAP bitmap;
  unsigned char* bits;
  unsigned char** rows;
  int width, height, bpp, stride, bytesPerPixel, paletteEntries, imageSize;
  HDC memoryDC;
  void* work[5];
  int distortion[8];
};
static_assert(sizeof(Image) == 100);

// The library calls none of an image's operations.
const void* const kNoOperations[4] = {};

int failures = 0;

void Expect(bool holds, const char* what) {
  if (holds) return;
  std::printf("failed: %s\n", what);
  ++failures;
}

Image Empty(int bpp) {
  Image image = {};
  image.operations = kNoOperations;
  image.bpp = bpp;
  for (int& word : image.distortion) word = 0x5A5A5A5A;
  return image;
}

Image Make(int bpp, int width, int height) {
  Image image = Empty(bpp);
  BITMAPINFO info = {};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = width;
  info.bmiHeader.biHeight = height;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = static_cast<WORD>(bpp);
  void* bits = nullptr;
  image.bitmap = CreateDIBSection(nullptr, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  image.bits = static_cast<unsigned char*>(bits);
  image.width = width;
  image.height = height;
  image.stride = (width * bpp + 31) / 32 * 4;
  image.bytesPerPixel = bpp / 8;
  image.paletteEntries = bpp == 8 ? 256 : 0;
  image.imageSize = image.stride * height;
  image.rows = static_cast<unsigned char**>(std::malloc(sizeof(unsigned char*) * height));
  for (int y = 0; y < height; ++y) image.rows[y] = image.bits + (height - 1 - y) * image.stride;
  return image;
}

// The grey value that the palette gives to an index, read back through a device context.
bool HasGreyRamp(HBITMAP bitmap) {
  HDC dc = CreateCompatibleDC(nullptr);
  SelectObject(dc, bitmap);
  RGBQUAD palette[256];
  bool ramp = GetDIBColorTable(dc, 0, 256, palette) == 256;
  for (int i = 0; ramp && i < 256; ++i) {
    ramp = palette[i].rgbBlue == i && palette[i].rgbGreen == i && palette[i].rgbRed == i &&
           palette[i].rgbReserved == 0;
  }
  DeleteDC(dc);
  return ramp;
}

}  // namespace

int main() {
  HMODULE library = LoadLibraryA("quillon.dll");
  if (!library) {
    std::printf("quillon.dll does not load: %lu\n", GetLastError());
    return 1;
  }
  const auto toGrey = reinterpret_cast<void(__cdecl*)(Image*, Image*)>(
      reinterpret_cast<void*>(GetProcAddress(library, "IxColorToGray")));
  const auto threshold = reinterpret_cast<void(__cdecl*)(Image*, int)>(
      reinterpret_cast<void*>(GetProcAddress(library, "IxThreshold")));
  if (!toGrey || !threshold) {
    std::printf("exports are missing\n");
    return 1;
  }

  Image colour = Make(24, 10, 3);
  for (int i = 0; i < colour.imageSize; ++i) colour.bits[i] = 255;
  Image grey = Empty(8);
  for (int pass = 0; pass < 2; ++pass) {  // a fresh store, then one that is kept
    toGrey(&colour, &grey);
    Expect(grey.bitmap && grey.bits && grey.rows, "the grey image has pixels");
    Expect(grey.width == 10 && grey.height == 3 && grey.bpp == 8 && grey.stride == 12 &&
               grey.bytesPerPixel == 1 && grey.paletteEntries == 256 && grey.imageSize == 36,
           "its geometry fields");
    Expect(grey.rows[0] == grey.bits + 24 && grey.rows[2] == grey.bits, "rows are bottom up");
    Expect(grey.rows[1][0] == 252 && grey.rows[1][7] == 252 && grey.rows[1][8] == 254,
           "white in the block and the tail columns");
    Expect(grey.rows[1][10] == 0 && grey.rows[1][11] == 0, "row padding is zero");
    Expect(HasGreyRamp(grey.bitmap), "the palette is the grey ramp");
    Expect(grey.distortion[0] == 0x5A5A5A5A && grey.distortion[7] == 0x5A5A5A5A,
           "the distortion words are left alone");
    for (int i = 0; i < grey.imageSize; ++i) grey.bits[i] = 77;
  }
  threshold(&grey, 77);
  Expect(grey.rows[2][5] == 0 && grey.rows[2][9] == 0, "a pixel equal to the threshold is black");
  grey.rows[2][5] = 78;
  threshold(&grey, 77);
  Expect(grey.rows[2][5] == 255 && grey.rows[2][4] == 0, "a pixel above it is white");
  threshold(&colour, 77);
  Expect(colour.bits[0] == 255, "a colour image is left alone");
  if (failures == 0) std::printf("PASSED\n");
  return failures == 0 ? 0 : 1;
}
