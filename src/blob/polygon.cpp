// A polygon becomes a chain of unit steps along its edges, directions numbered
//
//   3 2 1
//   4   0      (2 is up)
//   5 6 7
//
// and the chain becomes runs: the bend at each pixel tells whether a row enters or leaves the shape
// there, and the sorted ends pair up. Bends are judged for boundaries that run clockwise as
// displayed; others lose their top and bottom rows, which hosts may rely on.
#include "blob/polygon.h"

#include <algorithm>

#include "core/buffer.h"

namespace quillon {
namespace {

struct Step {
  int8_t dx, dy;
};
constexpr Step kSteps[8] = {{1, 0}, {1, -1}, {0, -1}, {-1, -1}, {-1, 0}, {-1, 1}, {0, 1}, {1, 1}};

// The direction of a step, by (dx + 1) + 3 * (dy + 1). The middle, no step, does not occur.
constexpr uint8_t kDirections[9] = {3, 2, 1, 4, 0, 0, 5, 6, 7};

// How many run ends the pixel between two steps is: kEnds[step in][step out].
constexpr uint8_t kEnds[8][8] = {{0, 0, 0, 0, 1, 1, 1, 1}, {1, 1, 1, 1, 0, 2, 2, 2},
                                 {1, 1, 1, 1, 0, 0, 2, 2}, {1, 1, 1, 1, 0, 0, 0, 2},
                                 {1, 1, 1, 1, 0, 0, 0, 0}, {0, 2, 2, 2, 1, 1, 1, 1},
                                 {0, 0, 2, 2, 1, 1, 1, 1}, {0, 0, 0, 2, 1, 1, 1, 1}};

struct Edge {
  int64_t dx, dy;
  int64_t steps;
};

// The edge that leaves point i; the last one returns to the first point.
Edge EdgeFrom(const int32_t* points, int count, int i) {
  const int32_t* from = points + 2 * static_cast<ptrdiff_t>(i);
  const int32_t* to = i + 1 < count ? from + 2 : points;
  const int64_t dx = static_cast<int64_t>(to[0]) - from[0];
  const int64_t dy = static_cast<int64_t>(to[1]) - from[1];
  return {dx, dy, std::max(std::abs(dx), std::abs(dy))};
}

// Writes the edge's steps: along its longer axis at every pixel, along the other when the error
// counter passes the length. Both counters start at 1, so halves round down.
uint8_t* RasterizeSegment(const Edge& edge, uint8_t* codes) {
  const int64_t width = std::abs(edge.dx), height = std::abs(edge.dy);
  const int signX = (edge.dx > 0) - (edge.dx < 0), signY = (edge.dy > 0) - (edge.dy < 0);
  int64_t errorX = 1, errorY = 1;
  for (int64_t i = 0; i < edge.steps; ++i) {
    int dx = 0, dy = 0;
    errorX += width;
    errorY += height;
    if (errorX > edge.steps) dx = signX, errorX -= edge.steps;
    if (errorY > edge.steps) dy = signY, errorY -= edge.steps;
    *codes++ = kDirections[(dx + 1) + 3 * (dy + 1)];
  }
  return codes;
}

// The closed boundary as codes. Null when it is too long, or there is no memory.
Buffer<uint8_t> TracePolygonChain(const int32_t* points, int count) {
  int64_t length = 0;
  for (int i = 0; i < count; ++i) {
    length += EdgeFrom(points, count, i).steps;
    if (length > kMaxChainCodes) return {};
  }
  Buffer<uint8_t> chain(static_cast<size_t>(length));
  if (!chain) return {};
  uint8_t* end = chain.data();
  for (int i = 0; i < count; ++i) end = RasterizeSegment(EdgeFrom(points, count, i), end);
  return chain;
}

// A pixel as one number that sorts by row, then column.
using PixelKey = uint64_t;
constexpr uint32_t kSignBit = 1u << 31;
PixelKey KeyOf(int32_t x, int32_t y) {
  return static_cast<uint64_t>(static_cast<uint32_t>(y) ^ kSignBit) << 32 |
         (static_cast<uint32_t>(x) ^ kSignBit);
}
int32_t ColumnOf(PixelKey key) {
  return static_cast<int32_t>(static_cast<uint32_t>(key) ^ kSignBit);
}
int32_t RowOf(PixelKey key) { return ColumnOf(key >> 32); }

// Calls visit(step in, step out) at each pixel of the closed chain, from the second on.
template <class Visit>
void ForEachBend(const Buffer<uint8_t>& chain, Visit visit) {
  for (size_t i = 0; i + 1 < chain.size(); ++i) visit(chain[i], chain[i + 1]);
  if (chain.size() > 0) visit(chain[chain.size() - 1], chain[0]);
}

// The run ends of a chain from (x, y), sorted. A closed chain has an even number of them: its steps
// up are as many as its steps down. Null when there is no memory.
Buffer<PixelKey> RunEnds(const Buffer<uint8_t>& chain, int32_t x, int32_t y) {
  size_t count = 0;
  ForEachBend(chain, [&](uint8_t in, uint8_t out) { count += kEnds[in][out]; });
  Buffer<PixelKey> ends(count);
  if (!ends) return {};
  PixelKey* end = ends.data();
  ForEachBend(chain, [&](uint8_t in, uint8_t out) {
    x += kSteps[in].dx;
    y += kSteps[in].dy;
    for (int i = 0; i < kEnds[in][out]; ++i) *end++ = KeyOf(x, y);
  });
  std::sort(ends.begin(), ends.end());
  return ends;
}

// Pairs the sorted run ends into runs; the area wraps in 32 bits.
void ChainToRuns(const Buffer<PixelKey>& ends, RLERegion& region) {
  const size_t runs = std::min(ends.size() / 2, static_cast<size_t>(kMaxRuns));
  uint32_t area = 0;
  for (size_t k = 0; k < runs; ++k) {
    RunRecord& run = region.roiRuns[k];
    run.xStart = ColumnOf(ends[2 * k]);
    run.xEnd = ColumnOf(ends[2 * k + 1]);
    run.y = RowOf(ends[2 * k]);
    area += static_cast<uint32_t>(run.xEnd) - static_cast<uint32_t>(run.xStart) + 1;
  }
  region.roiRunCount = static_cast<int32_t>(runs);
  region.roiArea = static_cast<int32_t>(area);
}

}  // namespace

void BuildRegionOfInterest(RLERegion& region, const int32_t* points, int count) {
  if (!region.roiRuns) return;
  region.roiRunCount = 0;
  region.roiArea = 0;
  const Buffer<uint8_t> chain = TracePolygonChain(points, count);
  if (!chain) return;
  const Buffer<PixelKey> ends = RunEnds(chain, points[0], points[1]);
  if (ends) ChainToRuns(ends, region);
}

}  // namespace quillon
