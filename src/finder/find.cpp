#include <algorithm>
#include <cmath>
#include <tuple>

#include "finder/refine.h"

namespace quillon::finder {
namespace {

// What a candidate must reach to be followed, as a share of the minimum score: after the sweep of
// the coarsest level, whose poses are off by up to half a step, and after the fit or climb on each
// level above the finest.
constexpr double kSweepShare = 0.6, kLevelShare = 0.7;
// A candidate that is worse than enough others by more than this is dropped, for its score can
// hardly catch up on the way to full resolution: scores grow little there, noise and detail make
// them shrink. On level 1, and on the levels above.
constexpr double kMostGain = 0.2, kMostGainAbove = 0.3;
// The same after the sweep, which leaves more to gain: its poses are off.
constexpr double kMostGainSwept = 0.45;
// Grey: pixels that a template keeps where it is swept, at the smallest size that is looked for.
// With fewer, more chance patterns look like it than are refined.
constexpr double kLeastSweptArea = 38;

struct Bounds {
  double left, top, right, bottom;  // of centres
};

bool IsIn(double value, double low, double high) { return value >= low && value <= high; }

Status Check(const Model& model, const Picture& picture, const FindOptions& options) {
  if (!model.IsTaught() || !picture.pixels || !IsIn(picture.width, 1, kMaxSide) ||
      !IsIn(picture.height, 1, kMaxSide)) {
    return Status::kNoPicture;
  }
  constexpr double kMostDegrees = 36000;
  const bool numbers =
      IsIn(options.angleLow, -kMostDegrees, kMostDegrees) &&
      IsIn(options.angleHigh, options.angleLow, kMostDegrees) && IsIn(options.scaleLow, 0.5, 2) &&
      IsIn(options.scaleHigh, options.scaleLow, 2) && IsIn(options.minScore, 0.1, 1) &&
      IsIn(options.maxCount, 1, 10000) && IsIn(options.maxOverlap, 0, 1);
  if (!numbers) return Status::kBadNumber;
  const bool whole = options.right <= options.left && options.bottom <= options.top;
  if (!whole && (options.right <= std::max(options.left, 0) || options.left >= picture.width ||
                 options.bottom <= std::max(options.top, 0) || options.top >= picture.height ||
                 options.right <= options.left || options.bottom <= options.top)) {
    return Status::kBadRegion;
  }
  const double shorter = options.scaleLow * std::min(model.width, model.height);
  const double longer = options.scaleLow * std::max(model.width, model.height);
  if (shorter > std::min(picture.width, picture.height) ||
      longer > std::sqrt(static_cast<double>(picture.width) * picture.width +
                         static_cast<double>(picture.height) * picture.height)) {
    return Status::kDoesNotFit;
  }
  return Status::kOk;
}

bool Better(const Candidate& a, const Candidate& b) {
  const Pose &p = a.pose, &q = b.pose;
  return std::tie(b.score, p.y, p.x, p.degrees, p.scale) <
         std::tie(a.score, q.y, q.x, q.degrees, q.scale);
}

// Sorts, drops those below `least`, those that ended at the same pose as a better one, and those
// beyond `most`.
void Prune(const RefineTask& task, int level, float least, size_t most, List<Candidate>& list) {
  std::sort(list.begin(), list.end(), Better);
  const double pixel = 1 << level;
  const double turn = kDegrees / std::max(2.0F, task.model.level[level].radius);
  size_t kept = 0;
  for (size_t i = 0; i < list.size() && kept < most && list[i].score >= least; ++i) {
    const Pose& pose = list[i].pose;
    bool isNew = true;
    for (size_t j = 0; j < kept && isNew; ++j) {
      const Pose& other = list[j].pose;
      const double apart = std::abs(pose.degrees - other.degrees);  // at most 360
      const double turned = std::min(apart, 360 - apart);
      isNew = std::abs(pose.x - other.x) > pixel || std::abs(pose.y - other.y) > pixel ||
              turned > turn || std::abs(pose.scale - other.scale) * kDegrees > turn;
    }
    if (isNew) list[kept++] = list[i];
  }
  list.Shrink(kept);
}

bool AddAll(const List<Candidate>& from, List<Candidate>& to) {
  for (const Candidate& candidate : from) {
    if (!to.Add(candidate)) return false;
  }
  return true;
}

// What a match shares with better ones: with each, and with all together. A place between two parts
// side by side looks like half of either, and shares no more than half with each.
class Shares {
 public:
  explicit Shares(const FindOptions& options) : most_(options.maxOverlap) {}
  // `smaller` is the area of the smaller of the two, `own` that of the match.
  void Add(double shared, double smaller, double own) {
    together_ += shared;
    const bool isAllowed = shared <= most_ * smaller && (most_ >= 1 || together_ <= most_ * own);
    areAllowed_ = areAllowed_ && isAllowed;
  }
  bool AreAllowed() const { return areAllowed_; }

