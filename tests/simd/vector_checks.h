// Checks of the vector layer and of the walkers over blocks, made once per level.
#pragma once

#include "simd/levels.h"

namespace quillon {

// Null, or what came out wrong first.
#define QUILLON_DECLARE_LEVEL(level) \
  namespace level {                  \
  const char* CheckVectors();        \
  }
QUILLON_FOR_EACH_LEVEL(QUILLON_DECLARE_LEVEL)
#undef QUILLON_DECLARE_LEVEL

}  // namespace quillon
