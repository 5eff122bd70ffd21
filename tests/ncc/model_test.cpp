#include "ncc/model.h"

#include <cmath>
#include <memory>

#include "ncc/correlation.h"
#include "pyramid/pyramid_reference.h"
#include "quillon/quillon.h"
#include "support/levels.h"

namespace quillon::test {
namespace {

template <class Pixel>
constexpr int kPlanes = static_cast<int>(sizeof(Pixel));

uint8_t At(const GreyImage& image, int x, int y, int) { return image.rows[y][x]; }
uint8_t At(const ColourImage& image, int x, int y, int plane) {
  return image.rows[y][3 * x + plane];
}

// Whether a reduced pixel takes part, straight from the template.
template <class Pixel>
bool Cares(const CImage<Pixel>& image, int level, int x, int y) {
  return reference::BlockMean(level, x, y, [&](int i, int j) {
           for (int plane = 0; plane < kPlanes<Pixel>; ++plane) {
             if (At(image, i, j, plane) != 0) return 0;
           }
           return 255;
         }) == 0;
}

template <class Pixel>
void ExpectModelOf(const CImage<Pixel>& image, bool masked, const NccTool& tool) {
  uint32_t carePixels = 0;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) carePixels += !masked || Cares(image, 0, x, y);
  }
  ASSERT_EQ(tool.defaultLevel, CoarsestLevel(carePixels));
  ASSERT_EQ(tool.currentLevel, tool.defaultLevel);
  ASSERT_EQ(tool.maskEnabled, masked);
  for (int k = 0; k <= tool.defaultLevel; ++k) {
    SCOPED_TRACE(k);
    const NccLevel& level = tool.levels[k];
    ASSERT_EQ(level.width, image.width >> k);
    ASSERT_EQ(level.height, image.height >> k);
    uint64_t sum = 0, squares = 0;
    uint32_t count = 0;
    size_t run = 0;
    for (int y = 0; y < level.height; ++y) {
      bool inside = false;
      for (int x = 0; x < level.width; ++x) {
        const bool cares = !masked || Cares(image, k, x, y);
        for (int plane = 0; plane < kPlanes<Pixel>; ++plane) {
          const uint8_t value =
              reference::BlockMean(k, x, y, [&](int i, int j) { return At(image, i, j, plane); });
          ASSERT_EQ(level.Plane(plane)[y][x], value) << x << ", " << y;
          if (!cares) continue;
          ++count;
          sum += value;
          squares += value * value;
        }
        if (!masked) continue;
        const NccMask& mask = tool.masks[k];
        ASSERT_EQ(mask.rows[y][x] == 0, cares) << x << ", " << y;
        if (cares && !inside) {
          ASSERT_LT(run, mask.runs.size());
          ASSERT_EQ(mask.runs[run].first, x);
          ASSERT_EQ(mask.runs[run].y, y);
        }
        const bool ends = cares && (x + 1 == level.width || !Cares(image, k, x + 1, y));
        if (ends) {
          ASSERT_EQ(mask.runs[run++].last, x);
        }
        inside = cares;
      }
    }
    if (masked) {
      ASSERT_EQ(tool.masks[k].runs.size(), run);
      ASSERT_EQ(tool.masks[k].careCount, count / kPlanes<Pixel>);
    }
    const double mean = static_cast<double>(sum) / count;
    ASSERT_EQ(level.count, count);
    ASSERT_EQ(level.centreX, level.width * 0.5);
    ASSERT_EQ(level.centreY, level.height * 0.5);
    if (count == 0) {
      ASSERT_TRUE(std::isnan(level.mean));
      continue;
    }
    ASSERT_DOUBLE_EQ(level.mean, mean);
    ASSERT_NEAR(level.deviation, static_cast<double>(squares) - count * mean * mean,
                1e-12 * static_cast<double>(squares));
  }
}

