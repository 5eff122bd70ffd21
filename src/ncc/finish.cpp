// The last stage: poses at full resolution.
#include <algorithm>
#include <cmath>

#include "ncc/fit.h"
#include "ncc/scorer.h"
#include "ncc/stages.h"

namespace quillon {
namespace {

// The template's centre at a level and at full resolution differ by what the level's blocks leave
// out, along the template's own axes.
struct CentreShift {
  double x, y;
};

CentreShift ShiftOfLevel(const NccTool& tool, int level, const Pose& pose) {
  const NccLevel &full = tool.levels[0], &reduced = tool.levels[level];
  const double u = (std::ldexp(reduced.width, level) - full.width) * 0.5;
  const double v = (std::ldexp(reduced.height, level) - full.height) * 0.5;
  const double c = pose.scale * std::cos(pose.degrees * kRadians);
  const double s = pose.scale * std::sin(pose.degrees * kRadians);
  return {u * c - v * s, u * s + v * c};
}

Pose ToLevel(const NccTool& tool, int level, Pose pose) {
  const CentreShift shift = ShiftOfLevel(tool, level, pose);
  pose.x = std::ldexp(pose.x + shift.x, -level);
  pose.y = std::ldexp(pose.y + shift.y, -level);
  return pose;
}

Pose FromLevel(const NccTool& tool, int level, Pose pose) {
  const CentreShift shift = ShiftOfLevel(tool, level, pose);
  pose.x = std::ldexp(pose.x, level) - shift.x;
  pose.y = std::ldexp(pose.y, level) - shift.y;
  return pose;
}

class Finish {
 public:
  explicit Finish(const Search& search)
      : search_(search),
        maker_(search.kernels, search.tool.levels[0], search.Mask(0)),
        freedom_(FreedomOf(search.limits)) {}

  bool Run(const Candidate& candidate, Match& match) {
    const int level = std::min(search_.tool.currentLevel, 1);
    const SearchLimits& limits = search_.limits;
    Pose pose = {candidate.x, candidate.y, search_.lattice.Angle(candidate.angle),
                 search_.lattice.Scale(candidate.scale)};
    pose = FromLevel(search_.tool, level, pose);
    pose.degrees = limits.rotate ? IntoRange(pose.degrees) : 0;
    pose.scale = std::clamp(pose.scale, limits.scaleMin, limits.scaleMax);
    match.pose = pose;
    const bool moveOnly = !freedom_.turn && !freedom_.scale && pose.degrees == 0 && pose.scale == 1;
    if (moveOnly) return MoveOnly(match);
    if (!FitThroughLevels(match)) return false;
    if (limits.rotate) match.pose.degrees = IntoRange(match.pose.degrees);
    return true;
  }

 private:
  static constexpr double kTurn = 360;

  // Limits of a full turn or more do not stop a fit.
  static FitFreedom FreedomOf(const SearchLimits& limits) {
    const bool anyAngle = limits.angleMax - limits.angleMin >= kTurn;
    return {.turn = limits.rotate && limits.angleMin < limits.angleMax,
            .scale = limits.scaleMin < limits.scaleMax,
            .degreesMin = anyAngle ? -HUGE_VAL : limits.angleMin,
            .degreesMax = anyAngle ? HUGE_VAL : limits.angleMax,
            .scaleMin = limits.scaleMin,
            .scaleMax = limits.scaleMax};
  }

  // A whole turn more or less where that helps, the nearest limit otherwise.
  double IntoRange(double degrees) const {
    const SearchLimits& limits = search_.limits;
    if (degrees < limits.angleMin && degrees + kTurn <= limits.angleMax) degrees += kTurn;
    if (degrees > limits.angleMax && degrees - kTurn >= limits.angleMin) degrees -= kTurn;
    return std::clamp(degrees, limits.angleMin, limits.angleMax);
  }

  // The template as it is: the score is that of the best whole-pixel position, to the last digit;
  // the fit adds the fraction of a pixel.
  bool MoveOnly(Match& match) {
    constexpr int kReach = 2;
    const NccLevel& pattern = search_.tool.levels[0];
    if (upright_.planes == 0 && !maker_.Make(1, 0, upright_)) return false;
    const int left = static_cast<int>(std::floor(match.pose.x - pattern.centreX + 0.5));
    const int top = static_cast<int>(std::floor(match.pose.y - pattern.centreY + 0.5));
    const Region region = {left - kReach, top - kReach, left + kReach + pattern.width,
                           top + kReach + pattern.height};
    if (!patch_.Cut(search_.kernels, search_.image, 0, region) ||
        !scorer_.Open(search_.kernels, upright_, patch_)) {
      return false;
    }
    Position best = {.score = -1};
    scorer_.FindBest(0, 0, scorer_.Columns() - 1, scorer_.Rows() - 1, best);
    if (!(best.score > -1)) return true;
    const Pose whole = {best.x + patch_.Left() + pattern.centreX,
                        best.y + patch_.Top() + pattern.centreY, 0, 1};
    match.pose = whole;
    match.score = best.score;
    if (!(best.score >= search_.limits.minScore)) return true;
    FitPose(pattern, search_.Mask(0), patch_, freedom_, match.pose);
    const double moved =
        std::max(std::abs(match.pose.x - whole.x), std::abs(match.pose.y - whole.y));
    if (!(moved <= 1)) match.pose = whole;
    return true;
  }

  // Scales may be off by as much as the coarsest grid, so the fit starts there too.
  bool FitThroughLevels(Match& match) {
    const int coarsest = search_.tool.currentLevel;
    for (int level = std::max(coarsest - 1, 0); level >= 0; --level) {
      const NccLevel& pattern = search_.tool.levels[level];
      Pose pose = ToLevel(search_.tool, level, match.pose);
      const double reach = pose.scale * std::hypot(pattern.width, pattern.height) * 0.5 + kMargin;
      const Region region = {static_cast<int>(std::floor(pose.x - reach)),
                             static_cast<int>(std::floor(pose.y - reach)),
                             static_cast<int>(std::ceil(pose.x + reach)),
                             static_cast<int>(std::ceil(pose.y + reach))};
      if (!patch_.CutPixels(search_.kernels, search_.image, level, region)) return false;
      match.score = FitPose(pattern, search_.Mask(level), patch_, freedom_, pose);
      match.pose = FromLevel(search_.tool, level, pose);
      // What reduction left out may lower the score of a true match, but not by so much.
      constexpr double kHopeless = 0.3;
      if (level > 0 && match.score < search_.limits.minScore - kHopeless) return true;
    }
    return true;
  }

  static constexpr int kMargin = 4;

  const Search& search_;
  VariantMaker maker_;
  const FitFreedom freedom_;
  Variant upright_;
  Patch patch_;
  Scorer scorer_;
};

}  // namespace

bool FitAtFullResolution(const Search& search, const Candidate* candidates, int count,
                         Match* matches) {
  Finish finish(search);
  for (int i = 0; i < count; ++i) {
    matches[i] = {{}, -1, i};
    if (candidates[i].score > -1 && !finish.Run(candidates[i], matches[i])) return false;
  }
  return true;
}

}  // namespace quillon
