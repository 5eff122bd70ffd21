// Fill-up: groups of pixels that differ from the value are labelled together with a virtual run
// above the top row and one right of every row; what is not joined to those is a hole. So groups
// that touch only the left or the bottom edge are holes too. That asymmetry is part of the
// contract.
#include <cstring>

#include "blob/labelling.h"
#include "blob/queries.h"
#include "blob/run_linker.h"
#include "blob/runs_kernels.h"
#include "core/buffer.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

constexpr int kBorder = 0;

// Links the runs of all pixels that differ from the value, row by row until a table is full.
void LinkRows(const Kernels& kernels, const GreyImage& image, uint8_t value, int32_t* edges,
              RunLinker& linker) {
  const int width = image.width;
  const Band others = {static_cast<uint8_t>(value + 1), 254};
  linker.Add(0, width, -1);  // the border's label
  for (int y = 0; y < image.height && !linker.IsFull(); ++y) {
    linker.StartRow();
    const int runs = kernels.runs.FindRuns(image.rows[y], width, others.first, others.span, edges);
    for (int k = 0; k < runs; ++k) {
      if (!linker.Add(edges[2 * k], edges[2 * k + 1] - 1, y)) return;
    }
    // Every row ends with a run at the last column, an empty one if need be: it carries the border
    // down the right-hand side.
    const bool reachesEnd = runs > 0 && edges[2 * runs - 1] == width;
    if (!reachesEnd && !linker.Add(width, width - 1, y)) return;
  }
}

void FillRuns(const RLERegion& region, const BlobRecord& hole, GreyImage& image, uint8_t value) {
  ForEachRun(region, hole, [&](const RunRecord& run) {
    const int length = run.xEnd - run.xStart + 1;
    std::memset(image.rows[run.y] + run.xStart, value, static_cast<size_t>(length));
  });
}

}  // namespace

bool FillUpHoles(const Kernels& kernels, RLERegion& region, GreyImage& image, uint8_t value) {
  if (!region.blobs || !region.runs) return false;
  Buffer<int32_t> edges(static_cast<size_t>(image.width) + 1);
  if (!edges) return false;
  RunLinker linker(region, /*withBorder=*/true);
  LinkRows(kernels, image, value, edges.data(), linker);
  for (int label = kBorder + 1; label < linker.LabelCount(); ++label) {
    if (region.blobs[label].label != -1) FillRuns(region, region.blobs[label], image, value);
  }
  return true;
}

}  // namespace quillon