 private:
  double most_, together_ = 0;
  bool areAllowed_ = true;
};

// The score that `count` candidates reach, no two of which share too much of their outline; 0 when
// there are fewer. The list is sorted.
double ScoreReachedBy(const Model& model, const FindOptions& options, const List<Candidate>& list) {
  constexpr int kMost = 64;
  double taken[kMost][4][2];
  if (options.maxCount > kMost) return 0;
  int count = 0;
  const double area = static_cast<double>(model.width) * model.height;
  for (const Candidate& candidate : list) {
    Outline(model.width, model.height, candidate.pose, taken[count]);
    const double scale = options.scaleLow;
    Shares shares(options);
    for (int i = 0; i < count && shares.AreAllowed(); ++i) {
      shares.Add(SharedArea(taken[i], taken[count]), area * scale * scale, area * scale * scale);
    }
    if (shares.AreAllowed() && ++count == options.maxCount) return candidate.score;
  }
  return 0;
}

// Takes the best of those that share too much of their outline.
bool TakeBest(const Model& model, const FindOptions& options, List<Match>& found,
              Results& results) {
  std::sort(found.begin(), found.end(), [](const Match& a, const Match& b) {
    return std::tie(b.score, a.y, a.x, a.degrees, a.scale) <
           std::tie(a.score, b.y, b.x, b.degrees, b.scale);
  });
  results.Clear();
  const double area = static_cast<double>(model.width) * model.height;
  for (const Match& match : found) {
    if (results.size() == static_cast<size_t>(options.maxCount)) break;
    const double own = area * match.scale * match.scale;
    Shares shares(options);
    for (const Match& other : results) {
      const double smaller = std::min(own, area * other.scale * other.scale);
      shares.Add(SharedArea(match.corners, other.corners), smaller, own);
      if (!shares.AreAllowed()) break;
    }
    if (shares.AreAllowed() && !results.Add(match)) return false;
  }
  return true;
}

class Finder {
 public:
  Finder(const FinderKernels& kernels, const Model& model, const Picture& picture,
         const FindOptions& options)
      : kernels_(kernels), model_(model), picture_(picture), options_(options) {}

  Status Run(Results& results) {
    if (!planes_.Open(kernels_, picture_, model_.levels)) return Status::kNoMemory;
    Freedom freedom;
    freedom.angleLow = options_.angleLow;
    freedom.anyAngle = options_.angleHigh - options_.angleLow >= 360;
    freedom.angleHigh = freedom.anyAngle ? options_.angleLow + 360 : options_.angleHigh;
    freedom.turn = options_.angleHigh > options_.angleLow;
    freedom.scaleLow = options_.scaleLow;
    freedom.scaleHigh = options_.scaleHigh;
    freedom.scale = options_.scaleHigh > options_.scaleLow;
    bounds_ = {0, 0, static_cast<double>(picture_.width), static_cast<double>(picture_.height)};
    if (options_.right > options_.left) {
      bounds_ = {std::max(bounds_.left, static_cast<double>(options_.left)),
                 std::max(bounds_.top, static_cast<double>(options_.top)),
                 std::min(bounds_.right, static_cast<double>(options_.right)),
                 std::min(bounds_.bottom, static_cast<double>(options_.bottom))};
    }
    const bool any = options_.polarity == Polarity::kAny;
    const RefineTask task = {kernels_,
                             model_,
                             planes_,
                             samples_,
                             freedom,
                             any,
                             SweptLevel(freedom),
                             0.8 * options_.minScore,
                             0};
    List<Candidate> candidates;
    return Collect(task, candidates) && Finish(task, candidates, results) ? Status::kOk
                                                                          : Status::kNoMemory;
  }

