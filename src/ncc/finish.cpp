// The last stage: poses at full resolution.
#include <algorithm>
#include <cmath>

#include "core/length.h"
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
        full_(search.tool.levels[0]),
        image_{static_cast<double>(search.image.width), static_cast<double>(search.image.height)},
        size_{static_cast<double>(full_.width), static_cast<double>(full_.height)},
        maker_(search.kernels, full_, search.Mask(0)),
        freedom_(FreedomOf(search.limits, full_)) {}

  bool Run(const Candidate& candidate, Match& match) {
    Pose pose = FromLevel(search_.tool, std::min(search_.start, 1), candidate.pose);
    pose.degrees = search_.limits.rotate ? IntoRange(pose.degrees) : 0;
    pose.scale = IntoLimits(pose.scale, freedom_.scaleMin, freedom_.scaleMax);
    match.pose = pose;
    if (freedom_.moveOnly) return MoveOnly(kReach, match);
    if (!FitThroughLevels(match)) return false;
    if (search_.limits.rotate) match.pose.degrees = IntoRange(match.pose.degrees);
    return CompareUpright(match.score > -1 ? match.pose : pose, match);
  }

 private:
  static constexpr double kTurn = 360;

  // Limits of a full turn or more do not stop a fit. A template keeps a pixel of either side.
  static FitFreedom FreedomOf(const SearchLimits& limits, const NccLevel& full) {
    const bool anyAngle = limits.angleMax - limits.angleMin >= kTurn;
    const bool turn = limits.rotate && limits.angleMin < limits.angleMax;
    const double scaleMin = std::max(1.0 / std::min(full.width, full.height), limits.scaleMin);
    const bool scale = scaleMin < limits.scaleMax;
    const bool turned = limits.rotate && limits.angleMin != 0;
    return {.turn = turn,
            .scale = scale,
            .moveOnly = !turn && !scale && !turned && IsOwnSize(scaleMin),
            .degreesMin = anyAngle ? -HUGE_VAL : limits.angleMin,
            .degreesMax = anyAngle ? HUGE_VAL : limits.angleMax,
            .scaleMin = scaleMin,
            .scaleMax = limits.scaleMax};
  }

  // A whole turn more or less where that helps, the nearest limit otherwise.
  double IntoRange(double degrees) const {
    const SearchLimits& limits = search_.limits;
    if (degrees < limits.angleMin && degrees + kTurn <= limits.angleMax) degrees += kTurn;
    if (degrees > limits.angleMax && degrees - kTurn >= limits.angleMin) degrees -= kTurn;
    return IntoLimits(degrees, limits.angleMin, limits.angleMax);
  }

  // The template as it is: the score is that of the best whole-pixel position, to the last digit;
  // the fit adds the fraction of a pixel.
  bool MoveOnly(int reach, Match& match) {
    match.pose.degrees = 0;
    match.pose.scale = 1;
    match.score = -1;
    if (!MoveInside(image_, size_, match.pose)) return true;
    if (upright_.planes == 0 && !maker_.Make(1, 0, upright_)) return false;
    const int left = static_cast<int>(std::floor(match.pose.x - full_.centreX + 0.5));
    const int top = static_cast<int>(std::floor(match.pose.y - full_.centreY + 0.5));
    const Region region = {left - reach, top - reach, left + reach + full_.width,
                           top + reach + full_.height};
    if (!patch_.Cut(search_.kernels, search_.image, 0, region) ||
        !scorer_.Open(search_.kernels, upright_, patch_)) {
      return false;
    }
    Position best = {.score = -1};
    scorer_.FindBest(0, 0, scorer_.Columns() - 1, scorer_.Rows() - 1, best);
    if (!(best.score > -1)) return true;
    const Pose whole = {best.x + patch_.Left() + full_.centreX,
                        best.y + patch_.Top() + full_.centreY, 0, 1};
    match.pose = whole;
    match.score = best.score;
    if (!(best.score >= search_.limits.minScore)) return true;
    double fitted = -1;
    if (!OpenFit(0, {.moveOnly = true}, moved_) || !moved_.Run(patch_, match.pose, fitted)) {
      return false;
    }
    const double moved =
        std::max(std::abs(match.pose.x - whole.x), std::abs(match.pose.y - whole.y));
    if (!(moved <= 1)) match.pose = whole;
    return true;
  }

  // Whether the template as it is may be what was found: it is within the limits, and turned and
  // scaled as the pose no point of it moves farther than a fit is looked for.
  bool IsNearlyUpright(const Pose& pose) const {
    const SearchLimits& limits = search_.limits;
    const bool allowed = (!limits.rotate || IntoLimits(0, limits.angleMin, limits.angleMax) == 0) &&
                         IsOwnSize(IntoLimits(1, limits.scaleMin, limits.scaleMax));
    const double radius = Length(full_.centreX, full_.centreY);
    return allowed && radius * Length(pose.degrees * kRadians, pose.scale - 1) <= kReach;
  }

  // Interpolation costs a copy of the template some of its score, and a template of the image's
  // size fits in no other way.
  bool CompareUpright(const Pose& pose, Match& match) {
    const bool fitted = match.score > -1;
    if (!IsNearlyUpright(pose) || (fitted && IsHopeless(match))) return true;
    Match upright = match;
    upright.pose = pose;
    if (!MoveOnly(fitted ? 1 : kReach, upright)) return false;
    if (upright.score > -1 && upright.score >= std::min(match.score, 1.0)) match = upright;
    return true;
  }

  // Whether the score is so far below the least that is asked for that it cannot be a match:
  // reduced levels and interpolation cost a match less than this.
  bool IsHopeless(const Match& match) const { return match.score < search_.limits.minScore - 0.3; }

  // The grid's scales only go down from a candidate's, and its own was a coarse guess: the first
  // fit starts from larger ones, too. A fit that is hopeless at a reduced level is left there.
  bool FitThroughLevels(Match& match) {
    int coarsest = std::max(search_.start - 1, 0);
    while (coarsest > 0 && !search_.Counts(coarsest)) --coarsest;
    Pose start = match.pose;
    for (int i = 0; i <= (freedom_.scale ? kLargerStarts : 0); ++i) {
      Match tried = {start, -1, match.rank};
      if (!FitAtLevel(coarsest, tried)) return false;
      if (i == 0 || tried.score > match.score) match = tried;
      if (start.scale >= freedom_.scaleMax) break;
      const double step = search_.lattice.ScaleStep(search_.start);
      start.scale = std::min(start.scale + step, freedom_.scaleMax);
    }
    for (int level = coarsest - 1; level >= 0; --level) {
      if (IsHopeless(match)) return true;
      if (search_.Counts(level) && !FitAtLevel(level, match)) return false;
    }
    KeepInside(match);
    return true;
  }

  // A match whose scale is reported as 1 must fit into the image at a scale of 1.
  void KeepInside(Match& match) const {
    if (match.score <= -1) return;
    if (IsOwnSize(match.pose.scale)) match.pose.scale = 1;
    if (!FitInside(image_, size_, freedom_.scaleMin, match.pose)) match.score = -1;
  }

  bool FitAtLevel(int level, Match& match) {
    const NccLevel& pattern = search_.tool.levels[level];
    Pose pose = ToLevel(search_.tool, level, match.pose);
    const double reach = pose.scale * Length(pattern.width, pattern.height) * 0.5 + kMargin;
    const Region region = {
        static_cast<int>(std::floor(pose.x - reach)), static_cast<int>(std::floor(pose.y - reach)),
        static_cast<int>(std::ceil(pose.x + reach)), static_cast<int>(std::ceil(pose.y + reach))};
    if (!patch_.CutPixels(search_.kernels, search_.image, level, region) ||
        !OpenFit(level, freedom_, fits_[level])) {
      return false;
    }
    const bool done = fits_[level].CoversTemplate() ? fits_[level].Run(patch_, pose, match.score)
                                                    : ClimbAtLevel(level, pose, match.score);
    if (!done) return false;
    match.pose = FromLevel(search_.tool, level, pose);
    return true;
  }

  // A template of lines or scattered pixels has nothing between its pixels that could be sampled:
  // the image is sampled at the template's own pixels instead.
  bool ClimbAtLevel(int level, Pose& pose, double& score) {
    PoseClimb& climb = climbs_[level];
    const CellReach reach = {.pixels = kReach,
                             .degrees = freedom_.turn ? 2 * search_.lattice.AngleStep(level) : 0,
                             .scale = freedom_.scale ? 2 * search_.lattice.ScaleStep(level) : 0};
    if (!climb.IsOpen() &&
        !climb.Open(search_.kernels, search_.tool.levels[level], search_.Mask(level), reach)) {
      return false;
    }
    if (!patch_.AddCells(search_.kernels)) return false;
    const Pose point = pose;
    climb.Run(patch_, point, /*hopeful=*/0, pose);
    if (freedom_.turn) {
      pose.degrees = IntoLimits(pose.degrees, freedom_.degreesMin, freedom_.degreesMax);
    }
    pose.scale = IntoLimits(pose.scale, freedom_.scaleMin, freedom_.scaleMax);
    score = climb.Score(patch_, pose);
    return true;
  }

  bool OpenFit(int level, const FitFreedom& freedom, PoseFit& fit) {
    return fit.IsOpen() ||
           fit.Open(search_.kernels, search_.tool.levels[level], search_.Mask(level), freedom);
  }

  static constexpr int kReach = 2, kMargin = 4;  // pixels
  static constexpr int kLargerStarts = 2;

  const Search& search_;
  const NccLevel& full_;
  const Extent image_, size_;  // of the template
  VariantMaker maker_;
  const FitFreedom freedom_;
  PoseFit fits_[kMaxPyramidLevel + 1];
  PoseClimb climbs_[kMaxPyramidLevel + 1];
  PoseFit moved_;  // of the template as it is
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