template <class Pixel>
void TestModels() {
  CImage<Pixel> image;
  ForEachLevel([&](const Kernels& kernels) {
    auto tool = std::make_unique<NccTool>();  // one for all: rebuilding replaces everything
    for (const Size& size : {Size{100, 60},
                             {1, 1},
                             {8, 8},
                             {15, 15},
                             {35, 51},
                             {130, 129},
                             {1, 700},
                             {600, 3},
                             {256, 272}}) {
      for (Content content : kContents) {
        for (bool masked : {false, true}) {
          Fill(image, size.width, size.height, content);
          // A hole for the mask, and single masked pixels, which levels 4 to 6 forgive.
          for (int y = size.height / 3; masked && y < size.height / 2; ++y) {
            std::fill_n(image.rows[y] + size.width / 4 * kPlanes<Pixel>,
                        size.width / 3 * kPlanes<Pixel>, uint8_t{0});
          }
          SCOPED_TRACE(testing::Message() << size.width << " x " << size.height << " content "
                                          << static_cast<int>(content) << " masked " << masked);
          ASSERT_TRUE(BuildNccModel(kernels, image, masked, *tool));
          ASSERT_EQ(tool->kind, kPlanes<Pixel> == 1 ? ModelKind::kGrey : ModelKind::kColour);
          ExpectModelOf(image, masked, *tool);
          if (testing::Test::HasFatalFailure()) return;
        }
      }
    }
  });
}

struct ToolDeleter {
  void operator()(NccTool* tool) const { IxDestroyNCCModel(tool); }
};
using Tool = std::unique_ptr<NccTool, ToolDeleter>;

// Over all values of three planes, whatever a mask leaves for the model's mean and deviation.
double OnePositionScore(const ColourImage& image, const ColourImage& pattern,
                        const NccLevel& model) {
  const double n = 3.0 * image.width * image.height;
  double sum = 0, squares = 0, products = 0;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < 3 * image.width; ++x) {
      const double i = image.rows[y][x];
      sum += i, squares += i * i, products += i * pattern.rows[y][x];
    }
  }
  const double mean = sum / n, deviation = squares - n * mean * mean;
  return (products - n * mean * model.mean) / std::sqrt(deviation * model.deviation);
}

double CorrelationByDefinition(const ColourImage& image, const ColourImage& pattern) {
  const int n = 3 * image.width * image.height;
  double meanI = 0, meanT = 0, devI = 0, devT = 0, product = 0;
  for (int pass = 0; pass < 2; ++pass) {
    for (int y = 0; y < image.height; ++y) {
      for (int x = 0; x < 3 * image.width; ++x) {
        const double i = image.rows[y][x], t = pattern.rows[y][x];
        if (pass == 0) {
          meanI += i / n;
          meanT += t / n;
        } else {
          devI += (i - meanI) * (i - meanI);
          devT += (t - meanT) * (t - meanT);
          product += (i - meanI) * (t - meanT);
        }
      }
    }
  }
  return product / std::sqrt(devI * devT);
}

}  // namespace

TEST(NccModel, GreyLevelsMasksAndStatisticsFollowTheirDefinition) { TestModels<unsigned char>(); }
TEST(NccModel, ColourLevelsMasksAndStatisticsFollowTheirDefinition) { TestModels<RGB_24>(); }

TEST(NccModel, MasksOfCoarseLevelsForgiveSingleHoles) {
  GreyImage image;
  image.Create(520, 520);
  struct Case {
    int level, holesKept;  // in one block, or one half of a block of level 4
  };
  for (auto [level, kept] : {Case{1, 0}, {2, 0}, {3, 0}, {4, 2}, {5, 4}, {6, 16}}) {
    for (int holes : {kept, kept + 1}) {
      std::fill_n(image.bits, image.imageSize, uint8_t{9});
      for (int i = 0; i < holes; ++i) image.rows[i / 2][i % 2] = 0;
      NccTool tool;
      ASSERT_TRUE(BuildNccModel(BestKernels(), image, true, tool));
      ASSERT_EQ(tool.defaultLevel, 6);
      EXPECT_EQ(tool.masks[level].rows[0][0] == 0, holes <= kept) << level << ", " << holes;
    }
  }
}

