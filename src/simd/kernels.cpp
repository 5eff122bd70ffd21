// The table of kernels and the one choice.
#include "simd/kernels.h"

namespace quillon {

// One row per level: each family's constant of that level's namespace.
#define QUILLON_FAMILY_OF_LEVEL(Type, name) .name = name,
#define QUILLON_LEVEL_ROW(name)                                                         \
  namespace name {                                                                      \
  constinit const Kernels kernels = {.level = #name,                                    \
                                     QUILLON_FOR_EACH_FAMILY(QUILLON_FAMILY_OF_LEVEL)}; \
  }
QUILLON_LEVEL_ROW(sse2)
QUILLON_LEVEL_ROW(avx2)
QUILLON_LEVEL_ROW(avx512)

namespace {

constinit const Kernels* const kLevels[] = {&sse2::kernels, &avx2::kernels, &avx512::kernels};

// How many of kLevels run here. The tests include what the operating system saves and restores.
size_t LevelCount() {
  const bool avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
                    __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("popcnt");
  if (!avx2) return 1;
  const bool avx512 =
      __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512cd") &&
      __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq") &&
      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
      __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("avx512vnni") &&
      __builtin_cpu_supports("avx512bitalg") && __builtin_cpu_supports("avx512vpopcntdq");
  return avx512 ? 3 : 2;
}

}  // namespace

const Kernels& BestKernels() { return *kLevels[LevelCount() - 1]; }

std::span<const Kernels* const> AvailableKernels() { return {kLevels, LevelCount()}; }

}  // namespace quillon
