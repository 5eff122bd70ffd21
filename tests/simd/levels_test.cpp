// The choice of level, and the vector layer at each.
#include <gtest/gtest.h>

#include "simd/kernels.h"
#include "simd/processor.h"
#include "simd/vector_checks.h"

namespace quillon::test {

// A processor that lacks one feature of a level runs the level below, whatever else it has.
TEST(Levels, AProcessorRunsThoseWhoseFeaturesItHas) {
  constexpr uint32_t kAll = feature::kAvx512Level;
  EXPECT_EQ(LevelsOf(0), 1u);
  EXPECT_EQ(LevelsOf(feature::kAvx2Level), 2u);
  EXPECT_EQ(LevelsOf(kAll), 3u);
  EXPECT_EQ(feature::count, 14);
  for (int i = 0; i < feature::count; ++i) {
    EXPECT_EQ(LevelsOf(kAll & ~(1u << i)), i < 4 ? 1u : 2u) << "without feature " << i;
    EXPECT_EQ(LevelsOf(1u << i), 1u) << "with nothing but feature " << i;
  }
}

TEST(Levels, TheBestIsTheLastThatRunsHere) {
  ASSERT_FALSE(AvailableKernels().empty());
  EXPECT_EQ(&BestKernels(), AvailableKernels().back());
  EXPECT_STREQ(AvailableKernels().front()->level, "sse2");
}

TEST(Levels, VectorsComputeWhatTheirLanesDo) {
  constexpr const char* (*kChecks[])() = {sse2::CheckVectors, avx2::CheckVectors,
                                          avx512::CheckVectors};
  for (size_t i = 0; i < AvailableKernels().size(); ++i) {
    EXPECT_STREQ(kChecks[i](), nullptr) << AvailableKernels()[i]->level;
  }
}

}  // namespace quillon::test
