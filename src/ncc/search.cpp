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
        level.height != ReducedSize(full.height, k)) {
      return false;
    }
    if (tool.maskEnabled && (mask.width != level.width || mask.height != level.height))
      return false;
  }
  return true;
}

// The current level, or the next finer one that counts: lines and scattered pixels of a mask leave
// nothing of a reduced level, and a template may be thinner than its blocks.
int StartOf(const Search& search) {
  int level = search.tool.currentLevel;
  while (level > 0 && !search.Counts(level)) --level;
  return level;
}

Lattice MakeLattice(const NccTool& tool, int level) {
  const double width = tool.levels[level].width, height = tool.levels[level].height;
  const double angleStep = AngleStep(0.5 * std::sqrt(width * width + height * height));
  const double scaleStep = 1 / std::max(width, height);
  return {std::ldexp(angleStep, -level), std::ldexp(scaleStep, -level)};
}

void Report(const Search& search, const Match* matches, int count, NccTool& tool) {
  const NccLevel& full = tool.levels[0];
  const SearchLimits& limits = search.limits;
  for (int i = 0; i < count && tool.resultCount < tool.maxResults; ++i) {
    const Match& match = matches[i];
    const bool suppressed = match.score <= -1;
    if (suppressed || !(match.score >= limits.minScore)) continue;
    tool.results[tool.resultCount++] = {
        .matchWidth = static_cast<int32_t>(full.width * match.pose.scale),
        .matchHeight = static_cast<int32_t>(full.height * match.pose.scale),
        .x = match.pose.x - 0.5,
        .y = match.pose.y - 0.5,
        .angle = IntoLimits(match.pose.degrees, limits.angleMin, limits.angleMax),
        .scale = match.pose.scale,
        .score = match.score};
  }
}

// Keeps the better ones of candidates that lie near each other at level 1 (or 0, where the search
// starts there).
bool SuppressCandidates(const Search& search, double distance, Candidate* candidates, int count) {
  Buffer<Place> places(static_cast<size_t>(count));
  if (!places) return false;
  for (int i = 0; i < count; ++i) {
    Pose pose = candidates[i].pose;
    if (search.start > 0) CarryToLevel(search, 0, pose);
    places[i] = {pose.x, pose.y, candidates[i].score};
  }
  if (!SuppressDuplicates(places.data(), count, distance)) return false;
  for (int i = 0; i < count; ++i) candidates[i].score = places[i].score;
  return true;
}

// Keeps the best of the fits that began apart and ended at the same place.
bool SuppressMatches(double distance, Match* matches, int count) {
  constexpr double kSamePlace = 2;
  Buffer<Place> places(static_cast<size_t>(count));
  if (!places) return false;
  for (int i = 0; i < count; ++i) {
    places[i] = {matches[i].pose.x, matches[i].pose.y, matches[i].score};
  }
  if (!SuppressDuplicates(places.data(), count, std::min(distance, kSamePlace))) return false;
  for (int i = 0; i < count; ++i) matches[i].score = places[i].score;
  return true;
}

bool RunStages(Search& search, NccTool& tool) {
  const NccLevel& full = tool.levels[0];
  Buffer<Candidate> candidates;
  int count = 0;
  if (!SweepCoarsestLevel(search, tool.candidateCapacity, candidates, count)) return false;
  count = PruneAtKnee(candidates.data(), count, tool.maxResults);
  for (int level = search.start - 1; level >= 1; --level) {
    if (!RefineAtLevel(search, level, candidates.data(), count)) return false;
  }

  const double distance = std::min(full.centreX, full.centreY);
  if (!SuppressCandidates(search, distance, candidates.data(), count)) return false;
  Buffer<Match> matches(static_cast<size_t>(count));
  if (!matches || !FitAtFullResolution(search, candidates.data(), count, matches.data())) {
    return false;
  }
  for (Match& match : matches) match.score = std::min(match.score, 1.0);  // rounding orders nothing
  if (!SuppressMatches(distance, matches.data(), count)) return false;
  std::sort(matches.begin(), matches.end(), [](const Match& a, const Match& b) {
    return a.score != b.score ? a.score > b.score : a.rank < b.rank;
  });
  Report(search, matches.data(), count, tool);
  return true;
}

}  // namespace

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
  const bool flat = !(full.deviation > 0);  // or a mask leaves nothing: not a number
  if (tool.maxResults == 0 || flat || !IsSearchable(tool, kPlanes)) return true;

  SearchImage opened;
  if (!OpenSearchImage(kernels, image, opened)) return false;
  Search search = {kernels, tool, opened, limits};
  search.start = StartOf(search);
  search.lattice = MakeLattice(tool, search.start);
  return RunStages(search, tool);
}

template bool FindNccModel(const Kernels&, const GreyImage&, const SearchLimits&, NccTool&);
template bool FindNccModel(const Kernels&, const ColourImage&, const SearchLimits&, NccTool&);

}  // namespace quillon
