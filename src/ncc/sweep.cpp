// The first stage: every position, angle and scale of the grid at the coarsest level.
#include <algorithm>
#include <bit>
#include <cmath>

#include "core/length.h"
#include "ncc/climb.h"
#include "ncc/scorer.h"
#include "ncc/stages.h"

namespace quillon {
namespace {

constexpr int kSteps =
    50;  // the grid reaches so many steps to either side of a turn, twice of a scale

// A grid point's template, and the same turned by two thirds of a step to either side: grid angles
// are two steps apart, and few pixels turned by half as much are not alike any more. The grid point
// scores what the best of its turns does.
struct Turn {
  double degrees;
  bool scored;  // within the limits
  Variant variant;
  Scorer scorer;
  int left, top;  // of this box, where that of the grid point is at (0, 0)
};

// The scores of one row of positions. Most positions have none, because they cannot enter the list.
class ScoreRow {
 public:
  static constexpr double kNone = -2;  // below every score

  bool Open(int width) {
    const auto size = static_cast<size_t>(width);
    scores_ = Buffer<double>(size + 2);  // a column that scores nothing at either end
    turns_ = Buffer<uint8_t>(size);
    columns_ = Buffer<uint64_t>::Zeroed(size / kBits + 1);
    if (!scores_ || !turns_ || !columns_) return false;
    std::fill(scores_.begin(), scores_.end(), kNone);
    return true;
  }

  void Clear() {
    ForEachColumn([&](int x) { scores_[x + 1] = kNone; });
    std::fill(columns_.begin(), columns_.end(), 0);
  }
  void Enter(int x, double score, int turn) {
    if (!(score > At(x))) return;
    columns_[x / kBits] |= uint64_t{1} << x % kBits;
    scores_[x + 1] = score;
    turns_[x] = static_cast<uint8_t>(turn);
  }

  // Calls body(x) for each column that has a score, left to right.
  template <class Body>
  void ForEachColumn(Body&& body) const {
    for (size_t word = 0; word < columns_.size(); ++word) {
      for (uint64_t bits = columns_[word]; bits != 0; bits &= bits - 1) {
        body(static_cast<int>(word) * kBits + std::countr_zero(bits));
      }
    }
  }
  double At(int x) const { return scores_[x + 1]; }
  int TurnAt(int x) const { return turns_[x]; }

 private:
  static constexpr int kBits = 64;  // of a word

  Buffer<double> scores_;
  Buffer<uint8_t> turns_;     // which one scored
  Buffer<uint64_t> columns_;  // a bit for each that has a score
};

class Sweep {
 public:
  explicit Sweep(const Search& search)
      : search_(search),
        level_(search.start),
        maker_(search.kernels, search.tool.levels[level_], search.Mask(level_)),
        threshold_(search.limits.minScore - (level_ > 0 ? 0.4 : 0.1)),
        floor_(threshold_),
        hopeful_(std::max(threshold_, search.limits.minScore - 0.25)) {}

  bool Open(int capacity) {
    const int width = ReducedSize(search_.image.width, level_);
    const int height = ReducedSize(search_.image.height, level_);
    const NccLevel& pattern = search_.tool.levels[level_];
    maker_.FitInto(width, height);
    for (ScoreRow& row : rows_) {
      if (!row.Open(width)) return false;
    }
    return patch_.Cut(search_.kernels, search_.image, level_, {0, 0, width, height}) &&
           patch_.AddCells(search_.kernels) &&
           climb_.Open(search_.kernels, pattern, search_.Mask(level_), search_.Reach(level_)) &&
           list_.Open(capacity, width, height, Length(pattern.centreX, pattern.centreY));
  }

  bool Run() {
    const double step = search_.lattice.ScaleStep(level_);
    for (int i = -kSteps; i <= kSteps; ++i) {
      const int scale = 2 * i * (1 << level_);
      if (search_.AllowsScale(scale, step) && !RunScale(scale)) return false;
    }
    return true;
  }

  CandidateList& List() { return list_; }

 private:
  bool RunScale(int scale) {
    if (!search_.limits.rotate) return RunPoint(scale, 0);
    const double step = search_.lattice.AngleStep(level_);
    for (int i = -kSteps / 2; i <= kSteps / 2; ++i) {
      const int angle = 2 * i * (1 << level_);
      if (search_.AllowsAngle(angle, step) && !RunPoint(scale, angle)) return false;
    }
    return true;
  }

