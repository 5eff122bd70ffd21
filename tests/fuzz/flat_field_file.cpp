// Flat-field files of any bytes. The first byte chooses the image, the rest is the file.
#include "fuzz/file.h"
#include "fuzz/input.h"
#include "quillon/quillon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  using namespace quillon;
  if (size < 4) return 0;
  fuzz::Input input(bytes, 4);
  GreyImage image;
  input.Image(image, 32);
  int region[4] = {};
  IxFFCParaLoad(&image, region, fuzz::FileOf(bytes + 4, size - 4));
  IxFFCCalibrate(&image, region[0], region[1], region[2], region[3]);
  IxFFCCalibrate(&image, 0, image.width, 0, image.height);
  fuzz::RequireSound(image);
  return 0;
}
