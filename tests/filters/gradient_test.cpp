#include "filters/gradient.h"

#include <cstdlib>

#include "filters/filter_checks.h"
#include "filters/gradient_reference.h"

namespace quillon::test {
namespace {

struct Case {
  const char* name;
  Filter* filter;
  FilterDefinition definition;
};

const Case kCases[] = {
    {"Sobel", Sobel, reference::Filter(reference::Sobel, true)},
    {"Prewitt", Prewitt, reference::Filter(reference::Prewitt, true)},
    {"Robert", Robert, reference::Filter(reference::Robert, true)},
    {"Laplacian", Laplacian, reference::Filter(reference::Laplacian, true)},
    {"LaplacianSharpen", LaplacianSharpen, reference::Filter(reference::Sharpen, false)},
};

}  // namespace

TEST(Gradient, FiltersMatchTheirDefinitionsInAndOutOfPlace) {
  for (const Case& filter : kCases) {
    SCOPED_TRACE(filter.name);
    ForEachImage([&](const GreyImage& source) {
      ExpectMatchesDefinition(filter.filter, filter.definition, source);
    });
    if (HasFatalFailure()) return;
  }
}

TEST(Gradient, RowsWithoutPaddingAreNotReadBeyond) {
  for (const Case& filter : kCases) {
    SCOPED_TRACE(filter.name);
    for (int width : {3, 9, 17, 33, 40, 65, 129}) {
      ExpectUnpaddedRowsStayInside(filter.filter, width, 5);
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
