#include "blob/labelling.h"

#include <algorithm>
#include <climits>

#include "blob/labelling_reference.h"
#include "blob/regions.h"
#include "quillon/quillon.h"
#include "support/levels.h"

namespace quillon::test {
namespace {

std::string Text(const RunRecord& r) {
  return testing::PrintToString(std::vector{r.blob, r.xStart, r.xEnd, r.y, r.next});
}

std::string Text(const BlobRecord& b) {
  return testing::PrintToString(
      std::vector<double>{double(b.label), double(b.runCount), double(b.area), b.centreX, b.centreY,
                          b.grayMean, double(b.left), double(b.right), double(b.top),
                          double(b.bottom), double(b.head), double(b.tail), double(b.parent)});
}

void ExpectSameTables(const RLERegion& region, const reference::Labelling& expected) {
  ASSERT_EQ(region.labelCount, static_cast<int>(expected.blobs.size()));
  ASSERT_EQ(region.blobCount, static_cast<int>(expected.blobIndex.size()));
  for (size_t i = 0; i < expected.runs.size(); ++i) {
    ASSERT_EQ(Text(region.runs[i]), Text(expected.runs[i])) << "run " << i;
  }
  for (size_t n = 0; n < expected.blobIndex.size(); ++n) {
    ASSERT_EQ(region.blobIndex[n], expected.blobIndex[n]) << "blob " << n;
  }
  for (size_t i = 0; i < expected.blobs.size(); ++i) {
    const BlobRecord &actual = region.blobs[i], &wanted = expected.blobs[i];
    if (wanted.label != -1) {
      ASSERT_EQ(Text(actual), Text(wanted)) << "label " << i;
    } else {
      ASSERT_EQ(std::pair(actual.label, actual.parent), std::pair(-1, wanted.parent)) << i;
    }
  }
}

std::span<const RunRecord> RoiOf(const RLERegion& region) {
  return {region.roiRuns, static_cast<size_t>(region.roiRunCount)};
}

std::vector<int> Areas(const RLERegion& region) {
  std::vector<int> areas;
  for (int n = 0; n < region.blobCount; ++n)
    areas.push_back(region.blobs[region.blobIndex[n]].area);
  std::sort(areas.begin(), areas.end());
  return areas;
}

}  // namespace

TEST(Labelling, TablesAreThoseOfThePixelByPixelScan) {
  constexpr struct {
    int low, high;
  } kBands[] = {{100, 200},   {200, 100}, {0, 255}, {128, 128}, {255, INT_MAX},
                {INT_MIN, 0}, {256, 400}, {-5, -1}, {90, 255}};
  const RegionPtr region = NewRegion();
  ForEachLevel([&](const Kernels& level) {
    Random random(5);
    ForEachImage([&](const GreyImage& image) {
      for (const auto& spans :
           {WholeImage(image, 0), WholeImage(image, 3), RandomSpans(image, random)}) {
        SetRuns(*region, spans);
        for (const auto& band : kBands) {
          LabelGrayBlobs(level, *region, image, band.low, band.high);
          const reference::Labelling expected(image, RoiOf(*region), band.low, band.high);
          ASSERT_NO_FATAL_FAILURE(ExpectSameTables(*region, expected))
              << band.low << " ... " << band.high;
        }
      }
    });
  });
}

TEST(Labelling, AreasAreThoseOfFloodedGroups) {
  const RegionPtr region = NewRegion();
  GreyImage image;
  for (int density : {20, 50, 100, 128, 140, 180, 220, 250}) {
    Fill(image, 143, 97, Content::kNoise, static_cast<uint32_t>(density));
    SetRuns(*region, WholeImage(image, 0));
    LabelGrayBlobs(BestKernels(), *region, image, 0, density);
    EXPECT_EQ(Areas(*region), reference::GroupAreas(image, image.width - 1, 0, density));
    SetRuns(*region, WholeImage(image, 1));
    LabelGrayBlobs(BestKernels(), *region, image, 0, density);
    EXPECT_EQ(Areas(*region), reference::GroupAreas(image, image.width, 0, density));
  }
}

TEST(Labelling, RegionsAnywhereReadNothingOutsideTheImage) {
  const RegionPtr region = NewRegion();
  GreyImage image;
  Fill(image, 20, 10, Content::kFlat);
  const std::vector<std::pair<std::vector<Span>, std::vector<int>>> cases = {
      {{{INT_MIN, 0, 5}, {-1, 0, 5}, {10, 0, 5}, {INT_MAX, 0, 5}}, {}},
      {{{3, INT_MIN, INT_MAX}}, {20}},
      {{{3, INT_MIN, 19}}, {19}},
      {{{3, 19, 19}}, {}},
      {{{3, 19, 20}}, {1}},
      {{{3, 20, INT_MAX}}, {}},
      {{{3, INT_MIN, -1}}, {}},
      {{{3, 5, 4}, {4, INT_MAX, INT_MIN}}, {}},
      {{{0, 2, 4}, {9, 4, 6}}, {6}},  // rows 1 to 8 left out: 9 follows 0
  };
  for (const auto& [spans, areas] : cases) {
    SetRuns(*region, spans);
    LabelGrayBlobs(BestKernels(), *region, image, 0, 255);
    EXPECT_EQ(Areas(*region), areas) << "row " << spans[0].y << ", from " << spans[0].xStart;
  }
}

TEST(Labelling, StopsWhereATableIsFull) {
  const RegionPtr region = NewRegion();
  GreyImage image;
  // Single pixels, then columns of one pixel: labels run out in the first, runs in the second.
  for (int step : {2, 1}) {
    image.Create(1201, 601);
    for (int y = 0; y < image.height; y += step) {
      for (int x = 0; x < image.width; x += 2) image.rows[y][x] = 255;
    }
    SetRuns(*region, WholeImage(image, 1));
    LabelGrayBlobs(BestKernels(), *region, image, 255, 255);
    const reference::Labelling expected(image, RoiOf(*region), 255, 255);
    ASSERT_NO_FATAL_FAILURE(ExpectSameTables(*region, expected));
    EXPECT_EQ(region->labelCount, step == 2 ? kMaxLabels : 601);
    EXPECT_EQ(expected.runs.size(), step == 2 ? size_t{kMaxLabels} : size_t{kMaxRuns});
  }
}

// A host that reaches into the object may have taken tables away.
TEST(Labelling, TablesThatAreNotThereAreLeftAlone) {
  GreyImage image, filled;
  ColourImage colour;
  Fill(image, 20, 10, Content::kBinary);
  filled.CopyFrom(&image);
  Fill(colour, 20, 10, Content::kNoise);
  const int points[] = {0, 0, 19, 0, 19, 9, 0, 9};
  enum Table { kBlobs, kRuns, kFeatures, kBlobIndex, kRoiRuns };
  for (Table missing : {kBlobs, kRuns, kFeatures, kBlobIndex, kRoiRuns}) {
    SCOPED_TRACE(missing);
    const RegionPtr owner = NewRegion();
    IxPointToRegion(owner.get(), points, 4);
    IxGrayBlobLabel(&image, owner.get(), 255, 255);
    ASSERT_TRUE(IxComputeAllBlobFeature(owner.get()));
    ASSERT_TRUE(IxImgAssignToRegion(owner.get(), &image));
    const int labels = owner->labelCount, blobs = owner->blobCount;
    ASSERT_GT(blobs, 0);
    RLERegion region = *owner;
    if (missing == kBlobs) region.blobs = nullptr;
    if (missing == kRuns) region.runs = nullptr;
    if (missing == kFeatures) region.features = nullptr;
    if (missing == kBlobIndex) region.blobIndex = nullptr;
    if (missing == kRoiRuns) region.roiRuns = nullptr;

    float floats[13];
    double means[3];
    int bound[4];
    std::vector<BlobFeature> list(static_cast<size_t>(blobs));
    const bool canSelect = missing != kFeatures;
    EXPECT_EQ(IxSelectBlobArea(&region, INT_MAX, 0), canSelect);
    EXPECT_EQ(IxSelectBlobWidth(&region, INT_MAX, 0), canSelect);
    EXPECT_EQ(IxSelectBlobHeight(&region, INT_MAX, 0), canSelect);
    EXPECT_EQ(IxLocateBlobCenter(&region, 0, INT_MAX, 0, INT_MAX), canSelect);
    EXPECT_EQ(IxReSelectBlob(&region), canSelect);
    EXPECT_EQ(IxGetBlobList(&region, list.data()), canSelect);
    EXPECT_EQ(region.selectCount, blobs);

    const bool canFindBlobs = missing != kBlobs && missing != kBlobIndex;
    EXPECT_EQ(IxGetnBlobArea(&region, 0) > 0, canFindBlobs);
    IxGetnBlobCenter(&region, 0, floats);
    IxGetnBlobBound(&region, 0, bound);
    EXPECT_EQ(bound[0] < 99999, canFindBlobs && missing != kRuns);
    EXPECT_EQ(IxGetBlobMinRect(&region, 0, floats), canFindBlobs && missing != kRuns);
    EXPECT_EQ(IxGetnBlobGrayMean(&image, &region, 0) > 0, canFindBlobs && missing != kRuns);
    IxGetnBlobColorMean(&colour, &region, 0, means);
    EXPECT_EQ(means[0] > 0, canFindBlobs && missing != kRuns);
    EXPECT_EQ(IxComputeAllBlobFeature(&region), missing == kRoiRuns);

    EXPECT_EQ(IxGetnRegionGrayMean(&image, &region) > 0, missing != kRoiRuns);
    IxGetnRegionColorMean(&colour, &region, means);
    EXPECT_EQ(means[0] > 0, missing != kRoiRuns);
    EXPECT_NE(IxGetRegDisplay(&region), nullptr);

    EXPECT_EQ(IxBinaryFillUp(&filled, &region, 255), missing != kBlobs && missing != kRuns);
    region.labelCount = 77;
    IxGrayBlobLabel(&image, &region, 255, 255);
    const bool canLabel = missing == kFeatures || missing == kRoiRuns;
    EXPECT_EQ(region.labelCount, !canLabel ? 77 : missing == kRoiRuns ? 0 : labels);
    EXPECT_EQ(region.blobCount, missing == kRoiRuns ? 0 : blobs);
    IxPointToRegion(&region, points, 2);
    EXPECT_EQ(region.roiRunCount == owner->roiRunCount, missing == kRoiRuns);
    region.assignedImage = nullptr;
    EXPECT_EQ(IxGetRegDisplay(&region), nullptr);
  }
}

}  // namespace quillon::test
