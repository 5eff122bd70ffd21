// What the proofs of the search rely on.
#include <algorithm>
#include <cmath>
#include <vector>

#include "geomatch/geomatch_kernels.h"
#include "geomatch/score.h"
#include "support/levels.h"

namespace quillon::test {

// For every gradient there is, in rows of odd length.
TEST(GeoKernels, UnitsAreCloseAndInversesExact) {
  constexpr int kMost = 4 * 255, kCount = 2 * kMost + 1;
  std::vector<PackedVector> gradients(kCount), units(kCount);
  std::vector<double> inverses(kCount);
  ForEachLevel([&](const Kernels& kernels) {
    double worst = 0;
    int wrong = 0;
    for (int gy = -kMost; gy <= kMost; ++gy) {
      for (int i = 0; i < kCount; ++i) gradients[i] = PackVector(i - kMost, gy);
      kernels.geomatch.UnitRow(gradients.data(), units.data(), kCount);
      kernels.geomatch.InverseRow(gradients.data(), inverses.data(), kCount);
      for (int i = 0; i < kCount; ++i) {
        const double gx = i - kMost, length = std::sqrt(gx * gx + double(gy) * gy);
        const double scale = length > 0 ? kSearchUnit / length : 0;
        worst = std::max({worst, std::abs(VectorX(units[i]) - gx * scale),
                          std::abs(VectorY(units[i]) - gy * scale)});
        wrong += inverses[i] != (length > 0 ? 1 / length : 0);
      }
    }
    EXPECT_LT(worst, 0.501);
    EXPECT_EQ(wrong, 0);
  });
}

// However many points, all products with their errors fit 32 bits.
TEST(GeoKernels, SumsOfProductsFit) {
  for (int points : {0, 1, 15, 31, 32, 200, 5000, 262'000, 262'200, 1'000'000}) {
    const double scale = GeoTurner::UnitScale(points);
    EXPECT_GE(scale, 0);
    if (scale > 0) {
      EXPECT_LE(points * (scale + 1) * (kSearchUnit + 1), 2147483647.0) << points;
    }
  }
  EXPECT_EQ(GeoTurner::UnitScale(20), 16384);
}

}  // namespace quillon::test
