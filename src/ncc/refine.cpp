// The middle stage: candidates from level to level.
#include <algorithm>
#include <cmath>

#include "core/length.h"
#include "ncc/scorer.h"
#include "ncc/stages.h"

namespace quillon {
namespace {

// The variants used last. Candidates come by scale and angle, so neighbours ask for the same ones.
class VariantCache {
 public:
  VariantCache(const Search& search, int level)
      : lattice_(search.lattice),
        maker_(search.kernels, search.tool.levels[level], search.Mask(level)) {}

  // Null when memory is short.
  const Variant* Get(int scale, int angle) {
    for (Slot& slot : slots_) {
      if (slot.used && slot.scale == scale && slot.angle == angle) return &slot.variant;
    }
    Slot& slot = slots_[next_];
    next_ = (next_ + 1) % kSlots;
    slot.used = maker_.Make(lattice_.Scale(scale), lattice_.Angle(angle), slot.variant);
    slot.scale = scale;
    slot.angle = angle;
    return slot.used ? &slot.variant : nullptr;
  }

 private:
  static constexpr int kSlots = 12;  // two candidates' worth
  struct Slot {
    bool used = false;
    int scale = 0, angle = 0;
    Variant variant;
  };

  const Lattice& lattice_;
  VariantMaker maker_;
  Slot slots_[kSlots];
  int next_ = 0;
};

class Refinement {
 public:
  Refinement(const Search& search, int level)
      : search_(search), level_(level), variants_(search, level) {}

  bool Open() {
    return climb_.Open(search_.kernels, search_.tool.levels[level_], search_.Mask(level_),
                       search_.Reach(level_));
  }

  // Two of the grid points around a candidate are climbed from: the one whose own pose is best, and
  // the one that is nearest to the candidate's pose, from that pose.
  bool Run(Candidate& candidate) {
    CarryToLevel(search_, level_, candidate.pose);
    if (!CutAround(candidate.pose)) return false;
    Candidate best = candidate, nearest = candidate;
    best.score = nearest.score = kNone;
    double least = HUGE_VAL;
    const Lattice& lattice = search_.lattice;
    const int step = 2 << level_;
    for (int scale : {candidate.scale - step, candidate.scale}) {
      if (!search_.AllowsScale(scale, lattice.ScaleStep(level_))) continue;
      for (int angle : {candidate.angle - step, candidate.angle, candidate.angle + step}) {
        if (angle != 0 && !search_.limits.rotate) continue;
        if (search_.limits.rotate && !search_.AllowsAngle(angle, lattice.AngleStep(level_))) {
          continue;
        }
        if (!Try(candidate.pose, scale, angle, best)) return false;
        const double distance = lattice.Distance(scale, angle, candidate.pose);
        if (distance >= least) continue;
        least = distance;
        nearest.scale = scale;
        nearest.angle = angle;
      }
    }
    if (least == HUGE_VAL) return true;
    const double toBeat = candidate.score - 0.1;
    Climb(toBeat, nearest);
    if (!SamePoint(best, nearest)) Climb(toBeat, best);
    if (nearest.score > best.score) best = nearest;
    if (best.score > toBeat) candidate = best;
    return true;
  }

 private:
  // Room for every variant around the pose: a circle holds them all.
  bool CutAround(const Pose& pose) {
    const NccLevel& pattern = search_.tool.levels[level_];
    const double width = pattern.width * pose.scale, height = pattern.height * pose.scale;
    const double diagonal = Length(width, height);
    const double reachX = (search_.limits.rotate ? diagonal : width) * 0.5 + kTurnedReach + 2;
    const double reachY = (search_.limits.rotate ? diagonal : height) * 0.5 + kTurnedReach + 2;
    const Region region = {static_cast<int>(std::floor(pose.x - reachX)),
                           static_cast<int>(std::floor(pose.y - reachY)),
                           static_cast<int>(std::ceil(pose.x + reachX)),
                           static_cast<int>(std::ceil(pose.y + reachY))};
    return patch_.Cut(search_.kernels, search_.image, level_, region) &&
           patch_.AddCells(search_.kernels);
  }

  bool Try(const Pose& around, int scale, int angle, Candidate& best) {
    const Variant* variant = variants_.Get(scale, angle);
    if (!variant || !scorer_.Open(search_.kernels, *variant, patch_)) return false;
    const double left = around.x - variant->width * 0.5;
    const double top = around.y - variant->height * 0.5;
    const int x = static_cast<int>(std::floor(left + 0.5)) - patch_.Left();
    const int y = static_cast<int>(std::floor(top + 0.5)) - patch_.Top();
    const int reach = variant->turned ? kTurnedReach : kUprightReach;
    Position found = {.score = best.score};
    scorer_.FindBest(x - reach, y - reach, x + reach, y + reach, found);
    if (found.score > best.score) {
      best = {.angle = angle,
              .scale = scale,
              .score = found.score,
              .pose = {found.x + patch_.Left() + variant->width * 0.5,
                       found.y + patch_.Top() + variant->height * 0.5, search_.lattice.Angle(angle),
                       search_.lattice.Scale(scale)}};
    }
    return true;
  }

  // Whether two climbs would start from the same point, give or take a pixel.
  static bool SamePoint(const Candidate& a, const Candidate& b) {
    return a.angle == b.angle && a.scale == b.scale && std::abs(a.pose.x - b.pose.x) <= 1 &&
           std::abs(a.pose.y - b.pose.y) <= 1;
  }

  void Climb(double hopeful, Candidate& tried) const {
    const Pose point = {tried.pose.x, tried.pose.y, search_.lattice.Angle(tried.angle),
                        search_.lattice.Scale(tried.scale)};
    Pose pose = tried.pose;
    const double score = climb_.Run(patch_, point, hopeful, pose);
    if (!(score > tried.score)) return;
    tried.score = score;
    tried.pose = pose;
  }

  static constexpr int kUprightReach = 2, kTurnedReach = 3;
  static constexpr double kNone = -1;  // of score

  const Search& search_;
  const int level_;
  VariantCache variants_;
  PoseClimb climb_;
  Patch patch_;
  Scorer scorer_;
};

}  // namespace

void CarryToLevel(const Search& search, int level, Pose& pose) {
  const NccLevel& pattern = search.tool.levels[level];
  const double c = pose.scale * std::cos(pose.degrees * kRadians);
  const double s = pose.scale * std::sin(pose.degrees * kRadians);
  const double u = pattern.width % 2 * 0.5, v = pattern.height % 2 * 0.5;
  pose.x = 2 * pose.x + u * c - v * s;
  pose.y = 2 * pose.y + u * s + v * c;
}

bool RefineAtLevel(const Search& search, int level, Candidate* candidates, int count) {
  if (!search.Counts(level)) {
    for (int i = 0; i < count; ++i) CarryToLevel(search, level, candidates[i].pose);
    return true;
  }
  Buffer<int> order(static_cast<size_t>(count));
  if (!order) return false;
  for (int i = 0; i < count; ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [&](int a, int b) {
    const Candidate &first = candidates[a], &second = candidates[b];
    if (first.scale != second.scale) return first.scale < second.scale;
    if (first.angle != second.angle) return first.angle < second.angle;
    return a < b;
  });
  Refinement refinement(search, level);
  if (!refinement.Open()) return false;
  for (int i : order) {
    if (!refinement.Run(candidates[i])) return false;
  }
  return true;
}

}  // namespace quillon
