// Compiled for the Microsoft ABI: image.h alone must be enough to share images with the library.
#include "other_compiler.h"

namespace {

// Placed in heap memory by hand: this half has no C++ runtime.
struct Place {};

}  // namespace

inline void* operator new(size_t, void* memory, Place) { return memory; }

extern "C" {

quillon::GreyImage* OtherMakeImage(int width, int height) {
  void* memory = malloc(sizeof(quillon::GreyImage));
  auto* image = new (memory, Place{}) quillon::GreyImage;
  image->Create(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) image->rows[y][x] = static_cast<unsigned char>(x + y);
  }
  return image;
}

void OtherDeleteImage(quillon::GreyImage* image) {
  image->quillon::GreyImage::~GreyImage();
  free(image);
}

int OtherDraw(quillon::GreyImage* image, HDC to) {
  constexpr unsigned long kCopy = 0x00CC0020;
  return image->Draw(to, 0, 0, image->width, image->height, 0, 0, kCopy);
}

HDC OtherGetMemoryDC(quillon::GreyImage* image) { return image->GetMemoryDC(); }
void OtherReleaseMemoryDC(quillon::GreyImage* image) { image->ReleaseMemoryDC(); }
void OtherThreshold(quillon::GreyImage* image, int threshold) {
  quillon::IxThreshold(image, threshold);
}
int OtherSize() { return static_cast<int>(sizeof(quillon::GreyImage)); }
}
