#include <algorithm>
#include <cmath>

#include "finder/refine.h"

namespace quillon::finder {
namespace {

constexpr float kVisible = 0.5F;   // a point that agrees less with the picture counts as covered
constexpr int kClimbPoints = 160;  // the strongest; more separate poses no better

bool NeedRows(const RefineTask& task, int level, const Pose& pose, bool directions) {
  const ModelLevel& model = task.model.level[level];
  const double reach = model.radius * pose.scale + 6;
  const double y = ToLevel(pose.y, level);
  const int first = Floor(std::clamp(y - reach, 0.0, 60000.0));
  const int last = Floor(std::clamp(y + reach + 2, 0.0, 60000.0));
  return directions ? task.planes.NeedDirections(level, first, last, model.contrast)
                    : task.planes.NeedGradients(level, first, last);
}

// ---- climbing -----------------------------------------------------------------------------------

int ClimbedPoints(const ModelLevel& model) {
  return static_cast<int>(std::min<size_t>(kClimbPoints, model.points.size()));
}

// How well the points fit at nine places: around a pose's, a pixel of the level apart.
struct NinePlaces {
  int sum[9] = {};
  int Best() const { return static_cast<int>(std::max_element(sum, sum + 9) - sum); }
};

NinePlaces SumNine(const RefineTask& task, int level, const Pose& pose) {
  const ModelLevel& model = task.model.level[level];
  const DirectionPlane directions = {task.planes.Directions(level), task.planes.Width(level),
                                     task.planes.Height(level)};
  const Placement place = PlacementOf(pose, level);
  const PointPlacement around = {static_cast<float>(place.x), static_cast<float>(place.y),
                                 static_cast<float>(place.a), static_cast<float>(place.b)};
  NinePlaces nine;
  task.kernels.SumNinePlaces(model.points.begin(), ClimbedPoints(model), around,
                             static_cast<float>(127 / pose.scale), directions, task.anyPolarity,
                             nine.sum);
  return nine;
}

// The top of a parabola through three values, the middle one of which is the highest.
double ParabolaTop(double before, double at, double after) {
  const double bend = before - 2 * at + after;
  if (!(bend < 0)) return 0;
  return std::clamp(0.5 * (before - after) / bend, -0.5, 0.5);
}

// ---- fitting ------------------------------------------------------------------------------------

struct Gradient {
  double x, y;
};

// The picture's gradient between pixels. False outside of the picture.
bool GradientAt(const Gradient16* gradients, int width, int height, double x, double y,
                Gradient& gradient) {
  if (!(x >= 0 && y >= 0 && x <= width - 1 && y <= height - 1)) return false;
  const int left = std::min(static_cast<int>(x), width - 2);
  const int top = std::min(static_cast<int>(y), height - 2);
  const double fx = x - left, fy = y - top;
  const Gradient16* g = gradients + static_cast<ptrdiff_t>(top) * width + left;
  const double a = (1 - fx) * (1 - fy), b = fx * (1 - fy), c = (1 - fx) * fy, d = fx * fy;
  gradient.x = a * g[0].x + b * g[1].x + c * g[width].x + d * g[width + 1].x;
  gradient.y = a * g[0].y + b * g[1].y + c * g[width].y + d * g[width + 1].y;
  return true;
}

// Over every `step`-th point.
Rating RateAt(const RefineTask& task, int level, int step, const Pose& pose) {
  const ModelLevel& model = task.model.level[level];
  const Placement place = PlacementOf(pose, level);
  const double c = place.a / pose.scale, s = place.b / pose.scale;
  const int width = task.planes.Width(level), height = task.planes.Height(level);
  const Gradient16* gradients = task.planes.Gradients(level);
  const double contrast = model.contrast;
  double sum = 0;
  int seen = 0, count = 0;
  for (size_t i = 0; i < model.points.size(); i += step) {
    const ModelPoint& point = model.points[i];
    ++count;
    Gradient g;
    const double x = place.x + place.a * point.u - place.b * point.v;
    const double y = place.y + place.b * point.u + place.a * point.v;
    if (!GradientAt(gradients, width, height, x, y, g)) continue;
    const double length = std::sqrt(g.x * g.x + g.y * g.y), most = std::max(length, contrast);
    double agreement = g.x * (c * point.p - s * point.q) + g.y * (s * point.p + c * point.q);
    if (task.anyPolarity && length > 0) {
      agreement = (2 * agreement * agreement / length - length) / most;
    } else {
      agreement /= most;
    }
    sum += agreement;
    seen += agreement >= kVisible;
  }
  return {sum / count, static_cast<double>(seen) / count};
}

// Where the picture's edge lies along a point's direction, at most `reach` pixels away; how clear
// it is. False where there is none.
bool EdgeOffset(const RefineTask& task, const Gradient16* gradients, int width, int height,
                double x, double y, double dx, double dy, int reach, double least, double& offset) {
  constexpr int kMostReach = 3;
  double along[2 * kMostReach + 1];
  int best = -1;
  for (int k = -reach; k <= reach; ++k) {
    Gradient g;
    if (!GradientAt(gradients, width, height, x + k * dx, y + k * dy, g)) return false;
    double value = g.x * dx + g.y * dy;
    if (task.anyPolarity) value = std::abs(value);
    along[k + reach] = value;
    if (best < 0 || value > along[best]) best = k + reach;
  }
  if (best == 0 || best == 2 * reach || along[best] < least) return false;
  offset = best - reach + ParabolaTop(along[best - 1], along[best], along[best + 1]);
  return true;
}

// One step of least squares: the distances of edges along their directions, explained by a small
// movement, turn and change of scale. Edges `far` away do not count; `spread` becomes the mean
// distance of those that do. False when the fit is over: the pose has come to rest, or too few
// edges are near to solve for it.
bool FitStep(const RefineTask& task, int level, int step, int reach, double far, double& spread,
             Pose& pose) {
  const ModelLevel& model = task.model.level[level];
  const Placement place = PlacementOf(pose, level);
  const double c = place.a / pose.scale, s = place.b / pose.scale;
  const int width = task.planes.Width(level), height = task.planes.Height(level);
  const Gradient16* gradients = task.planes.Gradients(level);
  double a[4][4] = {}, b[4] = {}, distances = 0, weights = 0;
  int used = 0;
  const double radius = std::max(1.0, model.radius * pose.scale);
  for (size_t i = 0; i < model.points.size(); i += step) {
    const ModelPoint& point = model.points[i];
    const double u = place.a * point.u - place.b * point.v,
                 v = place.b * point.u + place.a * point.v;
    const double dx = c * point.p - s * point.q, dy = s * point.p + c * point.q;
    double offset;
    if (!EdgeOffset(task, gradients, width, height, place.x + u, place.y + v, dx, dy, reach,
                    model.contrast / 2, offset)) {
      continue;
    }
    if (std::abs(offset) > far) continue;
    // The last two in pixels at the farthest point, so that all four are of a size.
    const double terms[4] = {dx, dy, (u * dy - v * dx) / radius, (u * dx + v * dy) / radius};
    const double near = 1 - offset * offset / (far * far), weight = near * near;
    distances += weight * std::abs(offset);
    weights += weight;
    for (int k = 0; k < 4; ++k) {
      for (int j = 0; j <= k; ++j) a[k][j] += weight * terms[k] * terms[j];
      b[k] += weight * terms[k] * offset;
    }
    ++used;
  }
  if (used < 6) return false;
  spread = distances / weights;
  for (int i = 0; i < 4; ++i) {
    for (int j = i + 1; j < 4; ++j) a[i][j] = a[j][i];
    // Damping: where no edge fixes a term - a straight line slides along itself - the equations
    // would have no solution; so little more on the diagonal makes that term's step 0.
    a[i][i] += 1e-3 * used;
  }
  const bool fixed[4] = {false, false, !task.freedom.turn, !task.freedom.scale};
  for (int i = 0; i < 4; ++i) {
    if (!fixed[i]) continue;
    for (int j = 0; j < 4; ++j) a[i][j] = a[j][i] = 0;
    a[i][i] = 1;
    b[i] = 0;
  }
  if (!Solve(a, b)) return false;
  const double longest = std::max({std::abs(b[0]), std::abs(b[1]), std::abs(b[2]), std::abs(b[3])});
  const double shorten = longest > 2 ? 2 / longest : 1;
  const double pixel = 1 << level;
  pose.x += shorten * b[0] * pixel;
  pose.y += shorten * b[1] * pixel;
  pose.degrees += shorten * b[2] / radius * kDegrees;
  pose.scale *= 1 + shorten * b[3] / radius;
  task.freedom.Clamp(pose);
  return longest > 1e-3;
}

}  // namespace

bool ClimbByEdges(const RefineTask& task, int level, Candidate& candidate) {
  const ModelLevel& model = task.model.level[level];
  Pose pose = candidate.pose;
  if (!NeedRows(task, level, pose, true)) return false;
  const double apart =
      0.8 / std::max(2.0, static_cast<double>(model.radius) * pose.scale);  // radians
  const int turns = task.freedom.turn ? 1 : 0, scales = task.freedom.scale ? 1 : 0;
  int best = 0, sums[3][3] = {};
  double moveX = 0, moveY = 0;
  for (int round = 0; round < 6; ++round) {
    NinePlaces nine[3][3];
    int bestScale = 0, bestTurn = 0, bestPlace = 4;
    best = INT32_MIN;
    for (int k = -scales; k <= scales; ++k) {
      for (int i = -turns; i <= turns; ++i) {
        NinePlaces& here = nine[k + 1][i + 1];
        here = SumNine(
            task, level,
            {pose.x, pose.y, pose.degrees + i * apart * kDegrees, pose.scale * (1 + k * apart)});
        const int place = here.Best();
        // Of equal scores the pose that is there wins: else the climb could walk in a circle.
        const bool stays = k == 0 && i == 0 && here.sum[4] == here.sum[place];
        if (here.sum[place] > best || (stays && here.sum[place] == best)) {
          best = here.sum[place];
          bestScale = k, bestTurn = i, bestPlace = stays ? 4 : place;
        }
      }
    }
    const int column = bestPlace % 3 - 1, row = bestPlace / 3 - 1;
    pose.x += column * (1 << level);
    pose.y += row * (1 << level);
    pose.degrees += bestTurn * apart * kDegrees;
    pose.scale *= 1 + bestScale * apart;
    if (bestPlace == 4 && bestTurn == 0 && bestScale == 0) {
      const NinePlaces& here = nine[1][1];
      moveX = ParabolaTop(here.sum[3], here.sum[4], here.sum[5]);
      moveY = ParabolaTop(here.sum[1], here.sum[4], here.sum[7]);
      for (int k = 0; k < 3; ++k) {
        for (int i = 0; i < 3; ++i) sums[k][i] = nine[k][i].sum[4];
      }
      if (turns != 0)
        pose.degrees += ParabolaTop(sums[1][0], sums[1][1], sums[1][2]) * apart * kDegrees;
      if (scales != 0) pose.scale *= 1 + ParabolaTop(sums[0][1], sums[1][1], sums[2][1]) * apart;
      break;
    }
    if (!NeedRows(task, level, pose, true)) return false;
  }
  pose.x += moveX * (1 << level);
  pose.y += moveY * (1 << level);
  task.freedom.Clamp(pose);
  candidate.pose = pose;
  candidate.score =
      static_cast<float>(best) / (127.0F * 127.0F * static_cast<float>(ClimbedPoints(model)));
  return true;
}

bool FitByEdges(const RefineTask& task, int level, Candidate& candidate) {
  if (!NeedRows(task, level, candidate.pose, false)) return false;
  if (task.planes.Width(level) < 3 || task.planes.Height(level) < 3) return true;
  constexpr struct {
    int step, reach;
    double far;
  } kSteps[] = {{3, 3, 2.5}, {3, 2, 1.6}, {1, 2, 1.2}, {1, 2, 1.0}};
  constexpr int kMostSteps = 12, kLastStep = 3;  // which is taken again until the pose rests
  // By how much the score grows at the most after the second step, and after the fourth: what would
  // still not be among the best is left as it is. Of 1200 fits to photographs that ended above 0.8,
  // 99 % grew less. After the first step: by as many times its growth, and a little more; of 1400
  // such fits that the later limits keep, one would have grown more.
  constexpr double kMostGainThen = 0.2, kMostGainLast = 0.05;
  constexpr double kMostGrowths = 4, kMostGainFirst = 0.15;
  // Edges that run on into those of a part beside this one do not count once the others agree
  // better; by as much the score may be lower where it belongs.
  constexpr double kSpreads = 4, kLeastFar = 0.3, kMostLoss = 0.02;
  Pose pose = candidate.pose;
  const double before = RateAt(task, level, 3, pose).score;
  candidate.score = static_cast<float>(before);
  if (before < 0.4 * task.least) return true;
  double spread = 0;
  for (int i = 0; i < kMostSteps; ++i) {
    const auto& [step, reach, far] = kSteps[std::min(i, kLastStep)];
    const double counts = spread > 0 ? std::clamp(kSpreads * spread, kLeastFar, far) : far;
    const bool goesOn = FitStep(task, level, step, reach, counts, spread, pose);
    if (!NeedRows(task, level, pose, false)) return false;
    const bool isCoarse = step > 1;
    if (!isCoarse && !goesOn) break;
    if (i == 0) {
      const double now = RateAt(task, level, 3, pose).score;
      const double growth = std::max(now - before, 0.0);
      if (now + kMostGrowths * growth + kMostGainFirst < task.reached) return true;
    }
    if (i == 1 || i == kLastStep) {
      const double worth =
          std::max(task.least, task.reached - (isCoarse ? kMostGainThen : kMostGainLast));
      if (RateAt(task, level, 3, pose).score < worth) return true;
    }
  }
  const double after = RateAt(task, level, 3, pose).score;
  if (after >= before - kMostLoss) {
    candidate.pose = pose;
    candidate.score = static_cast<float>(after);
  }
  return true;
}

bool RateByEdges(const RefineTask& task, const Pose& pose, Rating& rating) {
  if (!NeedRows(task, 0, pose, false)) return false;
  rating = RateAt(task, 0, 1, pose);
  return true;
}

}  // namespace quillon::finder
