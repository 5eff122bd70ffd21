#include "simd/processor.h"

// Whether this processor, and its operating system with it, has a feature of cmake/levels.cmake.
#if defined(__aarch64__)
#include <sys/auxv.h>
#define QUILLON_HAS_FEATURE(name) ((getauxval(AT_HWCAP) & HWCAP_##name) != 0)
#else
#define QUILLON_HAS_FEATURE(name) (__builtin_cpu_supports(#name) != 0)
#endif

namespace quillon {

size_t LevelCount() {
  uint32_t features = 0;
#define QUILLON_ASK_FOR(name, level) \
  if (QUILLON_HAS_FEATURE(name)) features |= 1u << feature::name##Number;
  QUILLON_FOR_EACH_FEATURE(QUILLON_ASK_FOR)
#undef QUILLON_ASK_FOR
  return LevelsOf(features);
}

}  // namespace quillon
