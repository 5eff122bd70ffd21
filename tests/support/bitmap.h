// The pixels of a bitmap that only its handle is known of.
#pragma once

#include <cstdint>

#include "quillon/handles.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace quillon::test {

// The bottom row.
inline const uint8_t* BitsOf(HBITMAP bitmap) {
#ifdef _WIN32
  BITMAP description = {};
  GetObject(bitmap, sizeof description, &description);
  return static_cast<const uint8_t*>(description.bmBits);
#else
  const auto block = reinterpret_cast<uintptr_t>(bitmap);
  return reinterpret_cast<const uint8_t*>((block + 63) / 64 * 64);
#endif
}

}  // namespace quillon::test
