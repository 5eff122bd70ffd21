// Files of flat fields and of shading, of any bytes, through the kit, which judges them first; a
// flat field through the exports too. The first bytes choose the image, the rest is the file.
#include <fstream>

#include "fuzz/file.h"
#include "fuzz/input.h"
#include "kit/calibration/flat_field.h"
#include "kit/calibration/shading.h"
#include "kit/errors.h"
#include "kit/files/checksum.h"
#include "quillon/quillon.h"

namespace quillon::fuzz {

template <class Correction>
void Correct(const char* file, const GreyImage& image) {
  try {
    GreyImage corrected;
    Correction(file).Apply(image, corrected);
    RequireSound(corrected);
  } catch (const kit::Failure&) {  // a message to the user, by design
  }
}

}  // namespace quillon::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  using namespace quillon;
  if (size < 4) return 0;
  fuzz::Input input(bytes, 4);
  GreyImage image;
  input.Image(image, 32);
  const char* const file = fuzz::FileOf(bytes + 4, size - 4);
  fuzz::Correct<kit::FlatFieldCorrection>(file, image);
  int region[4] = {};
  IxFFCParaLoad(&image, region, file);
  IxFFCCalibrate(&image, region[0], region[1], region[2], region[3]);
  IxFFCCalibrate(&image, 0, image.width, 0, image.height);
  fuzz::RequireSound(image);
  // With the checksum that the bytes ask for: what lies behind that test is reached too.
  fuzz::Correct<kit::ShadingCorrection>(file, image);
  kit::Checksum sum;
  sum.Add({reinterpret_cast<const char*>(bytes + 4), size - 4});
  std::ofstream(file, std::ios::app | std::ios::binary) << sum.Text();
  fuzz::Correct<kit::ShadingCorrection>(file, image);
  return 0;
}
