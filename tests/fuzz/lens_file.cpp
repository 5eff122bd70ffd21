// Lens files of any bytes. The first bytes choose the image, the rest is the file.
#include "fuzz/file.h"
#include "fuzz/input.h"
#include "quillon/quillon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  using namespace quillon;
  if (size < 6) return 0;
  fuzz::Input input(bytes, 6);
  GreyImage image;
  input.Image(image, 32);
  if (!IxDistortionParaLoad(&image, fuzz::FileOf(bytes + 6, size - 6))) return 0;
  // A map of up to 2 GiB is made by right; it would take seconds here.
  const int64_t area = int64_t{image.correctedWidth} * image.correctedHeight;
  if (area > 1 << 16 && area < int64_t{1} << 28) return 0;
  IxDistortionPreCalculate(&image);
  IxDistortionCalibrate(&image);
  fuzz::RequireSound(image);
  image.Create(1 + input.Choice(40), 1 + input.Choice(40));
  IxDistortionCalibrate(&image);
  fuzz::RequireSound(image);
  return 0;
}
