#include "simd/processor.h"

namespace quillon {

// The features of this processor that its operating system saves and restores too.
size_t LevelCount() {
  uint32_t features = 0;
#define QUILLON_ASK_FOR(name, level) \
  if (__builtin_cpu_supports(#name)) features |= 1u << feature::name##Number;
  QUILLON_FOR_EACH_FEATURE(QUILLON_ASK_FOR)
#undef QUILLON_ASK_FOR
  return LevelsOf(features);
}

}  // namespace quillon
