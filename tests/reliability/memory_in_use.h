// How much memory the process holds.
#pragma once

#include <cstddef>

#ifdef _WIN32
#include <windows.h>
#else
#include <malloc.h>
#endif
#if defined(QUILLON_SANITIZED)
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace quillon::test {

#ifdef _WIN32

// All committed pages, those of bitmaps and of every heap. Heaps keep some pages in reserve.
constexpr size_t kMemoryTolerance = size_t{1} << 20;
inline size_t MemoryInUse() {
  size_t committed = 0;
  MEMORY_BASIC_INFORMATION range;
  for (char* at = nullptr; VirtualQuery(at, &range, sizeof range) == sizeof range;
       at = static_cast<char*>(range.BaseAddress) + range.RegionSize) {
    if (range.State == MEM_COMMIT && range.Type == MEM_PRIVATE) committed += range.RegionSize;
  }
  return committed;
}

#else

// Bytes of allocated blocks. The C library counts what its caches of small blocks hold ready, up to
// seven blocks of each size; sanitizers count exactly.
#if defined(QUILLON_SANITIZED)
constexpr size_t kMemoryTolerance = 0;
#else
constexpr size_t kMemoryTolerance = size_t{1} << 18;
#endif
inline size_t MemoryInUse() {
#if defined(QUILLON_SANITIZED)
  return __sanitizer_get_current_allocated_bytes();
#else
#if defined(__EMSCRIPTEN__)
  const auto info = mallinfo();  // of 32 bits, as the addresses are
#else
  const auto info = mallinfo2();
#endif
  return static_cast<size_t>(info.uordblks) + static_cast<size_t>(info.hblkhd);
#endif
}

#endif

}  // namespace quillon::test
