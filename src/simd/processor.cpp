#include "simd/processor.h"

namespace quillon {

// The tests include what the operating system saves and restores.
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

}  // namespace quillon
