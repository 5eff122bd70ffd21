#include "blob/labelling.h"

#include <algorithm>
#include <climits>

#include "blob/regions.h"
#include "support/levels.h"

namespace quillon::test {
namespace reference {

// Labelling step by step, as the tables are defined: pixel by pixel, two row lists with a resume
// position, chains spliced at every merge.
class Labelling {
 public:
  std::vector<BlobRecord> blobs;
  std::vector<RunRecord> runs;
  std::vector<int> blobIndex;

  Labelling(const GreyImage& image, const RLERegion& region, int low, int high) {
    for (int v = 0; v < 256; ++v) {
      inBand_[v] = std::min(low, high) <= v && v <= std::max(low, high);
    }
    for (int i = 0; i < region.roiRunCount; ++i) {
      const RunRecord& run = region.roiRuns[i];
      if (i > 0 && run.y != region.roiRuns[i - 1].y) {
        above_ = std::move(current_);
        current_.clear();
        resume_ = 0;
      }
      Scan(image, run);
      if (full_ || runs.size() >= kMaxRuns || blobs.size() >= kMaxLabels) break;
    }
    SumUp();
  }

 private:
  struct Entry {
    int xStart, xEnd, label;
  };

  void Scan(const GreyImage& image, const RunRecord& run) {
    const int end = run.xEnd == image.width - 1 ? run.xEnd : run.xEnd + 1;
    int length = 0;
    for (int x = run.xStart; x <= end && !full_; ++x) {
      const bool visible = x >= 0 && x < image.width && run.y >= 0 && run.y < image.height;
      if (x < end && visible && inBand_[image.rows[run.y][x]]) {
        ++length;
      } else if (length > 0) {
        Close(x - length, x - 1, run.y);
        length = 0;
      }
    }
  }

  void Close(int s, int e, int y) {
    int found = -1;
    for (size_t i = resume_; i < above_.size(); ++i) {
      const Entry& entry = above_[i];
      if (s > entry.xEnd + 1 || entry.xStart > e + 1) {
        if (found < 0) continue;
        resume_ = i - 1;
        break;
      }
      int root = entry.label;
      while (blobs[root].label == -1) root = blobs[root].parent;
      if (found < 0) {
        found = root;
      } else if (root != found) {
        blobs[root].label = -1;
        blobs[root].parent = found;
        runs[blobs[found].tail].next = blobs[root].head;
        blobs[found].runCount += blobs[root].runCount;
        blobs[found].tail = blobs[root].tail;
      }
    }
    const int index = static_cast<int>(runs.size());
    full_ = index == kMaxRuns || (found < 0 && blobs.size() == kMaxLabels);
    if (full_) return;
    if (found < 0) {
      found = static_cast<int>(blobs.size());
      BlobRecord blob = {};
      blob.label = found;
      blob.runCount = 1;
      blob.head = blob.tail = index;
      blob.parent = -1;
      blobs.push_back(blob);
    } else {
      runs[blobs[found].tail].next = index;
      blobs[found].tail = index;
      ++blobs[found].runCount;
    }
    runs.push_back({-1, s, e, y, -1});
    current_.push_back({s, e, found});
  }

  void SumUp() {
    for (size_t label = 0; label < blobs.size(); ++label) {
      BlobRecord& blob = blobs[label];
      if (blob.label == -1) continue;
      blob.label = static_cast<int>(blobIndex.size());
      blobIndex.push_back(static_cast<int>(label));
      for (int i = blob.head, n = 0; n < blob.runCount && i != -1; i = runs[i].next, ++n) {
        RunRecord& run = runs[i];
        const int length = run.xEnd - run.xStart + 1;
        run.blob = blob.label;
        blob.area += length;
        blob.centreX += (run.xStart + run.xEnd) * length / 2;
        blob.centreY += run.y * length;
      }
      blob.left = runs[blob.head].xStart;
      blob.right = runs[blob.head].xEnd;
      blob.top = blob.bottom = runs[blob.head].y;
      blob.centreX *= 1.0 / blob.area;
      blob.centreY *= 1.0 / blob.area;
    }
  }

  bool inBand_[256];
  bool full_ = false;
  std::vector<Entry> above_, current_;
  size_t resume_ = 0;
};

// Areas of the connected groups of marked pixels, by flooding, sorted.
std::vector<int> GroupAreas(const GreyImage& image, int columns, int low, int high) {
  std::vector<int> areas;
  std::vector<uint8_t> open(static_cast<size_t>(columns * image.height));
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < columns; ++x) {
      open[static_cast<size_t>(y * columns + x)] =
          image.rows[y][x] >= low && image.rows[y][x] <= high;
    }
  }
  std::vector<int> stack;
  const auto visit = [&](int x, int y) {
    if (x < 0 || x >= columns || y < 0 || y >= image.height) return;
    uint8_t& pixel = open[static_cast<size_t>(y * columns + x)];
    if (pixel) stack.push_back(y * columns + x);
    pixel = 0;
  };
  for (int seed = 0; seed < columns * image.height; ++seed) {
    int area = 0;
    visit(seed % columns, seed / columns);
    while (!stack.empty()) {
      const int at = stack.back();
      stack.pop_back();
      ++area;
      for (int i = 0; i < 9; ++i) visit(at % columns + i % 3 - 1, at / columns + i / 3 - 1);
    }
    if (area > 0) areas.push_back(area);
  }
  std::sort(areas.begin(), areas.end());
  return areas;
}

}  // namespace reference

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
          const reference::Labelling expected(image, *region, band.low, band.high);
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
    const reference::Labelling expected(image, *region, 255, 255);
    ASSERT_NO_FATAL_FAILURE(ExpectSameTables(*region, expected));
    EXPECT_EQ(region->labelCount, step == 2 ? kMaxLabels : 601);
    EXPECT_EQ(expected.runs.size(), step == 2 ? size_t{kMaxLabels} : size_t{kMaxRuns});
  }
}

}  // namespace quillon::test
