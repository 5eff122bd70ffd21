// Which levels a processor runs: a function of its features alone, so that tests can ask for any
// processor, and the answer for the one at hand.
#pragma once

#include <cstddef>
#include <cstdint>

#include "simd/levels.h"

namespace quillon {

// One bit for each feature that some level needs.
namespace feature {
#define QUILLON_NUMBER(name, level) name##Number,
enum { QUILLON_FOR_EACH_FEATURE(QUILLON_NUMBER) count };
#undef QUILLON_NUMBER
}  // namespace feature

namespace level {
#define QUILLON_NUMBER(name) name##Number,
enum { QUILLON_FOR_EACH_LEVEL(QUILLON_NUMBER) count };
#undef QUILLON_NUMBER
}  // namespace level
constexpr size_t kLevelCount = level::count;

// How many levels, the floor first, a processor with these features runs: those before the first
// that lacks one.
constexpr size_t LevelsOf([[maybe_unused]] uint32_t features) {
  size_t levels = kLevelCount;
#define QUILLON_ASK_FOR(name, level) \
  if (!(features >> feature::name##Number & 1) && levels > (level)) levels = (level);
  QUILLON_FOR_EACH_FEATURE(QUILLON_ASK_FOR)
#undef QUILLON_ASK_FOR
  return levels;
}

// How many of the levels run here: 1 ... kLevelCount. A few bit tests, no state.
size_t LevelCount();

}  // namespace quillon
