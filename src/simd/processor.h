// Which levels a processor runs: a function of its features alone, so that tests can ask for any
// processor, and the answer for the one at hand.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quillon {

// The features that levels need, level by level: the names by which compilers know them.
// clang-format off
#define QUILLON_AVX2_FEATURES(DO) DO(avx2) DO(bmi) DO(bmi2) DO(popcnt)
#define QUILLON_AVX512_FEATURES(DO)                             \
  DO(avx512f) DO(avx512cd) DO(avx512bw) DO(avx512dq)            \
  DO(avx512vl) DO(avx512vbmi) DO(avx512vbmi2) DO(avx512vnni)    \
  DO(avx512bitalg) DO(avx512vpopcntdq)
// clang-format on

// One bit for each.
namespace feature {
#define QUILLON_NUMBER(name) name##Number,
enum { QUILLON_AVX2_FEATURES(QUILLON_NUMBER) QUILLON_AVX512_FEATURES(QUILLON_NUMBER) count };
#undef QUILLON_NUMBER
#define QUILLON_BIT(name) | 1u << name##Number
constexpr uint32_t kAvx2Level = 0 QUILLON_AVX2_FEATURES(QUILLON_BIT);
constexpr uint32_t kAvx512Level = kAvx2Level QUILLON_AVX512_FEATURES(QUILLON_BIT);
#undef QUILLON_BIT
}  // namespace feature

// How many levels, the floor first, a processor with these features runs.
constexpr size_t LevelsOf(uint32_t features) {
  const auto has = [=](uint32_t needed) { return (features & needed) == needed; };
  return has(feature::kAvx512Level) ? 3 : has(feature::kAvx2Level) ? 2 : 1;
}

// How many of the levels sse2, avx2, avx512 run here: 1 ... 3. A few bit tests, no state.
size_t LevelCount();

}  // namespace quillon
