#include "blob/labelling.h"

#include <algorithm>

#include "blob/run_linker.h"
#include "blob/runs_kernels.h"
#include "core/buffer.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

// Columns that a run of the region takes from the image: [begin, end).
struct Columns {
  int begin, end;
};

// A region run that ends at the image's last column leaves that column out: hosts count on it. One
// that goes on beyond the image takes it.
Columns VisibleColumns(const RunRecord& run, int width) {
  const int end = run.xEnd == width - 1 ? width - 1 : std::min(run.xEnd, width - 1) + 1;
  return {std::max(run.xStart, 0), end};
}

// Adds the runs of one region run. False when a table is full.
bool LinkRuns(const Kernels& kernels, const GreyImage& image, const RunRecord& region, Band band,
              int32_t* edges, RunLinker& linker) {
  if (region.y < 0 || region.y >= image.height) return true;
  const Columns columns = VisibleColumns(region, image.width);
  if (columns.begin >= columns.end) return true;
  const int runs = kernels.runs.FindRuns(image.rows[region.y] + columns.begin,
                                         columns.end - columns.begin, band.first, band.span, edges);
  for (int k = 0; k < runs; ++k) {
    const int xStart = columns.begin + edges[2 * k];
    const int xEnd = columns.begin + edges[2 * k + 1] - 1;
    if (!linker.Add(xStart, xEnd, region.y)) return false;
  }
  return !linker.IsFull();
}

// Runs of all region runs, linked. Rows are told apart by their number alone: where the region
// skips a row, the last row seen is the one above.
void LabelRegionRuns(const Kernels& kernels, const RLERegion& region, const GreyImage& image,
                     Band band, int32_t* edges, RunLinker& linker) {
  if (!region.roiRuns) return;
  for (int i = 0; i < region.roiRunCount; ++i) {
    const RunRecord& run = region.roiRuns[i];
    if (i > 0 && run.y != region.roiRuns[i - 1].y) linker.StartRow();
    if (!LinkRuns(kernels, image, run, band, edges, linker)) return;
  }
}

int32_t WrappingProduct(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

// Twice a run's mean column times its length, halved in integers: an odd product loses a half, in
// every release so far. The sums are integers below 2^53, so their order does not matter.
void AddRun(const RunRecord& run, BlobRecord& blob) {
  const int32_t length = run.xEnd - run.xStart + 1;
  blob.area += length;
  const int32_t columns = WrappingProduct(run.xStart + run.xEnd, length) / 2;
  blob.centreX += columns;
  blob.centreY += WrappingProduct(run.y, length);
}

// Gives every label that survived its blob's number, in their order.
void NumberBlobs(RLERegion& region, int labelCount) {
  int blobCount = 0;
  for (int label = 0; label < labelCount; ++label) {
    BlobRecord& blob = region.blobs[label];
    if (blob.label == -1) continue;
    region.blobIndex[blobCount] = label;
    blob.label = blobCount++;
    blob.area = 0;
    blob.centreX = blob.centreY = blob.grayMean = 0;
    const RunRecord& head = region.runs[blob.head];
    blob.left = head.xStart;
    blob.right = head.xEnd;
    blob.top = blob.bottom = head.y;
  }
  region.blobCount = blobCount;
}

// For every label the number of the blob that it became part of. Chains of merges can be long, so
// the answer is noted at each label on the way: no step is walked twice.
void ResolveLabels(const RLERegion& region, Buffer<int32_t>& numbers) {
  const int labelCount = static_cast<int>(numbers.size());
  for (int label = 0; label < labelCount; ++label) numbers[label] = region.blobs[label].label;
  for (int label = 0; label < labelCount; ++label) {
    int root = label;
    while (numbers[root] < 0) root = region.blobs[root].parent;
    for (int l = label; numbers[l] < 0; l = region.blobs[l].parent) numbers[l] = numbers[root];
  }
}

// Sums up the blobs in table order rather than chain by chain: that reads the runs once from front
// to back, and a row meets the same few blobs again.
void SumUpBlobs(RLERegion& region, int runCount, const Buffer<int32_t>& numbers) {
  for (int i = 0; i < runCount; ++i) {
    RunRecord& run = region.runs[i];
    run.blob = numbers[run.blob];
    AddRun(run, region.blobs[region.blobIndex[run.blob]]);
  }
  for (int n = 0; n < region.blobCount; ++n) {
    BlobRecord& blob = region.blobs[region.blobIndex[n]];
    const double perPixel = 1.0 / blob.area;
    blob.centreX *= perPixel;
    blob.centreY *= perPixel;
  }
}

}  // namespace

void LabelGrayBlobs(const Kernels& kernels, RLERegion& region, const GreyImage& image, int low,
                    int high) {
  if (!region.blobs || !region.runs || !region.blobIndex) return;
  region.labelCount = region.blobCount = 0;
  const int lowest = std::max(std::min(low, high), 0);
  const int highest = std::min(std::max(low, high), 255);
  Buffer<int32_t> edges(static_cast<size_t>(image.width) + 1);
  if (lowest > highest || !edges) return;
  const Band band = {static_cast<uint8_t>(lowest), static_cast<uint8_t>(highest - lowest)};
  RunLinker linker(region, /*withBorder=*/false);
  LabelRegionRuns(kernels, region, image, band, edges.data(), linker);
  Buffer<int32_t> numbers(static_cast<size_t>(linker.LabelCount()));
  if (!numbers) return;
  region.labelCount = linker.LabelCount();
  NumberBlobs(region, linker.LabelCount());
  ResolveLabels(region, numbers);
  SumUpBlobs(region, linker.RunCount(), numbers);
}

}  // namespace quillon
