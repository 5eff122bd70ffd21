// Flat-field files of any bytes, through the exports and through the kit, which judges them first.
// The first byte chooses the image, the rest is the file.
#include "fuzz/file.h"
#include "fuzz/input.h"
#include "kit/calibration/flat_field.h"
#include "kit/errors.h"
#include "quillon/quillon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  using namespace quillon;
  if (size < 4) return 0;
  fuzz::Input input(bytes, 4);
  GreyImage image;
  input.Image(image, 32);
  const char* const file = fuzz::FileOf(bytes + 4, size - 4);
  try {
    GreyImage corrected;
    kit::FlatFieldCorrection(file).Apply(image, corrected);
    fuzz::RequireSound(corrected);
  } catch (const kit::Failure&) {  // a message to the user, by design
  }
  int region[4] = {};
  IxFFCParaLoad(&image, region, file);
  IxFFCCalibrate(&image, region[0], region[1], region[2], region[3]);
  IxFFCCalibrate(&image, 0, image.width, 0, image.height);
  fuzz::RequireSound(image);
  return 0;
}
