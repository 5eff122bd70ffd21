// Images cross between two compilers with different rules of class layout: both agree on every
// field and on the four virtual operations. Prints PASSED at the end.
#include <cstdio>

#include <windows.h>

#include "other_compiler.h"

namespace {

using quillon::GreyImage;

int failures = 0;

void Expect(bool holds, const char* what) {
  if (holds) return;
  std::printf("failed: %s\n", what);
  ++failures;
}

// Whether drawing the image through `draw` puts its grey values on a memory device.
template <class DrawImage>
bool Draws(GreyImage& image, const DrawImage& draw) {
  quillon::ColourImage canvas;
  canvas.Create(image.width, image.height);
  HDC dc = canvas.GetMemoryDC();
  bool same = draw(image, dc) == 1;
  GdiFlush();
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      for (int c = 0; c < 3; ++c) same = same && canvas.rows[y][3 * x + c] == image.rows[y][x];
    }
  }
  canvas.ReleaseMemoryDC();
  return same;
}

// A call through the table that the optimiser cannot see through.
GreyImage& Opaque(GreyImage& image) {
  GreyImage* volatile pointer = &image;
  return *pointer;
}

}  // namespace

int main() {
  Expect(OtherSize() == 100 && sizeof(GreyImage) == 100, "the object has 100 bytes in both");

  GreyImage* theirs = OtherMakeImage(37, 11);
  Expect(theirs->width == 37 && theirs->stride == 40 && theirs->rows[10] == theirs->bits,
         "fields of an image that the other compiler made");
  Expect(Draws(Opaque(*theirs),
               [](GreyImage& image, HDC dc) {
                 return image.Draw(dc, 0, 0, image.width, image.height, 0, 0, SRCCOPY);
               }),
         "their operation, called from here");
  Expect(Opaque(*theirs).GetMemoryDC() == theirs->memoryDC && theirs->memoryDC, "their context");
  Opaque(*theirs).ReleaseMemoryDC();

  GreyImage ours;
  ours.CopyFrom(theirs);
  Expect(Draws(ours, [](GreyImage& image, HDC dc) { return OtherDraw(&image, dc); }),
         "our operation, called from there");
  Expect(OtherGetMemoryDC(&ours) == ours.memoryDC && ours.memoryDC, "our context");
  OtherReleaseMemoryDC(&ours);

  OtherThreshold(theirs, 20);
  quillon::IxThreshold(&ours, 20);
  bool same = true;
  for (int y = 0; y < 11; ++y) {
    for (int x = 0; x < 37; ++x) {
      same = same && theirs->rows[y][x] == (x + y > 20 ? 255 : 0) &&
             ours.rows[y][x] == theirs->rows[y][x];
    }
  }
  Expect(same, "the library serves both");
  theirs->Create(5, 5);  // made there, released here
  Expect(theirs->rows[0][4] == 0, "re-created by the other side");
  OtherDeleteImage(theirs);
  if (failures == 0) std::printf("PASSED\n");
  return failures == 0 ? 0 : 1;
}
