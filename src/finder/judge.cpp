#include "finder/judge.h"

#include <algorithm>
#include <cmath>

#include "finder/edge_points.h"
#include "finder/geometry.h"

namespace quillon::finder {
namespace {

constexpr size_t kFew = 40;
// Scores of a template on itself, moved or turned: from kAlike on another place can be mistaken for
// the right one, from kSame on a turn looks the same. Places that merely resemble each other stay
// below both.
constexpr double kAlike = 0.5, kSame = 0.75;
// Reached when turned by 30 degrees, a template looks the same at any angle: straight edges of a
// regular shape would have other directions there.
constexpr double kRound = 0.9;
constexpr int kTurns = 72;  // that are tried
constexpr int kNear = 3;    // pixels of the level; nearer, a template always looks like itself

// Scores of a level of a template on its own picture.
class SelfScore {
 public:
  SelfScore(const ModelLevel& level, const Planes& planes, const Model& model, int l)
      : level_(level),
        directions_(planes.Directions(l)),
        width_(planes.Width(l)),
        height_(planes.Height(l)),
        centreX_(ToLevel((model.width - 1) / 2.0, l)),
        centreY_(ToLevel((model.height - 1) / 2.0, l)) {}

  void Turn(double degrees) {
    const Direction turn = DirectionOf(degrees);
    turned_.Clear();
    for (const ModelPoint& point : level_.points) {
      const double c = turn.cosine, s = turn.sine;
      (void)turned_.Add({Nearest(centreX_ + c * point.u - s * point.v),
                         Nearest(centreY_ + s * point.u + c * point.v),
                         Nearest(127 * (c * point.p - s * point.q)),
                         Nearest(127 * (s * point.p + c * point.q))});
    }
  }
  // The score of the template moved by (dx, dy): over the points that lie in the picture, where
  // those are at least half of all; else 0.
  double At(int dx, int dy) const {
    int sum = 0, inside = 0;
    for (const Point& point : turned_) {
      const int x = point.x + dx, y = point.y + dy;
      if (x < 0 || y < 0 || x >= width_ || y >= height_) continue;
      const Direction8& n = directions_[static_cast<ptrdiff_t>(y) * width_ + x];
      sum += n.x * point.p + n.y * point.q;
      ++inside;
    }
    if (2 * static_cast<size_t>(inside) < turned_.size()) return 0;
    return sum / (127.0 * 127.0 * inside);
  }
  int Width() const { return width_; }
  int Height() const { return height_; }
  bool Reserve() { return turned_.Reserve(level_.points.size()); }

 private:
  struct Point {
    int x, y, p, q;
  };
  const ModelLevel& level_;
  const Direction8* directions_;
  int width_, height_;
  double centreX_, centreY_;
  List<Point> turned_;
};

// The best score over places near the template's own: it may have been taught off its centre.
double BestNear(const SelfScore& score, int reach) {
  double best = 0;
  for (int dy = -reach; dy <= reach; ++dy) {
    for (int dx = -reach; dx <= reach; ++dx) best = std::max(best, score.At(dx, dy));
  }
  return best;
}

// The order of a symmetry: how many turns look the same, 0 for all of them.
int SymmetryOf(const double (&byTurn)[kTurns]) {
  // A top is the highest within 20 degrees to either side; the first is the template as it is.
  constexpr int kReach = 4;
  int tops = 0;
  for (int i = 0; i < kTurns; ++i) {
    bool isTop = byTurn[i] >= kSame;
    for (int k = 1; k <= kReach; ++k) {
      isTop &=
          byTurn[i] >= byTurn[(i + k) % kTurns] && byTurn[i] > byTurn[(i + kTurns - k) % kTurns];
    }
    tops += isTop;
  }
  return tops;
}

void JudgeLevel(SelfScore& score, int level, Model& model) {
  double byTurn[kTurns];
  const int reachX = score.Width() / 2, reachY = score.Height() / 2;
  for (int i = 0; i < kTurns; ++i) {
    score.Turn(i * 360.0 / kTurns);
    byTurn[i] = BestNear(score, 1);
    for (int dy = -reachY; dy <= reachY; ++dy) {
      for (int dx = -reachX; dx <= reachX; ++dx) {
        const bool isNear = std::abs(dx) <= kNear && std::abs(dy) <= kNear;
        // Turned by little and moved by little is not another place.
        if (isNear && std::min(i, kTurns - i) <= 3) continue;
        const double here = score.At(dx, dy);
        if (here > model.likeness) {
          model.likeness = here;
          model.likest = {(model.width - 1) / 2.0 + dx * (1 << level),
                          (model.height - 1) / 2.0 + dy * (1 << level), i * 360.0 / kTurns, 1};
        }
        if (here >= kAlike && !isNear) model.doubts |= kRepeats;
      }
    }
  }
  model.symmetry = SymmetryOf(byTurn);
  if (std::min(byTurn[6], byTurn[kTurns - 6]) >= kRound) model.symmetry = 0;
  if (model.symmetry != 1) model.doubts |= kSymmetric;
  // Along which direction does it stay the same?
  score.Turn(0);
  double most = 0;
  for (int i = 0; i < 16; ++i) {
    const Direction to = DirectionOf(i * 180.0 / 16);
    const double there = std::min(score.At(Nearest(kNear * to.cosine), Nearest(kNear * to.sine)),
                                  score.At(-Nearest(kNear * to.cosine), -Nearest(kNear * to.sine)));
    if (there > most) {
      most = there;
      model.slideDegrees = i * 180.0 / 16;
    }
  }
  if (most >= kSame) model.doubts |= kSlides;
}

}  // namespace

Status Judge(const FinderKernels& kernels, Model& model) {
  // By edges, whichever way is taught: they tell places apart where grey values do.
  const Picture own = {model.pixels.data(), model.width, model.height, model.width};
  Planes planes;
  if (!planes.Open(kernels, own, model.levels)) return Status::kNoMemory;
  ModelLevel made;
  int l = model.levels - 1;
  if (model.level[l].isPooled) --l;
  const ModelLevel* level = &model.level[l];
  if (model.way == Way::kGrey) {
    while (l > 0 && std::min(planes.Width(l), planes.Height(l)) < 12) --l;
    LevelMask mask;
    if (!mask.Open(model)) return Status::kNoMemory;
    for (int i = 0; i < l; ++i) mask.Halve();
    if (!FindEdgePoints(planes, l, model, mask, made)) return Status::kNoMemory;
    if (made.points.size() < kMinEdges) return Status::kOk;
    level = &made;
  } else if (model.level[0].points.size() < kFew) {
    model.doubts |= kFewEdges;
  }
  if (!planes.NeedDirections(l, 0, planes.Height(l), level->contrast)) return Status::kNoMemory;
  SelfScore score(*level, planes, model, l);
  if (!score.Reserve()) return Status::kNoMemory;
  JudgeLevel(score, l, model);
  return Status::kOk;
}

}  // namespace quillon::finder
