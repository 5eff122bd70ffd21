#include "finder/sweep.h"

#include <algorithm>

#include "finder/sweep_edges.h"
#include "finder/sweep_grey.h"

namespace quillon::finder {
namespace {

constexpr double kPixelsPerStep = 1.2;
constexpr size_t kPeakRoom = 8192;  // when there are more tops, the lower half is forgotten

struct Peak {
  uint16_t score;
  uint16_t scale;
  int32_t angle;
  int32_t x, y;
};

bool Better(const Peak& a, const Peak& b) {
  if (a.score != b.score) return a.score > b.score;
  if (a.angle != b.angle) return a.angle < b.angle;
  if (a.scale != b.scale) return a.scale < b.scale;
  return a.y != b.y ? a.y < b.y : a.x < b.x;
}

// Collects tops, which are places that score at least as high as the eight around them; forgets the
// lower ones when there are too many.
class PeakList {
 public:
  explicit PeakList(uint16_t least) : least_(least) {}
  uint16_t Least() const { return least_; }
  List<Peak>& Peaks() { return peaks_; }

  bool AddTops(const FinderKernels& kernels, ScoreMap& map, int angle, int scale) {
    map.Frame();
    for (int y = 0; y < map.Height(); ++y) {
      const uint16_t* row = map.Row(y);
      for (int x = 0;; ++x) {
        x = kernels.NextTop(row, map.Stride(), x, map.Width(), least_);
        if (x >= map.Width()) break;
        if (!peaks_.Add({row[x], static_cast<uint16_t>(scale), angle, x, y})) return false;
      }
    }
    if (peaks_.size() > kPeakRoom) {
      std::nth_element(peaks_.begin(), peaks_.begin() + kPeakRoom / 2, peaks_.end(), Better);
      least_ = std::max(least_, peaks_[kPeakRoom / 2].score);
      peaks_.Shrink(kPeakRoom / 2);
    }
    return true;
  }

 private:
  uint16_t least_;
  List<Peak> peaks_;
};

// How far apart two steps of a range are, where one of them is its end and the other its start.
int AngleSteps(const SweepGrid& grid, int a, int b, bool wraps) {
  const int steps = std::abs(a - b);
  return wraps ? std::min(steps, grid.angles - steps) : steps;
}

SweepGrid GridOf(const Model& model, const Freedom& freedom, int level) {
  return {freedom, model.level[level].radius * std::min(1.0, freedom.scaleHigh)};
}

template <class Way>
bool SweepBy(const SweepTask& task, size_t most, List<Candidate>& candidates) {
  const int level = task.level;
  Way way;
  if (!way.Open(task)) return false;
  const SweepGrid grid = GridOf(task.model, task.freedom, level);
  ScoreMap map;
  if (!map.Open(task.right - task.left, task.bottom - task.top)) return false;
  PeakList peaks(way.ScoreOf(task.leastScore));
  for (int scale = 0; scale < grid.scales; ++scale) {
    for (int angle = 0; angle < grid.angles; ++angle) {
      if (!way.Fill(grid.At(angle, scale), map)) return false;
      if (!peaks.AddTops(task.kernels, map, angle, scale)) return false;
    }
  }
  // Of tops at neighbouring poses, which one part makes, the best stands for all.
  List<Peak>& list = peaks.Peaks();
  std::sort(list.begin(), list.end(), Better);
  List<Peak> kept;
  if (!kept.Reserve(most)) return false;
  for (const Peak& peak : list) {
    if (kept.size() == most) break;
    bool isNew = true;
    for (const Peak& other : kept) {
      if (std::abs(peak.x - other.x) <= 1 && std::abs(peak.y - other.y) <= 1 &&
          AngleSteps(grid, peak.angle, other.angle, task.freedom.anyAngle) <= 1 &&
          std::abs(peak.scale - other.scale) <= 1) {
        isNew = false;
        break;
      }
    }
    if (!isNew) continue;
    Pose pose = grid.At(peak.angle, peak.scale);
    pose.x = FromLevel(task.left + peak.x, level);
    pose.y = FromLevel(task.top + peak.y, level);
    if (!kept.Add(peak) || !candidates.Add({pose, way.ShareOf(peak.score)})) return false;
  }
  return true;
}

}  // namespace

SweepGrid::SweepGrid(const Freedom& freedom, double radius) {
  const double apart = kPixelsPerStep / std::max(radius, 2.0);  // radians
  angleLow = freedom.angleLow;
  scaleLow = freedom.scaleLow;
  if (freedom.turn) {
    const double range = freedom.angleHigh - freedom.angleLow;
    const int steps = static_cast<int>(range / (apart * kDegrees)) + 1;
    angleStep = range / steps;
    angles = freedom.anyAngle ? steps : steps + 1;
  }
  if (freedom.scale) {
    scales = 2;
    for (double s = freedom.scaleLow * (1 + apart); s < freedom.scaleHigh; s *= 1 + apart) ++scales;
    // The root by bisection: the system's power functions differ in their last bits.
    double low = 1, high = 4;
    for (int i = 0; i < 60; ++i) {
      const double middle = (low + high) / 2;
      double reached = scaleLow;
      for (int k = 1; k < scales; ++k) reached *= middle;
      (reached < freedom.scaleHigh ? low : high) = middle;
    }
    scaleFactor = low;
  }
}

Pose SweepGrid::At(int angle, int scale) const {
  Pose pose;
  pose.degrees = angleLow + angle * angleStep;
  pose.scale = scaleLow;
  for (int i = 0; i < scale; ++i) pose.scale *= scaleFactor;
  return pose;
}

double EdgeSums(const Model& model, const Planes& planes, const Freedom& freedom, int level) {
  const SweepGrid grid = GridOf(model, freedom, level);
  const double places = static_cast<double>(planes.Width(level)) * planes.Height(level);
  const auto points = static_cast<double>(EdgeSweep::PointsOf(model.level[level]));
  return places * grid.angles * grid.scales * points;
}

bool Sweep(const SweepTask& task, size_t most, List<Candidate>& candidates) {
  return task.model.way == Way::kEdges ? SweepBy<EdgeSweep>(task, most, candidates)
                                       : SweepBy<GreySweep>(task, most, candidates);
}

}  // namespace quillon::finder
