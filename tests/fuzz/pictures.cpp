// Image files of any bytes, through the kit's decoders, and back through its writer. A PNG file's
// checksums are made right first: otherwise no changed file would reach what lies behind them.
#include <algorithm>
#include <vector>

#include "fuzz/input.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"

namespace {

using Bytes = std::vector<unsigned char>;

uint32_t At32(const Bytes& file, size_t at) {
  return uint32_t{file[at]} << 24 | file[at + 1] << 16 | file[at + 2] << 8 | file[at + 3];
}

uint32_t Crc(const unsigned char* bytes, size_t size) {
  uint32_t crc = ~0u;
  for (; size > 0; --size, ++bytes) {
    crc ^= *bytes;
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
  }
  return ~crc;
}

void MendChecksums(Bytes& file) {
  if (file.size() < 8 || file[0] != 0x89) return;
  for (size_t at = 8; at + 12 <= file.size();) {
    const size_t size = At32(file, at);
    if (size > file.size() - at - 12) return;
    const uint32_t crc = Crc(&file[at + 4], size + 4);
    for (int i = 0; i < 4; ++i) {
      file[at + 8 + size + static_cast<size_t>(i)] =
          static_cast<unsigned char>(crc >> (24 - 8 * i));
    }
    at += size + 12;
  }
}

}  // namespace

// The first byte chooses the depth.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  using namespace quillon;
  if (size == 0) return 0;
  Bytes file(bytes + 1, bytes + size);
  MendChecksums(file);
  constexpr int kMaxPixels = 1 << 18;
  const kit::Reading reading = {.depth = bytes[0] % 17 < 8 ? 0 : bytes[0] % 17,
                                .maxPixels = kMaxPixels,
                                .note = [](const std::string&) {}};
  GreyImage grey;
  ColourImage colour;
  try {
    kit::DecodeImage(file, "input", grey, colour, reading);
    fuzz::Require(grey.bits && int64_t{grey.width} * grey.height <= kMaxPixels, "the limit holds");
    fuzz::RequireSound(colour);
    fuzz::Require(!kit::EncodePng(grey).empty(), "what was read can be written");
  } catch (const kit::Failure&) {  // a message to the user, by design
  }
  fuzz::RequireSound(grey);
  return 0;
}