TEST(NccModel, AccessorsKeepTheirLimits) {
  GreyImage image, copy;
  ColourImage colour, colourCopy;
  Fill(image, 100, 60, Content::kNoise);
  Fill(colour, 40, 33, Content::kNoise);
  const Tool tool(IxCreateNCCTool());
  EXPECT_EQ(IxGet_DefaultPyramidLevel(tool.get()), 0);
  FillStale(copy, 4, 4);
  EXPECT_TRUE(IxGet_Pyramid_GrayImage(tool.get(), &copy, 0));
  EXPECT_EQ(copy.bits, nullptr) << "nothing was taught";

  ASSERT_TRUE(IxCreateNCCMatchModel(&image, tool.get(), false));
  EXPECT_EQ(IxGet_DefaultPyramidLevel(tool.get()), 3);
  for (int level : {INT32_MIN, -1, 4, INT32_MAX}) {
    EXPECT_FALSE(IxSetPyramidLevel(tool.get(), level));
    EXPECT_FALSE(IxGet_Pyramid_GrayImage(tool.get(), &copy, level));
  }
  EXPECT_EQ(IxGet_CurrentPyramidLevel(tool.get()), 3);
  EXPECT_TRUE(IxSetPyramidLevel(tool.get(), 1));
  EXPECT_EQ(IxGet_CurrentPyramidLevel(tool.get()), 1);
  EXPECT_TRUE(IxSetPyramidLevel(tool.get(), 3)) << "up to the default level again";
  EXPECT_TRUE(IxGet_Pyramid_GrayImage(tool.get(), &copy, 0));
  EXPECT_SAME_PIXELS(copy, image);
  EXPECT_FALSE(IxGet_Pyramid_ColorImage(tool.get(), &colourCopy, 0)) << "a grey model";
  EXPECT_TRUE(IxGet_Pyramid_GrayImage(tool.get(), &copy, 3));
  EXPECT_EQ(copy.width, 12);
  EXPECT_EQ(copy.height, 7);
  Fill(image, 1, 300, Content::kNoise);
  ASSERT_TRUE(IxCreateNCCMatchModel(&image, tool.get(), false));
  EXPECT_TRUE(IxGet_Pyramid_GrayImage(tool.get(), &copy, 1)) << "a level without columns";
  EXPECT_TRUE(copy.width == 0 && copy.height == 150 && !copy.bits);

  ASSERT_TRUE(IxCreateNCCMatchColorModel(&colour, tool.get(), true));
  EXPECT_TRUE(IxGet_Pyramid_ColorImage(tool.get(), &colourCopy, 0));
  EXPECT_SAME_PIXELS(colourCopy, colour);
  EXPECT_FALSE(IxGet_Pyramid_GrayImage(tool.get(), &copy, 0)) << "a colour model";
}

