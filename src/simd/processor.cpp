#include "simd/processor.h"

namespace quillon {

// The features of this processor that its operating system saves and restores too.
size_t LevelCount() {
#define QUILLON_FEATURE(name) \
  | static_cast<uint32_t>(__builtin_cpu_supports(#name) ? 1 : 0) << feature::name##Number
  return LevelsOf(0 QUILLON_AVX2_FEATURES(QUILLON_FEATURE)
                      QUILLON_AVX512_FEATURES(QUILLON_FEATURE));
#undef QUILLON_FEATURE
}

}  // namespace quillon
