// The first stage: every position, angle and scale at the coarsest level.
#include <algorithm>

#include "ncc/scorer.h"
#include "ncc/stages.h"

namespace quillon {
namespace {

constexpr int kSteps =
    50;  // the grid reaches so many steps to either side of a turn, twice of a scale

class Sweep {
 public:
  explicit Sweep(const Search& search)
      : search_(search),
        level_(search.tool.currentLevel),
        maker_(search.kernels, search.tool.levels[level_], search.Mask(level_)),
        threshold_(search.limits.minScore - (level_ > 0 ? 0.4 : 0.1)) {}

  bool Open(int capacity) {
    const int width = ReducedSize(search_.image.width, level_);
    const int height = ReducedSize(search_.image.height, level_);
    const NccLevel& pattern = search_.tool.levels[level_];
    maker_.FitInto(width, height);
    return patch_.Cut(search_.kernels, search_.image, level_, {0, 0, width, height}) &&
           list_.Open(capacity, width, height, std::min(pattern.centreX, pattern.centreY));
  }

  bool Run() {
    const double step = search_.lattice.ScaleStep(level_);
    for (int i = -kSteps; i <= kSteps; ++i) {
      const int scale = (2 * i) << level_;
      if (search_.AllowsScale(scale, step) && !RunScale(scale)) return false;
    }
    return true;
  }

  CandidateList& List() { return list_; }

 private:
  // Two steps apart, a match half way between two angles looks like neither: at the coarsest level
  // a few pixels are all there is of a template. So angles follow by two thirds of a step.
  bool RunScale(int scale) {
    if (!search_.limits.rotate) return RunVariant(scale, 0);
    const double step = search_.lattice.AngleStep(level_) / Lattice::kThirds;
    constexpr int kTurns = kSteps / 2 * Lattice::kThirds;
    for (int i = -kTurns; i <= kTurns; ++i) {
      const int angle = (2 * i) << level_;
      if (search_.AllowsAngle(angle, step) && !RunVariant(scale, angle)) return false;
    }
    return true;
  }

  bool RunVariant(int scale, int angle) {
    const Lattice& lattice = search_.lattice;
    if (!maker_.Make(lattice.Scale(scale), lattice.Angle(angle), variant_) ||
        !scorer_.Open(search_.kernels, variant_, patch_)) {
      return false;
    }
    const CandidateList::Neighbourhood near = {variant_.halfWidth, variant_.halfHeight,
                                               variant_.cosine, variant_.sine};
    const double centreX = variant_.width * 0.5, centreY = variant_.height * 0.5;
    for (int y = 0; y < scorer_.Rows(); ++y) {
      scorer_.ScoreRow(y, threshold_, [&](int x, double score) {
        if (!(score > threshold_)) return;
        list_.Insert({x + centreX, y + centreY, angle, scale, score}, near);
        threshold_ = std::max(threshold_, list_.LastScore());
      });
    }
    // From the first variant on, never below the 0 of a list that is not full.
    threshold_ = std::max(threshold_, list_.LastScore());
    return true;
  }

  const Search& search_;
  const int level_;
  VariantMaker maker_;
  double threshold_;
  Patch patch_;
  CandidateList list_;
  Variant variant_;
  Scorer scorer_;
};

}  // namespace

bool SweepCoarsestLevel(const Search& search, int capacity, Buffer<Candidate>& candidates,
                        int& count) {
  Sweep sweep(search);
  if (!sweep.Open(capacity) || !sweep.Run()) return false;
  count = sweep.List().Count();
  candidates = Buffer<Candidate>(static_cast<size_t>(count));
  if (!candidates) return false;
  sweep.List().CopyTo(candidates.data());
  return true;
}

}  // namespace quillon
