// The table of kernels and the one choice.
#include "simd/kernels.h"

#include "simd/processor.h"

namespace quillon {

// One row per level: each family's constant of that level's namespace.
#define QUILLON_FAMILY_OF_LEVEL(Type, name) .name = (name),
#define QUILLON_LEVEL_ROW(name)                                                         \
  namespace name {                                                                      \
  constinit const Kernels kernels = {.level = #name,                                    \
                                     QUILLON_FOR_EACH_FAMILY(QUILLON_FAMILY_OF_LEVEL)}; \
  }
QUILLON_FOR_EACH_LEVEL(QUILLON_LEVEL_ROW)

namespace {

#define QUILLON_KERNELS_OF_LEVEL(name) &name::kernels,
constinit const Kernels* const kLevels[] = {QUILLON_FOR_EACH_LEVEL(QUILLON_KERNELS_OF_LEVEL)};

}  // namespace

const Kernels& BestKernels() { return *kLevels[LevelCount() - 1]; }

std::span<const Kernels* const> AvailableKernels() { return {kLevels, LevelCount()}; }

}  // namespace quillon
