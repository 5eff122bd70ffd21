// Lens files of any bytes, through the exports and through the kit, which judges them first. The
// first bytes choose the image, the rest is the file.
#include "fuzz/file.h"
#include "fuzz/input.h"
#include "kit/calibration/lens.h"
#include "kit/errors.h"
#include "quillon/quillon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  using namespace quillon;
  if (size < 6) return 0;
  fuzz::Input input(bytes, 6);
  GreyImage image;
  input.Image(image, 32);
  const char* const file = fuzz::FileOf(bytes + 6, size - 6);
  try {
    GreyImage corrected;
    kit::LensCorrection(file).Apply(image, corrected);
    fuzz::Require(corrected.width == image.width && corrected.height == image.height, "one size");
    fuzz::RequireSound(corrected);
  } catch (const kit::Failure&) {  // a message to the user, by design
  }
  if (!IxDistortionParaLoad(&image, file)) return 0;
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
