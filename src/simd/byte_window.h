// A small window of an image in registers, from which any 64 of its bytes are picked at once.
#pragma once

#include <stddef.h>

#include "simd/vec.h"

#if QUILLON_BYTE_WINDOWS

namespace quillon::QUILLON_LEVEL {

class ByteWindow {
 public:
  static constexpr int kColumns = 16;
  static constexpr int kLines = 12;

  // From the address of its first line; it is `pitch` bytes from line to line.
  QUILLON_INLINE ByteWindow(const uint8_t* line, ptrdiff_t pitch) {
    for (auto& part : parts_) {
      part = native::LoadFourLines(line, pitch);
      line += 4 * pitch;
    }
  }

  // The bytes at the places line * 16 + column.
  QUILLON_INLINE U8<64> At(U8<64> places) const { return native::LookUp(parts_, places); }

 private:
  U8<64> parts_[kLines / 4];
};

}  // namespace quillon::QUILLON_LEVEL

#endif
