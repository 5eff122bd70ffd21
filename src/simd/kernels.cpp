// The table of kernels and the one choice.
#include "simd/kernels.h"

namespace quillon {
namespace {

// clang-format off
#define QUILLON_LEVEL_ROW(name)         \
  {                                     \
    .level = #name,                     \
    .arithmetic = name::arithmetic,     \
    .rotation = name::rotation,         \
    .scaling = name::scaling,           \
    .grey = name::grey,                 \
    .lookup = name::lookup,             \
    .threshold = name::threshold,       \
    .gradient = name::gradient,         \
    .median = name::median,             \
    .smoothing = name::smoothing,       \
    .convolution = name::convolution,   \
    .morph = name::morph,               \
    .runs = name::runs,                 \
    .pyramid = name::pyramid,           \
    .geomatch = name::geomatch,         \
    .correlation = name::correlation,   \
    .fit = name::fit,                   \
    .colour = name::colour,             \
  }
// clang-format on

constinit const Kernels kSse2 = QUILLON_LEVEL_ROW(sse2);
constinit const Kernels kAvx2 = QUILLON_LEVEL_ROW(avx2);
constinit const Kernels kAvx512 = QUILLON_LEVEL_ROW(avx512);

constinit const Kernels* const kLevels[] = {&kSse2, &kAvx2, &kAvx512};

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
