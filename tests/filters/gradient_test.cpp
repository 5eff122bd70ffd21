#include "filters/gradient.h"

#include <cstdlib>

#include "filters/filter_checks.h"

namespace quillon::test {
namespace reference {

// A row's first 8 * ((width - 1) / 8) columns from column 1 on are block columns.
bool InTail(int x, int width) { return x > (width - 1) / 8 * 8; }

int Clamp(int v) { return v < 0 ? 0 : v > 255 ? 255 : v; }

using Formula = int (*)(const GreyImage& source, int x, int y);

int Magnitude(const GreyImage& source, int x, int y, int middle) {
  const uint8_t *t = source.rows[y - 1], *m = source.rows[y], *b = source.rows[y + 1];
  const int gx = middle * (m[x + 1] - m[x - 1]) + (t[x + 1] - t[x - 1]) + (b[x + 1] - b[x - 1]);
  const int gy = middle * (b[x] - t[x]) + (b[x - 1] - t[x - 1]) + (b[x + 1] - t[x + 1]);
  return (std::abs(gx) + std::abs(gy)) / 4;
}

int Sobel(const GreyImage& source, int x, int y) { return Magnitude(source, x, y, 2); }

int Prewitt(const GreyImage& source, int x, int y) {
  return Magnitude(source, x, y, InTail(x, source.width) ? 2 : 1);
}

int Robert(const GreyImage& source, int x, int y) {
  const uint8_t *m = source.rows[y], *b = source.rows[y + 1];
  return 2 * (std::abs(m[x] - b[x + 1]) + std::abs(b[x] - m[x + 1]));
}

int CentreAgainstNeighbours(const GreyImage& source, int x, int y, int centre) {
  int sum = centre * source.rows[y][x];
  for (int j = -1; j <= 1; ++j) {
    for (int i = -1; i <= 1; ++i) {
      if (i != 0 || j != 0) sum -= source.rows[y + j][x + i];
    }
  }
  return sum;
}

int Laplacian(const GreyImage& source, int x, int y) {
  return CentreAgainstNeighbours(source, x, y, 8);
}

int Sharpen(const GreyImage& source, int x, int y) {
  return CentreAgainstNeighbours(source, x, y, InTail(x, source.width) ? 7 : 9);
}

FilterDefinition Filter(Formula formula, bool smallBecomesZero) {
  return [=](const GreyImage& source, GreyImage& result) {
    const int width = source.width, height = source.height;
    if (width < 3 || height < 3) {
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
          result.rows[y][x] = smallBecomesZero ? 0 : source.rows[y][x];
        }
      }
      return;
    }
    for (int y = 1; y < height - 1; ++y) {
      uint8_t* out = result.rows[y];
      int x = 1;
      for (; x < width - 1 || !InTail(x, width); ++x) {
        out[x] = static_cast<uint8_t>(Clamp(formula(source, x, y)));
      }
      out[0] = out[1];
      out[x] = out[x - 1];
    }
    for (int x = 0; x < width; ++x) {
      result.rows[0][x] = result.rows[1][x];
      result.rows[height - 1][x] = result.rows[height - 2][x];
    }
  };
}

}  // namespace reference

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
