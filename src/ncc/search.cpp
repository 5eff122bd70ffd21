#include "ncc/search.h"

#include <algorithm>
#include <cmath>

#include "core/angle.h"
#include "ncc/stages.h"
#include "ncc/variant.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

// Whether the levels that a search uses belong together: a single-level model may stand on what an
// earlier one left.
bool IsSearchable(const NccTool& tool, int planes) {
  const NccLevel& full = tool.levels[0];
  for (int k = 0; k <= tool.currentLevel; ++k) {
    const NccLevel& level = tool.levels[k];
    const NccMask& mask = tool.masks[k];
    if (level.planes != planes || level.width != ReducedSize(full.width, k) ||
        level.height != ReducedSize(full.height, k) || level.width == 0 || level.height == 0) {
      return false;
    }
    if (tool.maskEnabled && (mask.width != level.width || mask.height != level.height))
      return false;
  }
  return true;
}

Lattice MakeLattice(const NccTool& tool) {
  const int level = tool.currentLevel;
  const double width = tool.levels[level].width, height = tool.levels[level].height;
  const double angleStep = AngleStep(0.5 * std::sqrt(width * width + height * height));
  const double scaleStep = 1 / std::max(width, height);
  return {std::ldexp(angleStep, -level), std::ldexp(scaleStep, -level)};
}

// A limit that a grid point misses by rounding is met.
bool Within(double value, double low, double high, double step) {
  const double slack = step * (1 + 1e-9);
  return value >= low - slack && value <= high + slack;
}

void Report(const Search& search, const Match* matches, int count, NccTool& tool) {
  const NccLevel& full = tool.levels[0];
  for (int i = 0; i < count && tool.resultCount < tool.maxResults; ++i) {
    const Match& match = matches[i];
    const bool suppressed = match.score <= -1;
    if (suppressed || !(match.score >= search.limits.minScore)) continue;
    tool.results[tool.resultCount++] = {
        .matchWidth = static_cast<int32_t>(full.width * match.pose.scale),
        .matchHeight = static_cast<int32_t>(full.height * match.pose.scale),
        .x = match.pose.x - 0.5,
        .y = match.pose.y - 0.5,
        .angle = match.pose.degrees,
        .scale = match.pose.scale,
        .score = std::min(match.score, 1.0)};
  }
}

// Of candidates of level 1 (or 0, where the search starts there) the better ones.
bool SuppressCandidates(const Search& search, double distance, Candidate* candidates, int count) {
  Buffer<Place> places(static_cast<size_t>(count));
  if (!places) return false;
  for (int i = 0; i < count; ++i) {
    Pose pose = candidates[i].pose;
    if (search.tool.currentLevel > 0) CarryToLevel(search, 0, pose);
    places[i] = {pose.x, pose.y, candidates[i].score};
  }
  if (!SuppressDuplicates(places.data(), count, distance)) return false;
  for (int i = 0; i < count; ++i) candidates[i].score = places[i].score;
  return true;
}

bool RunStages(Search& search, NccTool& tool) {
  const NccLevel& full = tool.levels[0];
  Buffer<Candidate> candidates;
  int count = 0;
  if (!SweepCoarsestLevel(search, tool.candidateCapacity, candidates, count)) return false;
  count = PruneAtKnee(candidates.data(), count, tool.maxResults);
  for (int level = tool.currentLevel - 1; level >= 1; --level) {
    if (!RefineAtLevel(search, level, candidates.data(), count)) return false;
  }

  const double distance = std::min(full.centreX, full.centreY);
  if (!SuppressCandidates(search, distance, candidates.data(), count)) return false;
  Buffer<Match> matches(static_cast<size_t>(count));
  if (!matches || !FitAtFullResolution(search, candidates.data(), count, matches.data())) {
    return false;
  }
  std::sort(matches.begin(), matches.end(), [](const Match& a, const Match& b) {
    return a.score != b.score ? a.score > b.score : a.rank < b.rank;
  });
  Report(search, matches.data(), count, tool);
  return true;
}

}  // namespace

bool Search::AllowsDegrees(double degrees, double step) const {
  return Within(degrees, limits.angleMin, limits.angleMax, step);
}

bool Search::AllowsScale(int index, double step) const {
  return Within(lattice.Scale(index), limits.scaleMin, limits.scaleMax, step);
}

CellReach Search::Reach(int level) const {
  const bool scale = limits.scaleMin < limits.scaleMax;
  return {.pixels = 1,
          .degrees = limits.rotate ? lattice.AngleStep(level) : 0,
          .scale = scale ? lattice.ScaleStep(level) : 0};
}

template <class Pixel>
bool FindNccModel(const Kernels& kernels, const CImage<Pixel>& image, const SearchLimits& limits,
                  NccTool& tool) {
  constexpr int kPlanes = sizeof(Pixel);
  if (tool.kind != (kPlanes == 1 ? ModelKind::kGrey : ModelKind::kColour)) return false;
  const NccLevel& full = tool.levels[0];
  const int64_t area = static_cast<int64_t>(full.width) * full.height;
  const int64_t placements =
      std::max<int64_t>(1, static_cast<int64_t>(image.width) * image.height / area);
  tool.maxResults = static_cast<int>(
      std::clamp<int64_t>(limits.maxResults, 0, std::min<int64_t>(placements, kMaxNccResults)));
  tool.candidateCapacity = static_cast<int>(std::min<int64_t>(2 * placements, INT32_MAX));
  std::fill_n(tool.results.begin(), tool.maxResults, NccResult{});
  tool.resultCount = 0;
  if (tool.maxResults == 0 || !IsSearchable(tool, kPlanes)) return true;

  SearchImage opened;
  if (!OpenSearchImage(kernels, image, opened)) return false;
  Search search = {kernels, tool, opened, limits, MakeLattice(tool)};
  return RunStages(search, tool);
}

template bool FindNccModel(const Kernels&, const GreyImage&, const SearchLimits&, NccTool&);
template bool FindNccModel(const Kernels&, const ColourImage&, const SearchLimits&, NccTool&);

}  // namespace quillon
