#include "filters/gradient.h"

#include <algorithm>

#include "filters/filter_checks.h"

namespace quillon::test {
namespace {

Filter* const kFilters[] = {Sobel, Prewitt, Robert, Laplacian, LaplacianSharpen};

}  // namespace

TEST(Gradient, RowsWithoutPaddingAreNotReadBeyond) {
  for (Filter* filter : kFilters) {
    SCOPED_TRACE(std::find(kFilters, std::end(kFilters), filter) - kFilters);
    for (int width : {3, 9, 17, 33, 40, 65, 129}) {
      ExpectUnpaddedRowsStayInside(filter, width, 5);
    }
  }
}

// The two kinds of columns, by their best-known values.
TEST(Gradient, BlockAndTailColumnsDifferInPrewittAndSharpening) {
  constexpr int kWidth = 24, kTailFrom = 17;
  GreyImage step, result;
  for (int edge : {5, 19}) {
    step.Create(kWidth, 6);
    for (int y = 0; y < step.height; ++y) {
      for (int x = edge; x < kWidth; ++x) step.rows[y][x] = 255;
    }
    ForEachLevel([&](const Kernels& level) {
      Prewitt(level, step, result);
      EXPECT_EQ(result.rows[3][edge], edge < kTailFrom ? 191 : 255);
      Sobel(level, step, result);
      EXPECT_EQ(result.rows[3][edge], 255);
    });
  }
  GreyImage flat;
  Fill(flat, kWidth, 6, Content::kFlat);
  ForEachLevel([&](const Kernels& level) {
    LaplacianSharpen(level, flat, result);
    for (int x = 0; x < kWidth; ++x) {
      EXPECT_EQ(result.rows[2][x], x < kTailFrom ? flat.rows[2][x] : 0) << x;
    }
  });
}

}  // namespace quillon::test
