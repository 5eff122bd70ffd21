// The last stage: poses at full resolution.
#include <algorithm>
#include <cmath>

#include "ncc/fit.h"
#include "ncc/scorer.h"
#include "ncc/stages.h"
#include "pyramid/pyramid_kernels.h"

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
    Pose pose = FromLevel(search_.tool, level, candidate.pose);
    pose.degrees = limits.rotate ? IntoRange(pose.degrees) : 0;
    pose.scale = std::clamp(pose.scale, limits.scaleMin, limits.scaleMax);
    match.pose = pose;
    if (freedom_.moveOnly) return MoveOnly(match);
    if (!FitThroughLevels(match)) return false;
    if (limits.rotate) match.pose.degrees = IntoRange(match.pose.degrees);
    return true;
  }

 private:
  static constexpr double kTurn = 360;

  // Limits of a full turn or more do not stop a fit.
  static FitFreedom FreedomOf(const SearchLimits& limits) {
    const bool anyAngle = limits.angleMax - limits.angleMin >= kTurn;
    const bool turn = limits.rotate && limits.angleMin < limits.angleMax;
    const bool scale = limits.scaleMin < limits.scaleMax;
    const bool turned = limits.rotate && limits.angleMin != 0;
    return {.turn = turn,
            .scale = scale,
            .moveOnly = !turn && !scale && !turned && limits.scaleMin == 1,
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
    double fitted = -1;
    if (!OpenFit(0) || !fits_[0].Run(patch_, match.pose, fitted)) return false;
    const double moved =
        std::max(std::abs(match.pose.x - whole.x), std::abs(match.pose.y - whole.y));
    if (!(moved <= 1)) match.pose = whole;
    return true;
  }

  // The grid's scales only go down from a candidate's, and its own was a coarse guess: the first
  // fit starts from larger ones, too. A fit that is hopeless at a reduced level is left there.
  bool FitThroughLevels(Match& match) {
    const int coarsest = std::max(search_.tool.currentLevel - 1, 0);
    constexpr double kHopeless = 0.3;  // of score: what reduction left out does not cost so much
    Pose start = match.pose;
    for (int i = 0; i <= (freedom_.scale ? kLargerStarts : 0); ++i) {
      Match tried = {start, -1, match.rank};
      if (!FitAtLevel(coarsest, tried)) return false;
      if (i == 0 || tried.score > match.score) match = tried;
      if (start.scale >= search_.limits.scaleMax) break;
      const double step = search_.lattice.ScaleStep(search_.tool.currentLevel);
      start.scale = std::min(start.scale + step, search_.limits.scaleMax);
    }
    for (int level = coarsest - 1; level >= 0; --level) {
      if (match.score < search_.limits.minScore - kHopeless) return true;
      if (!FitAtLevel(level, match)) return false;
    }
    return true;
  }

  bool FitAtLevel(int level, Match& match) {
    const NccLevel& pattern = search_.tool.levels[level];
    Pose pose = ToLevel(search_.tool, level, match.pose);
    const double reach = pose.scale * std::hypot(pattern.width, pattern.height) * 0.5 + kMargin;
    const Region region = {
        static_cast<int>(std::floor(pose.x - reach)), static_cast<int>(std::floor(pose.y - reach)),
        static_cast<int>(std::ceil(pose.x + reach)), static_cast<int>(std::ceil(pose.y + reach))};
    if (!patch_.CutPixels(search_.kernels, search_.image, level, region) || !OpenFit(level) ||
        !fits_[level].Run(patch_, pose, match.score)) {
      return false;
    }
    match.pose = FromLevel(search_.tool, level, pose);
    return true;
  }

  bool OpenFit(int level) {
    return fits_[level].IsOpen() || fits_[level].Open(search_.kernels, search_.tool.levels[level],
                                                      search_.Mask(level), freedom_);
  }

  static constexpr int kMargin = 4, kLargerStarts = 2;

  const Search& search_;
  VariantMaker maker_;
  const FitFreedom freedom_;
  PoseFit fits_[kMaxPyramidLevel + 1];
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
