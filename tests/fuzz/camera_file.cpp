// Camera files of any bytes: those that are none are refused, pictures are corrected by the others.
#include "fuzz/input.h"
#include "kit/calibration/camera.h"
#include "kit/calibration/rectifier.h"
#include "kit/errors.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  using namespace quillon;
  try {
    const kit::Camera camera =
        kit::ParseCamera("camera", {reinterpret_cast<const char*>(bytes), size});
    const auto [width, height] = camera.size;
    if (int64_t{width} * height > 1 << 14) return 0;  // would take a second here
    const kit::Rectifier rectifier("camera", camera);
    fuzz::Require(rectifier.UnitPerPixel() > 0, "a pixel covers a length");
    uint8_t drawn[64];
    for (size_t i = 0; i < sizeof drawn; ++i) drawn[i] = size > 0 ? bytes[i * i % size] : 0;
    fuzz::Input input(drawn, sizeof drawn);
    GreyImage image, rectified;
    image.Create(width, height);
    input.Fill(image);
    rectifier.Apply(image, rectified);
    fuzz::Require(rectified.width == width && rectified.height == height, "one size");
    fuzz::RequireSound(rectified);
    kit::PlaceInPlane(camera, {width / 2.0, height / 2.0});
  } catch (const kit::Failure&) {  // a message to the user, by design
  }
  return 0;
}
