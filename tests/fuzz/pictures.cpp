// Image files of any bytes, through the command-line host's reader, and back through its writer.
#include "kit/images/image_files.cpp"  // with the decoder, whose look at the header bounds the size

#include "fuzz/file.h"
#include "fuzz/input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  using namespace quillon;
  int width = 0, height = 0, channels = 0;
  const bool known =
      stbi_info_from_memory(bytes, static_cast<int>(size), &width, &height, &channels);
  if (known && int64_t{width} * height > 1 << 18) return 0;
  GreyImage grey;
  ColourImage colour;
  try {
    kit::ReadImage(fuzz::FileOf(bytes, size), grey, colour);
    fuzz::Require(grey.width == width && grey.height == height, "sizes are those of the header");
    fuzz::RequireSound(colour);
    fuzz::Require(!kit::EncodePng(grey).empty(), "what was read can be written");
  } catch (const kit::Failure&) {  // a message to the user, by design
  }
  fuzz::RequireSound(grey);
  return 0;
}
