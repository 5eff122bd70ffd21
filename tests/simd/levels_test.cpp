// The choice of level, and the vector layer at each.
#include <gtest/gtest.h>

#include "simd/kernels.h"
#include "simd/processor.h"
#include "simd/vector_checks.h"

namespace quillon::test {

// A processor that lacks one feature of a level runs the level below, whatever else it has.
TEST(Levels, AProcessorRunsThoseWhoseFeaturesItHas) {
#define QUILLON_NEEDED_ABOVE(name, level) level,
  constexpr size_t kNeededAbove[] = {QUILLON_FOR_EACH_FEATURE(QUILLON_NEEDED_ABOVE) kLevelCount};
#undef QUILLON_NEEDED_ABOVE
  constexpr uint32_t kAll = (1u << feature::count) - 1;
  EXPECT_EQ(LevelsOf(kAll), kLevelCount);
  for (int i = 0; i < feature::count; ++i) {
    EXPECT_EQ(LevelsOf(kAll & ~(1u << i)), kNeededAbove[i]) << "without feature " << i;
    // One feature is enough only for a level that needs no other.
    const size_t alone = feature::count == 1 ? kLevelCount : 1;
    EXPECT_EQ(LevelsOf(1u << i), alone) << "with nothing but feature " << i;
  }
}

TEST(Levels, TheBestIsTheLastThatRunsHere) {
  ASSERT_FALSE(AvailableKernels().empty());
  EXPECT_EQ(&BestKernels(), AvailableKernels().back());
}

TEST(Levels, VectorsComputeWhatTheirLanesDo) {
#define QUILLON_CHECK_OF_LEVEL(level) level::CheckVectors,
  constexpr const char* (*kChecks[])() = {QUILLON_FOR_EACH_LEVEL(QUILLON_CHECK_OF_LEVEL)};
#undef QUILLON_CHECK_OF_LEVEL
  for (size_t i = 0; i < AvailableKernels().size(); ++i) {
    EXPECT_STREQ(kChecks[i](), nullptr) << AvailableKernels()[i]->level;
  }
}

}  // namespace quillon::test