 private:
  // The coarsest level that was made; a pooled one only where the level below would take long, for
  // it finds a twentieth fewer of the few templates that have one.
  int SweptLevel(const Freedom& freedom) const {
    constexpr double kMostSums = 1.5e9;  // some 15 ms
    const int top = model_.levels - 1;
    if (!model_.level[top].isPooled) return top;
    return EdgeSums(model_, planes_, freedom, top - 1) > kMostSums ? top : top - 1;
  }
  // The candidates of all sizes: small ones are swept a level finer.
  bool Collect(const RefineTask& task, List<Candidate>& candidates) {
    const Freedom& all = task.freedom;
    const double coarsely = LeastScale(task.sweptLevel);
    if (all.scaleLow >= coarsely) return CollectFrom(task, all, candidates);
    RefineTask finer = task;
    --finer.sweptLevel;
    if (all.scaleHigh <= coarsely) return CollectFrom(finer, all, candidates);
    Freedom large = all, small = all;
    large.scaleLow = small.scaleHigh = coarsely;
    List<Candidate> smallOnes;
    if (!CollectFrom(task, large, candidates) || !CollectFrom(finer, small, smallOnes)) {
      return false;
    }
    return Merge(task, smallOnes, candidates);
  }
  // At which a template still has the pixels that a sweep of a level needs.
  double LeastScale(int level) const {
    if (model_.way == Way::kEdges || level == 0) return 0;
    const double area = static_cast<double>(model_.width >> level) * (model_.height >> level);
    return std::sqrt(kLeastSweptArea / area);
  }
  // Of the sizes of `swept` alone; refining may lead out of them.
  bool CollectFrom(const RefineTask& task, const Freedom& swept, List<Candidate>& candidates) {
    return SweepAll(task, swept, candidates) && RefineAll(task, candidates);
  }
  bool Merge(const RefineTask& task, const List<Candidate>& others, List<Candidate>& candidates) {
    if (!AddAll(others, candidates)) return false;
    Prune(task, LastLevel(), LeastOnTheWay(), candidates.size(), candidates);
    return true;
  }

  bool SweepAll(const RefineTask& refine, const Freedom& freedom, List<Candidate>& candidates) {
    const int level = refine.sweptLevel;
    const int width = planes_.Width(level), height = planes_.Height(level);
    if (width < 1 || height < 1) return true;
    // A pixel more on each side: a match may end up over the border of the region.
    const auto low = [&](double x, int most) {
      return std::clamp(Floor(ToLevel(std::max(x, 0.0), level)) - 1, 0, most - 1);
    };
    const auto high = [&](double x, int most) {
      return std::clamp(Floor(ToLevel(x, level)) + 3, 1, most);
    };
    const SweepTask task = {kernels_,
                            model_,
                            planes_,
                            freedom,
                            level,
                            low(bounds_.left, width),
                            low(bounds_.top, height),
                            high(bounds_.right, width),
                            high(bounds_.bottom, height),
                            refine.anyPolarity,
                            static_cast<float>(kSweepShare * options_.minScore)};
    return Sweep(task, 256 + 8 * static_cast<size_t>(options_.maxCount), candidates);
  }

  // Takes the candidates from the coarsest level down to level 1; a template that has its edges on
  // level 0 alone is climbed there. The sweep's best go first, about as many as matches are wanted:
  // often they come to a score that the others cannot reach, and these need no work.
  bool RefineAll(const RefineTask& task, List<Candidate>& candidates) {
    const size_t first = 2 + static_cast<size_t>(options_.maxCount) * 5 / 4;
    if (candidates.size() <= first) return RefineDown(task, 0, candidates);
    List<Candidate> others;
    if (!others.Reserve(candidates.size())) return false;
    for (size_t i = first; i < candidates.size(); ++i) (void)others.Add(candidates[i]);
    candidates.Shrink(first);
    if (!RefineDown(task, 0, candidates)) return false;
    const double reached = ScoreReachedBy(model_, options_, candidates);
    DropBelow(reached - kMostGainSwept, others);
    if (!RefineDown(task, reached, others)) return false;
    return Merge(task, others, candidates);
  }

