// The middle stage: candidates from level to level.
#include <algorithm>
#include <cmath>

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

  bool Run(Candidate& candidate) {
    CarryToLevel(search_, level_, candidate);
    Candidate best = candidate;
    best.score = candidate.score - 0.1;
    const double toBeat = best.score;
    const int step = 2 << level_;
    if (!CutAround(candidate)) return false;
    const int turn = step * Lattice::kThirds;
    const Lattice& lattice = search_.lattice;
    for (int scale : {candidate.scale - step, candidate.scale}) {
      if (!search_.AllowsScale(scale, lattice.ScaleStep(level_))) continue;
      for (int angle : {candidate.angle - turn, candidate.angle, candidate.angle + turn}) {
        if (angle != 0 && !search_.limits.rotate) continue;
        if (search_.limits.rotate && !search_.AllowsAngle(angle, lattice.AngleStep(level_))) {
          continue;
        }
        if (!Try(candidate, scale, angle, best)) return false;
      }
    }
    if (best.score > toBeat) candidate = best;
    return true;
  }

 private:
  // Room for every variant around the candidate: a circle holds them all.
  bool CutAround(const Candidate& candidate) {
    const NccLevel& pattern = search_.tool.levels[level_];
    const double scale = search_.lattice.Scale(candidate.scale);
    const double width = pattern.width * scale, height = pattern.height * scale;
    const double diagonal = std::hypot(width, height);
    const double reachX = (search_.limits.rotate ? diagonal : width) * 0.5 + kTurnedReach + 2;
    const double reachY = (search_.limits.rotate ? diagonal : height) * 0.5 + kTurnedReach + 2;
    const Region region = {static_cast<int>(std::floor(candidate.x - reachX)),
                           static_cast<int>(std::floor(candidate.y - reachY)),
                           static_cast<int>(std::ceil(candidate.x + reachX)),
                           static_cast<int>(std::ceil(candidate.y + reachY))};
    return patch_.Cut(search_.kernels, search_.image, level_, region);
  }

  bool Try(const Candidate& candidate, int scale, int angle, Candidate& best) {
    const Variant* variant = variants_.Get(scale, angle);
    if (!variant || !scorer_.Open(search_.kernels, *variant, patch_)) return false;
    const double left = candidate.x - variant->width * 0.5;
    const double top = candidate.y - variant->height * 0.5;
    const int x = static_cast<int>(std::floor(left + 0.5)) - patch_.Left();
    const int y = static_cast<int>(std::floor(top + 0.5)) - patch_.Top();
    const int reach = variant->turned ? kTurnedReach : kUprightReach;
    Position found = {.score = best.score};
    scorer_.FindBest(x - reach, y - reach, x + reach, y + reach, found);
    if (found.score > best.score) {
      best = {found.x + patch_.Left() + variant->width * 0.5,
              found.y + patch_.Top() + variant->height * 0.5, angle, scale, found.score};
    }
    return true;
  }

  static constexpr int kUprightReach = 2, kTurnedReach = 3;

  const Search& search_;
  const int level_;
  VariantCache variants_;
  Patch patch_;
  Scorer scorer_;
};

}  // namespace

void CarryToLevel(const Search& search, int level, Candidate& candidate) {
  const NccLevel& pattern = search.tool.levels[level];
  const double scale = search.lattice.Scale(candidate.scale);
  const double radians = search.lattice.Angle(candidate.angle) * kRadians;
  const double c = scale * std::cos(radians), s = scale * std::sin(radians);
  const double u = pattern.width % 2 * 0.5, v = pattern.height % 2 * 0.5;
  candidate.x = 2 * candidate.x + u * c - v * s;
  candidate.y = 2 * candidate.y + u * s + v * c;
}

bool RefineAtLevel(const Search& search, int level, Candidate* candidates, int count) {
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
  for (int i : order) {
    if (!refinement.Run(candidates[i])) return false;
  }
  return true;
}

}  // namespace quillon
