#include "ncc/scorer.h"

#include <cmath>
#include <memory>

#include "ncc/model.h"
#include "support/levels.h"

namespace quillon::test {
namespace {

// The correlation of the upright template with the image at a position, in two passes.
template <class Pixel>
double ByDefinition(const CImage<Pixel>& image, const NccTool& tool, int left, int top) {
  const NccLevel& pattern = tool.levels[0];
  double n = 0, meanI = 0, meanT = 0, devI = 0, devT = 0, product = 0;
  for (int pass = 0; pass < 2; ++pass) {
    for (int y = 0; y < pattern.height; ++y) {
      for (int x = 0; x < pattern.width; ++x) {
        if (tool.maskEnabled && tool.masks[0].rows[y][x] != 0) continue;
        for (int plane = 0; plane < pattern.planes; ++plane) {
          const double i = image.rows[top + y][(left + x) * pattern.planes + plane];
          const double t = pattern.Plane(plane)[y][x];
          if (pass == 0) {
            ++n, meanI += i, meanT += t;
          } else {
            devI += (i - meanI) * (i - meanI);
            devT += (t - meanT) * (t - meanT);
            product += (i - meanI) * (t - meanT);
          }
        }
      }
    }
    if (pass == 0) meanI /= n, meanT /= n;
  }
  return devI <= 0.0001 ? 0 : product / std::sqrt(devI * devT);
}

template <class Pixel>
void ExpectScoresOf(const Kernels& kernels, Size size, bool masked, Content content) {
  CImage<Pixel> image, pattern;
  const bool extreme = content == Content::kExtremes;
  Fill(pattern, size.width, size.height, extreme ? content : Content::kNoise, 3);
  Fill(image, size.width + 70, size.height + 9, content, 4);
  if (extreme) {  // a copy: no sum is larger
    for (int y = 0; y < size.height; ++y) {
      std::copy_n(pattern.rows[y], size.width * sizeof(Pixel),
                  image.rows[5 + y] + 38 * sizeof(Pixel));
    }
  }
  if (masked) {
    for (int y = 0; y < size.height; ++y) {
      std::fill_n(pattern.rows[y] + size.width / 3 * sizeof(Pixel),
                  (size.width / 4 + y % 2) * sizeof(Pixel), uint8_t{0});
    }
  }
  NccTool tool;
  ASSERT_TRUE(BuildNccModel(kernels, pattern, masked, tool));
  SearchImage opened;
  Patch patch;
  Variant variant;
  Scorer scorer;
  VariantMaker maker(kernels, tool.levels[0], masked ? &tool.masks[0] : nullptr);
  ASSERT_TRUE(OpenSearchImage(kernels, image, opened));
  ASSERT_TRUE(patch.Cut(kernels, opened, 0, {-3, 2, image.width, image.height + 5}));
  ASSERT_TRUE(maker.Make(1, 0, variant));
  ASSERT_EQ(variant.count, tool.levels[0].count);
  ASSERT_TRUE(scorer.Open(kernels, variant, patch));
  ASSERT_EQ(scorer.Columns(), 71);
  ASSERT_EQ(scorer.Rows(), 8);
  for (int y = 0; y < scorer.Rows(); y += 3) {
    std::vector<double> row(71, -2);
    scorer.ScoreRow(y, -1, [&](int x, double score) { row[static_cast<size_t>(x)] = score; });
    Position best = {.score = -1};
    scorer.FindBest(-5, y, 100, y, best);
    double highest = -1;
    for (int x = 0; x < 71; ++x) {
      const double expected = ByDefinition(image, tool, x, y + 2);
      ASSERT_NEAR(row[static_cast<size_t>(x)], expected, 1e-9) << x << ", " << y;
      highest = std::max(highest, row[static_cast<size_t>(x)]);
    }
    ASSERT_EQ(best.score, highest) << "windows and rows score alike";
    // What a threshold leaves out does not beat it.
    for (double threshold : {highest > 0 ? highest * 0.9 : 0.1, std::nextafter(highest, 0), 0.0}) {
      std::vector<bool> offered(71);
      scorer.ScoreRow(y, threshold, [&](int x, double) { offered[static_cast<size_t>(x)] = true; });
      for (size_t x = 0; x < 71; ++x) ASSERT_TRUE(offered[x] || row[x] <= threshold) << x;
    }
  }
}

}  // namespace

TEST(NccScorer, EveryPositionHasTheCorrelationOfItsPixels) {
  ForEachLevel([](const Kernels& kernels) {
    for (Size size : {Size{2, 3},
                      {5, 5},
                      {16, 4},
                      {10, 12},
                      {11, 11},
                      {17, 9},
                      {31, 11},
                      {32, 11},
                      {33, 11},
                      {33, 12},
                      {64, 20},
                      {70, 31},
                      {130, 7}}) {
      for (bool masked : {false, true}) {
        for (Content content : {Content::kNoise, Content::kExtremes, Content::kFlat}) {
          SCOPED_TRACE(testing::Message() << size.width << " masked " << masked);
          ExpectScoresOf<unsigned char>(kernels, size, masked, content);
          ExpectScoresOf<RGB_24>(kernels, size, masked, content);
          if (testing::Test::HasFatalFailure()) return;
        }
      }
    }
  });
}

// More pixels than one band of 32-bit sums holds, all of them bright; in long rows and in short
// ones.
TEST(NccScorer, LargeBrightTemplatesDoNotOverflow) {
  for (Size size : {Size{400, 400}, {20, 1700}}) {
    SCOPED_TRACE(size.width);
    GreyImage image, pattern;
    image.Create(size.width + 2, size.height + 3);
    pattern.Create(size.width, size.height);
    Random random(1);
    for (int i = 0; i < image.imageSize; ++i)
      image.bits[i] = static_cast<uint8_t>(random.Within(250, 255));
    for (int y = 0; y < size.height; ++y) {
      std::copy_n(image.rows[y + 1] + 2, size.width, pattern.rows[y]);
    }
    ForEachLevel([&](const Kernels& kernels) {
      NccTool tool;
      ASSERT_TRUE(BuildNccModel(kernels, pattern, false, tool));
      SearchImage opened;
      Patch patch;
      Variant variant;
      Scorer scorer;
      VariantMaker maker(kernels, tool.levels[0], nullptr);
      ASSERT_TRUE(OpenSearchImage(kernels, image, opened));
      ASSERT_TRUE(patch.Cut(kernels, opened, 0, {0, 0, image.width, image.height}));
      ASSERT_TRUE(maker.Make(1, 0, variant));
      ASSERT_TRUE(scorer.Open(kernels, variant, patch));
      Position best = {.score = -1};
      scorer.FindBest(0, 0, 2, 3, best);
      EXPECT_EQ(best.x, 2);
      EXPECT_EQ(best.y, 1);
      EXPECT_NEAR(best.score, 1, 1e-9);
      scorer.ScoreRow(2, -1, [&](int x, double score) {
        EXPECT_NEAR(score, ByDefinition(image, tool, x, 2), 1e-9);
      });
    });
  }
}

}  // namespace quillon::test