  // The same for some of them; others have come to the score `reached`.
  bool RefineDown(const RefineTask& task, double reached, List<Candidate>& candidates) {
    const bool grey = model_.way == Way::kGrey;
    const int first = grey ? task.sweptLevel : std::max(task.sweptLevel - 1, 0);
    for (int level = first; level >= LastLevel(); --level) {
      const bool mayLeave = grey && level == task.sweptLevel && IsBarelySwept(task);
      List<Candidate> left;
      for (Candidate& candidate : candidates) {
        const Candidate before = candidate;
        if (!(grey ? FitByGrey(task, level, candidate) : ClimbByEdges(task, level, candidate))) {
          return false;
        }
        const bool hasLeft = mayLeave && !IsNear(before.pose, candidate.pose, level);
        if (hasLeft && !left.Add(before)) return false;
      }
      if (!AddAll(left, candidates)) return false;
      const size_t most = 48 + 3 * static_cast<size_t>(options_.maxCount);
      Prune(task, level, LeastOnTheWay(), level == first ? 2 * most : most, candidates);
      reached = std::max(reached, ScoreReachedBy(model_, options_, candidates));
      DropBelow(reached - kMostGainAbove, candidates);
    }
    return true;
  }
  // Whether a fit moved and grew the template by little; else it may have left the part that the
  // sweep saw, and the pose before it is followed as well.
  bool IsNear(const Pose& before, const Pose& after, int level) const {
    constexpr double kNear = 1;  // pixels of the level, at the template's farthest point
    const double pixel = 1 << level;
    return std::abs(after.x - before.x) <= kNear * pixel &&
           std::abs(after.y - before.y) <= kNear * pixel &&
           std::abs(after.scale - before.scale) * model_.level[level].radius <= kNear;
  }
  int LastLevel() const {
    const bool hasOne = model_.levels == 1 || model_.level[1].isPooled;
    return hasOne && model_.way == Way::kEdges ? 0 : 1;
  }
  float LeastOnTheWay() const { return static_cast<float>(kLevelShare * options_.minScore); }

  // The list is sorted, the best first.
  static void DropBelow(double score, List<Candidate>& list) {
    while (!list.empty() && list[list.size() - 1].score < score) list.Shrink(list.size() - 1);
  }

  // Fits and rates the candidates at full resolution, best first, until no further one can be among
  // the best.
  bool Finish(const RefineTask& task, List<Candidate>& candidates, Results& results) {
    const bool grey = model_.way == Way::kGrey;
    RefineTask exact = task;
    List<Match> found;
    std::sort(candidates.begin(), candidates.end(), Better);
    for (Candidate& candidate : candidates) {
      if (candidate.score < exact.reached - kMostGain) break;
      Rating rating;
      const Pose& pose = candidate.pose;
      if (!(grey ? FitByGrey(exact, 0, candidate) : FitByEdges(exact, 0, candidate))) return false;
      if (!IsInside(pose)) continue;
      if (!(grey ? RateByGrey(task, pose, rating) : RateByEdges(task, pose, rating))) return false;
      if (rating.score < options_.minScore) continue;
      Match match = {pose.x, pose.y, pose.degrees, pose.scale, rating.score, rating.visible, {}};
      Outline(model_.width, model_.height, pose, match.corners);
      if (!found.Add(match)) return false;
      const auto most = static_cast<size_t>(options_.maxCount);
      if (found.size() < most || match.score < exact.reached) continue;
      if (!TakeBest(model_, options_, found, results)) return false;
      exact.reached = results.size() == most ? results[most - 1].score : 0;
    }
    return TakeBest(model_, options_, found, results);
  }

  bool IsInside(const Pose& pose) const {
    return pose.x >= bounds_.left - 0.5 && pose.x < bounds_.right - 0.5 &&
           pose.y >= bounds_.top - 0.5 && pose.y < bounds_.bottom - 0.5;
  }

  const FinderKernels& kernels_;
  const Model& model_;
  const Picture& picture_;
  const FindOptions& options_;
  Planes planes_;
  Buffer<float> samples_;
  Bounds bounds_ = {};
};

}  // namespace

Status Find(const FinderKernels& kernels, const Model& model, const Picture& picture,
            const FindOptions& options, Results& results) {
  results.Clear();
  const Status status = Check(model, picture, options);
  if (status != Status::kOk) return status;
  Finder finder(kernels, model, picture, options);
  const Status found = finder.Run(results);
  if (found != Status::kOk) results.Clear();
  return found;
}

}  // namespace quillon::finder
