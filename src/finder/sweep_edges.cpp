#include "finder/sweep_edges.h"

#include <algorithm>

namespace quillon::finder {
namespace {

constexpr uint8_t kNoAgreement = 8;
constexpr size_t kSweepPoints = 96;

}  // namespace

int AllDirections::Nearest(double p, double q) const {
  int best = 0;
  double most = -2;
  for (int i = 0; i < kEdgeDirections; ++i) {
    const double agreement = p * all_[i].cosine + q * all_[i].sine;
    if (agreement > most) most = agreement, best = i;
  }
  return best;
}

bool AgreementMaps::Open(const SweepTask& task, const AllDirections& directions, int reach) {
  const int level = task.level;
  const int width = task.planes.Width(level), height = task.planes.Height(level);
  any_ = task.anyPolarity;
  const int planes = any_ ? kEdgeDirections / 2 : kEdgeDirections;
  margin_ = reach;
  stride_ = width + 2 * margin_ + kSumBlock;
  plane_ = static_cast<size_t>(stride_) * (height + 2 * margin_);
  maps_ = Buffer<uint8_t>(plane_ * planes);
  if (!maps_) return false;
  std::memset(maps_.data(), kNoAgreement, maps_.size());
  const ModelLevel& model = task.model.level[level];
  const int seen = model.isPooled ? level - 1 : level, seenWidth = task.planes.Width(seen);
  if (!task.planes.NeedDirections(seen, 0, task.planes.Height(seen), model.contrast)) return false;
  Buffer<uint8_t> rows(model.isPooled ? 2 * static_cast<size_t>(seenWidth) : 1);
  if (!rows) return false;
  uint8_t *const upper = rows.data(), *const lower = upper + seenWidth;
  for (int y = 0; y < height; ++y) {
    for (int i = 0; i < planes; ++i) {
      const auto agree = [&](int row, uint8_t* out) {
        const Direction8* from =
            task.planes.Directions(seen) + static_cast<ptrdiff_t>(row) * seenWidth;
        task.kernels.AgreementRow(from, Nearest(127 * directions[i].cosine),
                                  Nearest(127 * directions[i].sine), any_, out, seenWidth);
      };
      uint8_t* out = &maps_[At(i, 0, y)];
      if (!model.isPooled) {
        agree(y, out);
        continue;
      }
      agree(2 * y, upper);
      agree(2 * y + 1, lower);
      task.kernels.PoolRow(upper, lower, out, width);
    }
  }
  return true;
}

size_t EdgeSweep::PointsOf(const ModelLevel& level) {
  return std::min(kSweepPoints, level.points.size());
}

bool EdgeSweep::Open(const SweepTask& task) {
  task_ = &task;
  const ModelLevel& level = task.model.level[task.level];
  points_ = {level.points.begin(), PointsOf(level)};
  const double reach = level.radius * task.freedom.scaleHigh;
  return maps_.Open(task, directions_, static_cast<int>(reach) + 3);
}

// A sum over the points is kNoAgreement for each where directions agree by chance only, and 8 more
// for each where they agree fully: the share is how far the sum lies between these.
uint16_t EdgeSweep::ScoreOf(float share) const {
  const int count = static_cast<int>(points_.size());
  return static_cast<uint16_t>(kNoAgreement * count + static_cast<int>(8.0 * count * share));
}
float EdgeSweep::ShareOf(uint16_t score) const {
  const auto count = static_cast<float>(points_.size());
  return (static_cast<float>(score) - kNoAgreement * count) / (8 * count);
}

bool EdgeSweep::Fill(const Pose& pose, ScoreMap& map) {
  const Direction turn = DirectionOf(pose.degrees);
  const int count = static_cast<int>(points_.size());
  const uint8_t* rows[kSweepPoints];
  for (int i = 0; i < count; ++i) {
    const ModelPoint& point = points_[i];
    const double x = pose.scale * (turn.cosine * point.u - turn.sine * point.v);
    const double y = pose.scale * (turn.sine * point.u + turn.cosine * point.v);
    const int direction = directions_.Nearest(turn.cosine * point.p - turn.sine * point.q,
                                              turn.sine * point.p + turn.cosine * point.q);
    rows[i] = maps_.data() + maps_.At(direction, task_->left + Nearest(x), task_->top + Nearest(y));
  }
  for (int y = 0; y < map.Height(); ++y) {
    task_->kernels.SumRow(rows, count, map.Width(), map.Row(y));
    for (int i = 0; i < count; ++i) rows[i] += maps_.Stride();
  }
  return true;
}

}  // namespace quillon::finder