  bool RunPoint(int scale, int angle) {
    if (!MakeTurns(scale, angle)) return false;
    const int rows = turns_[0].scorer.Rows();
    rows_[0].Clear();
    Score(0, rows_[1]);
    for (int y = 0; y < rows; ++y) {
      Score(y + 1, rows_[(y + 2) % 3]);
      Collect(y, scale, angle);
    }
    // From here on, positions are passed over that could not enter the list: those below its last
    // entry, or below 0 while it is not full. The very first point of the grid had no such bound.
    threshold_ = std::max(threshold_, list_.LastScore());
    floor_ = std::max(floor_, 0.0);
    return true;
  }

  bool MakeTurns(int scale, int angle) {
    const Lattice& lattice = search_.lattice;
    const double third = lattice.AngleStep(level_) / 3;
    turnCount_ = 0;
    for (int thirds : {0, -2, 2}) {
      Turn& turn = turns_[turnCount_];
      turn.degrees = lattice.Angle(angle) + thirds * third;
      turn.scored =
          search_.limits.rotate ? search_.AllowsDegrees(turn.degrees, third) : thirds == 0;
      if (thirds != 0 && !turn.scored) continue;
      if (!maker_.Make(lattice.Scale(scale), turn.degrees, turn.variant) ||
          !turn.scorer.Open(search_.kernels, turn.variant, patch_)) {
        return false;
      }
      // Halves are rounded down: boxes of odd and of even size cannot share their middle.
      const Variant& own = turns_[0].variant;
      turn.left = (own.width - turn.variant.width) >> 1;
      turn.top = (own.height - turn.variant.height) >> 1;
      ++turnCount_;
    }
    return true;
  }

  // The best turn's score at each position of row y that may score above the floor.
  void Score(int y, ScoreRow& row) {
    row.Clear();
    const int columns = turns_[0].scorer.Columns();
    if (y >= turns_[0].scorer.Rows()) return;
    for (int i = 0; i < turnCount_; ++i) {
      Turn& turn = turns_[i];
      if (!turn.scored || y + turn.top < 0 || y + turn.top >= turn.scorer.Rows()) continue;
      turn.scorer.ScoreRow(y + turn.top, floor_, [&](int x, double score) {
        const int at = x - turn.left;
        if (at >= 0 && at < columns) row.Enter(at, score, i);
      });
    }
  }

  bool IsPeak(int x, double score) const {
    for (const ScoreRow& row : rows_) {
      if (std::max({row.At(x - 1), row.At(x), row.At(x + 1)}) > score) return false;
    }
    return true;
  }

  // Enters the candidates of row y.
  void Collect(int y, int scale, int angle) {
    const Variant& own = turns_[0].variant;
    const double centreX = own.width * 0.5, centreY = own.height * 0.5;
    const Lattice& lattice = search_.lattice;
    const ScoreRow& row = rows_[(y + 1) % 3];
    row.ForEachColumn([&](int x) {
      if (!(row.At(x) > floor_)) return;
      const Pose point = {x + centreX, y + centreY, lattice.Angle(angle), lattice.Scale(scale)};
      Candidate candidate = {angle, scale, row.At(x), point};
      if (IsPeak(x, candidate.score)) Climb(x, y, candidate);
      if (!(candidate.score > threshold_)) return;
      list_.Insert(candidate, centreX, centreY);
      threshold_ = std::max(threshold_, list_.LastScore());
    });
  }

  // From the middle of three scores, which is the best, to where a parabola through them is
  // highest.
  double ToTop(double before, double middle, double after) const {
    before = std::max(before, floor_);
    after = std::max(after, floor_);
    const double bend = before - 2 * middle + after;
    return bend < 0 ? 0.5 * (before - after) / bend : 0;
  }

  void Climb(int x, int y, Candidate& candidate) const {
    const ScoreRow &above = rows_[y % 3], &row = rows_[(y + 1) % 3], &below = rows_[(y + 2) % 3];
    const Turn& turn = turns_[row.TurnAt(x)];
    const double score = row.At(x);
    Pose pose = {x + turn.left + turn.variant.width * 0.5, y + turn.top + turn.variant.height * 0.5,
                 turn.degrees, candidate.pose.scale};
    pose.x += ToTop(row.At(x - 1), score, row.At(x + 1));
    pose.y += ToTop(above.At(x), score, below.At(x));
    const double climbed = climb_.Run(patch_, candidate.pose, hopeful_, pose);
    if (!(climbed > score)) return;
    candidate.score = climbed;
    candidate.pose = pose;
  }

  const Search& search_;
  const int level_;
  VariantMaker maker_;
  double threshold_;
  double floor_;    // what a grid point must score before a climb
  double hopeful_;  // what a match scores after two steps of a climb
  Patch patch_;
  CandidateList list_;
  PoseClimb climb_;
  Turn turns_[3];
  int turnCount_ = 0;
  ScoreRow rows_[3];  // row y is rows_[(y + 1) % 3]
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