TEST(NccModel, RefusedTemplatesLeaveTheToolAlone) {
  GreyImage image, empty, copy;
  ColourImage colour, emptyColour;
  Fill(image, 20, 20, Content::kNoise);
  Fill(colour, 20, 20, Content::kNoise);
  const Tool tool(IxCreateNCCTool());
  ASSERT_TRUE(IxCreateNCCMatchModel(&image, tool.get(), false));
  auto* greyAsColour = reinterpret_cast<const ColourImage*>(&image);
  EXPECT_FALSE(IxCreateNCCMatchModel(nullptr, tool.get(), false));
  EXPECT_FALSE(IxCreateNCCMatchModel(&empty, tool.get(), false));
  EXPECT_FALSE(IxCreateNCCMatchModel(reinterpret_cast<GreyImage*>(&colour), tool.get(), false));
  EXPECT_FALSE(IxCreateNCCMatchColorModel(greyAsColour, tool.get(), false));
  EXPECT_FALSE(IxCreateNCCMatchColorModel(&emptyColour, tool.get(), false));
  EXPECT_FALSE(IxCreateNCCMatchColorModel_ROI(&emptyColour, tool.get()));
  EXPECT_TRUE(IxGet_Pyramid_GrayImage(tool.get(), &copy, 0));
  EXPECT_SAME_PIXELS(copy, image);

  IxDestroyNCCModel(nullptr);
  EXPECT_FALSE(IxCreateNCCMatchModel(&image, nullptr, false));
  EXPECT_FALSE(IxCreateNCCMatchColorModel(&colour, nullptr, true));
  EXPECT_FALSE(IxCreateNCCMatchColorModel_ROI(&colour, nullptr));
  EXPECT_FALSE(IxSetPyramidLevel(nullptr, 0));
  EXPECT_EQ(IxGet_DefaultPyramidLevel(nullptr), 0);
  EXPECT_EQ(IxGet_CurrentPyramidLevel(nullptr), 0);
  EXPECT_FALSE(IxGet_Pyramid_GrayImage(nullptr, &copy, 0));
  EXPECT_FALSE(IxGet_Pyramid_GrayImage(tool.get(), nullptr, 0));
  EXPECT_EQ(IxFindNCCMatchColorModel_ROI(&colour, nullptr), 0.0);
}

TEST(NccModel, OnePositionScoreIsTheCorrelation) {
  ColourImage image, pattern;
  ForEachLevel([&](const Kernels& kernels) {
    for (const Size& size : {Size{1, 2}, {15, 3}, {16, 1}, {17, 40}, {65, 9}, {300, 200}}) {
      for (Content content : {Content::kNoise, Content::kBinary, Content::kRamp}) {
        Fill(pattern, size.width, size.height, content, 5);
        Fill(image, size.width, size.height, Content::kExtremes, 6);
        NccTool tool;
        ASSERT_TRUE(BuildSingleLevelModel(kernels, pattern, tool));
        EXPECT_NEAR(ScoreOnePosition(kernels, image, tool), CorrelationByDefinition(image, pattern),
                    1e-9)
            << size.width;
        EXPECT_EQ(ScoreOnePosition(kernels, pattern, tool), 1.0);
        for (int i = 0; i < image.imageSize; ++i)
          image.bits[i] = static_cast<uint8_t>(~pattern.bits[i]);
        EXPECT_NEAR(ScoreOnePosition(kernels, image, tool), -1.0, 1e-12);
        std::fill_n(pattern.bits, pattern.stride * (size.height / 2), uint8_t{0});
        ASSERT_TRUE(BuildNccModel(kernels, pattern, /*useMask=*/true, tool));
        if (tool.levels[0].deviation > 0) {
          EXPECT_EQ(ScoreOnePosition(kernels, image, tool),
                    OnePositionScore(image, pattern, tool.levels[0]));
        }
        Fill(image, size.width, size.height, Content::kFlat);
        EXPECT_EQ(ScoreOnePosition(kernels, image, tool), 0.0);
        Fill(image, size.width + 1, size.height, Content::kNoise);
        EXPECT_EQ(ScoreOnePosition(kernels, image, tool), 0.0) << "another size";
      }
    }
  });
}

// Lanes of 32 bits must not overflow: the brightest rows are long enough for it.
TEST(NccModel, SumsOfLongBrightRowsAreExact) {
  constexpr int kLength = 3'000'001;
  const std::vector<uint8_t> bright(kLength, 255);
  ForEachLevel([&](const Kernels& kernels) {
    PixelSums sums;
    AddProducts(kernels, bright.data(), bright.data(), kLength, sums);
    EXPECT_EQ(sums.image, 255ull * kLength);
    EXPECT_EQ(sums.imageSquared, 65025ull * kLength);
    EXPECT_EQ(sums.products, 65025ull * kLength);
  });
}

}  // namespace quillon::test
