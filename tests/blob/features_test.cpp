#include "blob/features.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "blob/features_reference.h"
#include "blob/labelling.h"
#include "blob/queries.h"
#include "blob/regions.h"
#include "blob/selection.h"
#include "support/levels.h"

namespace quillon::test {
namespace {

std::array<float, 13> Floats(const MinRectangle& r) {
  return {r.centreX,    r.centreY,    r.height,     r.width,      r.angle,
          r.corners[0], r.corners[1], r.corners[2], r.corners[3], r.corners[4],
          r.corners[5], r.corners[6], r.corners[7]};
}

std::array<float, 13> Floats(const BlobFeature& f) {
  return {f.rectCentreX, f.rectCentreY, f.height,     f.width,      f.angle,
          f.corners[0],  f.corners[1],  f.corners[2], f.corners[3], f.corners[4],
          f.corners[5],  f.corners[6],  f.corners[7]};
}

std::string Text(std::span<const Point> points) {
  std::string text;
  for (const Point p : points) text += std::to_string(p.x) + "," + std::to_string(p.y) + " ";
  return text;
}

std::vector<Point> EdgePoints(const RLERegion& region, int n) {
  return reference::EdgePoints(region.blobs[region.blobIndex[n]], {region.runs, kMaxRuns}, n);
}

void ExpectRectangle(const std::vector<Point>& points, const std::array<float, 13>& actual) {
  std::vector<Point> work(HullWorkSize(points.size()));
  const std::span<const Point> hull = ConvexHullOfPolyline(points, work.data());
  ASSERT_EQ(Text(hull), Text(reference::Melkman(points)));
  ASSERT_EQ(actual, reference::Rectangle(hull)) << hull.size() << " vertices";
  const std::vector<Point> expectedHull = reference::Hull(points);
  if (expectedHull.size() < 3) return;
  const double area = reference::MinArea(expectedHull);
  ASSERT_NEAR(double(actual[2]) * actual[3], area, 1e-5 * area);
}

// Blobs of every shape: noise at several densities, thick discs and bars at every angle.
void DrawShapes(GreyImage& image, Random& random) {
  Fill(image, 400, 300, Content::kFlat);
  for (int i = 0; i < 60; ++i) {
    const double x = 400 * random.Unit(), y = 300 * random.Unit(), angle = 7 * random.Unit();
    const double length = 4 + 30 * random.Unit(), width = 1 + 8 * random.Unit();
    for (int v = 0; v < 300; ++v) {
      for (int u = 0; u < 400; ++u) {
        const double along = (u - x) * std::cos(angle) + (v - y) * std::sin(angle);
        const double across = (v - y) * std::cos(angle) - (u - x) * std::sin(angle);
        if (i % 2 ? std::abs(along) < length && std::abs(across) < width
                  : along * along + across * across < length * length / 4) {
          image.rows[v][u] = 255;
        }
      }
    }
  }
}

void CheckAllBlobs(const Kernels& level, RLERegion& region) {
  ASSERT_EQ(ComputeAllBlobFeatures(level, region), region.labelCount > 0);
  if (region.labelCount == 0) return;
  ASSERT_EQ(region.selectCount, region.blobCount);
  for (int n = 0; n < region.blobCount; ++n) {
    SCOPED_TRACE(testing::Message() << "blob " << n);
    const BlobFeature& feature = region.features[n];
    const BlobRecord& blob = region.blobs[region.blobIndex[n]];
    ASSERT_EQ(feature.area, blob.area);
    ASSERT_EQ(feature.centreX, blob.centreX);
    ASSERT_EQ(feature.centreY, blob.centreY);
    ASSERT_EQ(feature.selected, 1);
    MinRectangle single;
    ASSERT_TRUE(ComputeBlobMinRect(level, region, n, single));
    ASSERT_EQ(Floats(feature), Floats(single));
    ASSERT_NO_FATAL_FAILURE(ExpectRectangle(EdgePoints(region, n), Floats(feature)));
  }
}

void CheckAllBlobs(RLERegion& region) {
  ForEachLevel([&](const Kernels& level) { CheckAllBlobs(level, region); });
}

}  // namespace

TEST(Features, RectanglesAreLeastAndMatchTheTableScan) {
  const RegionPtr region = NewRegion();
  Random random(8);
  GreyImage image;
  for (int round = 0; round < 6; ++round) {
    DrawShapes(image, random);
    SetRuns(*region, WholeImage(image, 1));
    LabelGrayBlobs(BestKernels(), *region, image, 255, 255);
    ASSERT_NO_FATAL_FAILURE(CheckAllBlobs(*region));
    LabelGrayBlobs(BestKernels(), *region, image, 0, 254);
    ASSERT_NO_FATAL_FAILURE(CheckAllBlobs(*region));
  }
}

// Hulls of few and of many vertices, steep ones, and blobs beyond what 16-bit numbers hold.
// Ellipses bulge by 2, rhombs by 1.
TEST(Features, HoldForEllipsesOfEverySize) {
  constexpr struct {
    int a, b;
    double bulge;
  } kShapes[] = {{7, 20, 2},    {40, 40, 2},   {60, 70, 2},    {75, 75, 2},    {78, 80, 2},
                 {90, 90, 2},   {30, 99, 2},   {150, 99, 2},   {505, 30, 2},   {505, 6, 1.1},
                 {505, 2, 1.1}, {520, 9, 1.5}, {4090, 600, 2}, {17000, 4, 1.3}};
  const RegionPtr region = NewRegion();
  for (const auto [a, b, bulge] : kShapes) {
    SCOPED_TRACE(testing::Message() << a << " x " << b << ", " << bulge);
    GreyImage image;
    image.Create(2 * a + 3, 2 * b + 3);
    for (int y = -b; y <= b; ++y) {
      const double part = 1 - std::pow(std::abs(double(y) / b), bulge);
      const int half = static_cast<int>(a * std::pow(part, 1 / bulge));
      std::fill_n(image.rows[y + b + 1] + a + 1 - half, 2 * half + 1, uint8_t{255});
    }
    SetRuns(*region, WholeImage(image, 1));
    LabelGrayBlobs(BestKernels(), *region, image, 255, 255);
    ASSERT_EQ(region->blobCount, 1);
    ASSERT_NO_FATAL_FAILURE(CheckAllBlobs(*region));
  }
}

// One region object for all: small labellings run over the remains of larger ones.
TEST(Features, HoldForNoiseRegionsOfAnyShapeAndStaleTables) {
  const RegionPtr region = NewRegion();
  Random random(21);
  ForEachImage([&](const GreyImage& image) {
    for (const auto& spans : {WholeImage(image, 1), RandomSpans(image, random)}) {
      SetRuns(*region, spans);
      LabelGrayBlobs(BestKernels(), *region, image, 0, random.Within(20, 254));
      ASSERT_NO_FATAL_FAILURE(CheckAllBlobs(*region));
    }
  });
}

TEST(Features, BoundsAreThoseOfAllRuns) {
  const RegionPtr region = NewRegion();
  GreyImage image;
  Fill(image, 130, 60, Content::kBinary, 4);
  SetRuns(*region, WholeImage(image, 1));
  LabelGrayBlobs(BestKernels(), *region, image, 255, 255);
  for (int n = 0; n < region->blobCount; ++n) {
    Bounds expected;
    for (const Point p : EdgePoints(*region, n)) {
      expected = {std::min(expected.left, p.x), std::max(expected.right, p.x),
                  std::min(expected.top, p.y), std::max(expected.bottom, p.y)};
    }
    const Bounds actual = BoundsOfBlob(*region, n);
    EXPECT_EQ((std::array{actual.left, actual.right, actual.top, actual.bottom}),
              (std::array{expected.left, expected.right, expected.top, expected.bottom}));
  }
}

TEST(Features, TwentyThousandBlobsHaveRecords) {
  const RegionPtr region = NewRegion();
  GreyImage image;
  image.Create(401, 301);
  for (int y = 0; y < image.height; y += 2) {
    for (int x = 0; x < image.width; x += 2) image.rows[y][x] = 255;
  }
  SetRuns(*region, WholeImage(image, 1));
  LabelGrayBlobs(BestKernels(), *region, image, 255, 255);
  ASSERT_EQ(region->blobCount, 201 * 151);
  EXPECT_TRUE(ComputeAllBlobFeatures(BestKernels(), *region));
  EXPECT_EQ(region->selectCount, kMaxFeatures);
  EXPECT_EQ(region->features[kMaxFeatures - 1].area, 1);
  EXPECT_TRUE(SelectBlobArea(*region, 2, 9));
  EXPECT_EQ(region->selectCount, 0);
  EXPECT_TRUE(ComputeAllBlobFeatures(BestKernels(), *region));
  EXPECT_TRUE(ReselectBlobs(*region));
  EXPECT_EQ(region->selectCount, kMaxFeatures);
  std::vector<BlobFeature> list(kMaxFeatures + 1);
  list.back().area = -1;
  EXPECT_TRUE(CopySelectedBlobs(*region, list.data()));
  EXPECT_EQ(list.back().area, -1);
}

// A blob of more runs than 25,000, and numbers that only a fill-up could leave behind.
TEST(Features, LargeBlobsAndBorrowedTablesAreSafe) {
  const RegionPtr region = NewRegion();
  GreyImage image;
  image.Create(301, 401);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) image.rows[y][x] = x % 2 == 0 || y == 400 ? 255 : 0;
  }
  SetRuns(*region, WholeImage(image, 1));
  LabelGrayBlobs(BestKernels(), *region, image, 255, 255);
  ASSERT_EQ(region->blobCount, 1);
  ASSERT_GT(region->blobs[region->blobIndex[0]].runCount, 50'000);
  ASSERT_NO_FATAL_FAILURE(CheckAllBlobs(*region));
  EXPECT_EQ(region->features[0].height * region->features[0].width, 300 * 400);

  Fill(image, 301, 401, Content::kBinary);
  LabelGrayBlobs(BestKernels(), *region, image, 255, 255);
  FillUpHoles(BestKernels(), *region, image, 0);
  ComputeAllBlobFeatures(BestKernels(), *region);
  for (int n = 0; n < region->blobCount; ++n) {
    BoundsOfBlob(*region, n);
    GrayMeanOfBlob(BestKernels(), &image, *region, n);
    MinRectangle rectangle;
    ComputeBlobMinRect(BestKernels(), *region, n, rectangle);
  }
}

}  // namespace quillon::test
