#include "finder/sweep.h"

#include <algorithm>
#include <cmath>

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

// Scores of one angle and scale at every place. Rows have `width` scores and room for more, for
// kernels write whole blocks.
struct ScoreMap {
  int width, height, stride;
  Buffer<uint16_t> scores;
};

// Collects tops, which are places that score at least as high as the eight around them; forgets the
// lower ones when there are too many.
class PeakList {
 public:
  explicit PeakList(uint16_t least) : least_(least) {}
  uint16_t Least() const { return least_; }
  List<Peak>& Peaks() { return peaks_; }

  bool AddTops(const FinderKernels& kernels, const ScoreMap& map, int angle, int scale) {
    for (int y = 0; y < map.height; ++y) {
      const uint16_t* row = &map.scores[static_cast<size_t>(y) * map.stride];
      for (int x = 0;; ++x) {
        x = kernels.NextPeak(row, x, map.width, least_);
        if (x >= map.width) break;
        if (!IsTop(map, x, y)) continue;
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
  // Of equal neighbours the first is the top.
  static bool IsTop(const ScoreMap& map, int x, int y) {
    const auto at = [&](int dx, int dy) -> int {
      const int cx = x + dx, cy = y + dy;
      if (cx < 0 || cy < 0 || cx >= map.width || cy >= map.height) return -1;
      return map.scores[static_cast<size_t>(cy) * map.stride + cx];
    };
    const int score = at(0, 0);
    return at(-1, -1) < score && at(0, -1) < score && at(1, -1) < score && at(-1, 0) < score &&
           at(1, 0) <= score && at(-1, 1) <= score && at(0, 1) <= score && at(1, 1) <= score;
  }

  uint16_t least_;
  List<Peak> peaks_;
};

// ---- by edges -----------------------------------------------------------------------------------

constexpr int kDirections = 16;
constexpr uint8_t kNoAgreement = 8;

// One plane per direction: how far the picture's gradient agrees with it. Around the picture lies a
// margin in which nothing agrees.
class AgreementMaps {
 public:
  bool Open(const SweepTask& task, int level, int reach) {
    const int width = task.planes.Width(level), height = task.planes.Height(level);
    any_ = task.anyPolarity;
    const int planes = any_ ? kDirections / 2 : kDirections;
    margin_ = reach;
    stride_ = width + 2 * margin_ + kSumBlock;
    plane_ = static_cast<size_t>(stride_) * (height + 2 * margin_);
    maps_ = Buffer<uint8_t>(plane_ * planes);
    if (!maps_) return false;
    std::memset(maps_.data(), kNoAgreement, maps_.size());
    const ModelLevel& model = task.model.level[level];
    const int seen = model.isPooled ? level - 1 : level, seenWidth = task.planes.Width(seen);
    if (!task.planes.NeedDirections(seen, 0, task.planes.Height(seen), model.contrast))
      return false;
    Buffer<uint8_t> rows(model.isPooled ? 2 * static_cast<size_t>(seenWidth) : 1);
    if (!rows) return false;
    uint8_t *const upper = rows.data(), *const lower = upper + seenWidth;
    for (int y = 0; y < height; ++y) {
      for (int i = 0; i < planes; ++i) {
        const Direction turn = DirectionOf(i * 360.0 / kDirections);
        const auto agree = [&](int row, uint8_t* out) {
          const Direction8* from =
              task.planes.Directions(seen) + static_cast<ptrdiff_t>(row) * seenWidth;
          task.kernels.AgreementRow(from, Nearest(127 * turn.cosine), Nearest(127 * turn.sine),
                                    any_, out, seenWidth);
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

  // The place of a pixel in the plane of a direction.
  size_t At(int direction, int x, int y) const {
    const int plane = any_ ? direction % (kDirections / 2) : direction;
    return plane * plane_ + static_cast<size_t>(y + margin_) * stride_ + (x + margin_);
  }
  const uint8_t* data() const { return maps_.data(); }
  int Stride() const { return stride_; }

 private:
  Buffer<uint8_t> maps_;
  size_t plane_ = 0;
  int margin_ = 0, stride_ = 0;
  bool any_ = false;
};

int NearestDirection(double p, double q) {
  int best = 0;
  double most = -2;
  for (int i = 0; i < kDirections; ++i) {
    const Direction turn = DirectionOf(i * 360.0 / kDirections);
    const double agreement = p * turn.cosine + q * turn.sine;
    if (agreement > most) most = agreement, best = i;
  }
  return best;
}

constexpr int kSweepPoints = 96;

class EdgeSweep {
 public:
  bool Open(const SweepTask& task, int level) {
    task_ = &task;
    points_ = {task.model.level[level].points.begin(),
               std::min<size_t>(kSweepPoints, task.model.level[level].points.size())};
    const double reach = task.model.level[level].radius * task.freedom.scaleHigh;
    return maps_.Open(task, level, static_cast<int>(reach) + 3);
  }
  // A sum over the points is kNoAgreement for each where directions agree by chance only, and 8
  // more for each where they agree fully: the share is how far the sum lies between these.
  uint16_t ScoreOf(float share) const {
    const int count = static_cast<int>(points_.size());
    return static_cast<uint16_t>(kNoAgreement * count + static_cast<int>(8.0 * count * share));
  }
  float ShareOf(uint16_t score) const {
    const auto count = static_cast<float>(points_.size());
    return (static_cast<float>(score) - kNoAgreement * count) / (8 * count);
  }
  bool Fill(const Pose& pose, ScoreMap& map) {
    const Direction turn = DirectionOf(pose.degrees);
    const int count = static_cast<int>(points_.size());
    const uint8_t* rows[kSweepPoints];
    for (int i = 0; i < count; ++i) {
      const ModelPoint& point = points_[i];
      const double x = pose.scale * (turn.cosine * point.u - turn.sine * point.v);
      const double y = pose.scale * (turn.sine * point.u + turn.cosine * point.v);
      const int direction = NearestDirection(turn.cosine * point.p - turn.sine * point.q,
                                             turn.sine * point.p + turn.cosine * point.q);
      rows[i] =
          maps_.data() + maps_.At(direction, task_->left + Nearest(x), task_->top + Nearest(y));
    }
    for (int y = 0; y < map.height; ++y) {
      task_->kernels.SumRow(rows, count, map.width,
                            &map.scores[static_cast<size_t>(y) * map.stride]);
      for (int i = 0; i < count; ++i) rows[i] += maps_.Stride();
    }
    return true;
  }

 private:
  const SweepTask* task_ = nullptr;
  std::span<const ModelPoint> points_;
  AgreementMaps maps_;
};

// ---- by grey values -----------------------------------------------------------------------------

// A template turned and scaled: what each pixel of the level would show, where the template covers
// it, and to which of its parts the pixel belongs.
struct TurnedTemplate {
  int left, top, width, height;  // around the centre's pixel
  Buffer<float> values;          // below 0: not covered
  Buffer<uint8_t> parts;
};

// The template is correlated in parts, each of which adds no more than its share to the score: what
// covers one of them leaves the score of the others as it is.
constexpr int kSweepParts = 4;

class GreySweep {
 public:
  bool Open(const SweepTask& task, int level) {
    task_ = &task;
    level_ = level;
    width_ = task.planes.Width(level);
    height_ = task.planes.Height(level);
    const double reach = task.model.level[level].radius * task.freedom.scaleHigh;
    margin_ = static_cast<int>(reach) + 3;
    stride_ = width_ + 2 * margin_ + kSumBlock;
    const size_t size = static_cast<size_t>(stride_) * (height_ + 2 * margin_);
    pairs_ = Buffer<uint32_t>(size);
    prefix_ = Buffer<int32_t>(size);
    squarePrefix_ = Buffer<int32_t>(size);
    Buffer<uint8_t> padded(stride_);
    if (!pairs_ || !prefix_ || !squarePrefix_ || !padded) return false;
    // The picture's border is repeated around it: what of a template reaches over the border then
    // adds no contrast of its own, as a black frame would.
    for (int y = 0; y < height_ + 2 * margin_; ++y) {
      const uint8_t* row = task.planes.Row(level, std::clamp(y - margin_, 0, height_ - 1));
      std::memset(padded.data(), row[0], margin_);
      std::memcpy(padded.data() + margin_, row, width_);
      std::memset(padded.data() + margin_ + width_, row[width_ - 1], stride_ - margin_ - width_);
      const size_t at = static_cast<size_t>(y) * stride_;
      task.kernels.PairRow(padded.data(), &pairs_[at], stride_);
      int32_t sum = 0, square = 0;
      for (int x = 0; x < stride_; ++x) {
        prefix_[at + x] = sum;
        squarePrefix_[at + x] = square;
        sum += padded[x];
        square += padded[x] * padded[x];
      }
    }
    return true;
  }
  uint16_t ScoreOf(float share) const { return static_cast<uint16_t>(1000 * share); }
  float ShareOf(uint16_t score) const { return static_cast<float>(score) / 1000; }
  bool Fill(const Pose& pose, ScoreMap& map);

 private:
  bool Turn(const Pose& pose, TurnedTemplate& turned) const;
  bool MakePart(const TurnedTemplate& turned, int number);

  struct Part {
    size_t firstWeight = 0, weights = 0, firstRun = 0, runs = 0;
    double norm = 0;  // of the weights
    int pixels = 0;   // 0: the part is even, or has hardly a pixel, and does not count
    double contrast = 0;
  };

  const SweepTask* task_ = nullptr;
  int level_ = 0, width_ = 0, height_ = 0, margin_ = 0, stride_ = 0;
  Buffer<uint32_t> pairs_;
  Buffer<int32_t> prefix_, squarePrefix_;
  List<FootprintRun> runs_;
  List<WeightPair> weights_;
  Part parts_[kSweepParts];
};

// What a pixel shows is the mean of 4 x 4 samples of the turned template; it is covered where the
// template has at least three quarters of them.
bool GreySweep::Turn(const Pose& pose, TurnedTemplate& turned) const {
  constexpr int kSide = 4, kEnough = kSide * kSide * 3 / 4;
  const Model& model = task_->model;
  const Direction turn = DirectionOf(pose.degrees);
  const int size = 1 << level_;
  const double a = turn.cosine * size / pose.scale, b = turn.sine * size / pose.scale;
  const double centreX = (model.width - 1) / 2.0, centreY = (model.height - 1) / 2.0;
  const double halfWidth =
      pose.scale * (std::abs(turn.cosine) * model.width + std::abs(turn.sine) * model.height) / 2;
  const double halfHeight =
      pose.scale * (std::abs(turn.sine) * model.width + std::abs(turn.cosine) * model.height) / 2;
  const int reachX = static_cast<int>(halfWidth / size) + 1;
  const int reachY = static_cast<int>(halfHeight / size) + 1;
  turned.left = -reachX;
  turned.top = -reachY;
  turned.width = 2 * reachX + 1;
  turned.height = 2 * reachY + 1;
  const size_t area = static_cast<size_t>(turned.width) * turned.height;
  turned.values = Buffer<float>(area);
  turned.parts = Buffer<uint8_t>(area);
  if (!turned.values || !turned.parts) return false;
  // Four in a row of a long template, else quarters.
  const int across = model.width >= 2 * model.height ? 4 : model.height >= 2 * model.width ? 1 : 2;
  const CellGrid grid(model.width, model.height, across, kSweepParts / across);
  float* out = turned.values.data();
  uint8_t* part = turned.parts.data();
  for (int y = -reachY; y <= reachY; ++y) {
    for (int x = -reachX; x <= reachX; ++x) {
      int sum = 0, count = 0;
      for (int i = 0; i < kSide * kSide; ++i) {
        const int column = i % kSide, row = i / kSide;
        // The template's centre lies in the middle of pixel (0, 0).
        const double dx = x + (column + 0.5) / kSide - 0.5;
        const double dy = y + (row + 0.5) / kSide - 0.5;
        const int u = Nearest(centreX + a * dx + b * dy);
        const int v = Nearest(centreY - b * dx + a * dy);
        if (u < 0 || v < 0 || u >= model.width || v >= model.height) continue;
        const size_t at = static_cast<size_t>(v) * model.width + u;
        if (model.mask && model.mask[at] == 0) continue;
        sum += model.pixels[at];
        ++count;
      }
      *out++ = count >= kEnough ? static_cast<float>(sum) / static_cast<float>(count) : -1.0F;
      *part++ = static_cast<uint8_t>(grid.At(a * x + b * y, a * y - b * x));
    }
  }
  return true;
}

// Weights of zero mean, in runs of covered pixels.
bool GreySweep::MakePart(const TurnedTemplate& turned, int number) {
  Part& part = parts_[number];
  part = {weights_.size(), 0, runs_.size(), 0, 0, 0, 0};
  const auto has = [&](size_t at) { return turned.parts[at] == number && turned.values[at] >= 0; };
  double sum = 0, largest = 0;
  int pixels = 0;
  for (size_t i = 0; i < turned.values.size(); ++i) {
    if (has(i)) sum += turned.values[i], ++pixels;
  }
  if (pixels < 4) return true;
  const double mean = sum / pixels;
  for (size_t i = 0; i < turned.values.size(); ++i) {
    if (has(i)) largest = std::max(largest, std::abs(turned.values[i] - mean));
  }
  if (largest < 0.5) return true;
  const double unit = 500 / largest;
  double squares = 0, total = 0;
  for (int y = 0; y < turned.height; ++y) {
    const size_t first = static_cast<size_t>(y) * turned.width;
    const float* row = &turned.values[first];
    for (int x = 0; x < turned.width;) {
      if (!has(first + x)) {
        ++x;
        continue;
      }
      int end = x;
      while (end < turned.width && has(first + end)) ++end;
      const int place = (turned.top + y) * stride_ + turned.left;
      if (!runs_.Add({place + x, place + end})) return false;
      for (; x < end; x += 2) {
        WeightPair pair = {place + x, {0, 0}};
        for (int i = 0; i < 2 && x + i < end; ++i) {
          pair.weight[i] = static_cast<int16_t>(Nearest((row[x + i] - mean) * unit));
          squares += pair.weight[i] * pair.weight[i];
          total += pair.weight[i];
        }
        if (!weights_.Add(pair)) return false;
      }
      x = end;
    }
  }
  // Rounded weights do not add up to 0 exactly, and what is left would be multiplied with the mean
  // of the picture, about half of white: it is taken off, 1 from each of the first weights.
  const int excess = static_cast<int>(total);
  const int step = excess > 0 ? -1 : 1;
  int left = std::abs(excess);
  for (size_t i = part.firstWeight; left > 0 && i < weights_.size(); ++i, --left) {
    weights_[i].weight[0] = static_cast<int16_t>(weights_[i].weight[0] + step);
  }
  part.weights = weights_.size() - part.firstWeight;
  part.runs = runs_.size() - part.firstRun;
  part.norm = std::sqrt(squares);
  part.pixels = pixels;
  part.contrast = std::sqrt(squares * pixels) / unit;
  return true;
}

bool GreySweep::Fill(const Pose& pose, ScoreMap& map) {
  TurnedTemplate turned;
  if (!Turn(pose, turned)) return false;
  runs_.Clear();
  weights_.Clear();
  double contrast = 0;
  for (int i = 0; i < kSweepParts; ++i) {
    if (!MakePart(turned, i)) return false;
    contrast += parts_[i].contrast;
  }
  TemplatePart parts[kSweepParts];
  int count = 0;
  for (const Part& part : parts_) {
    if (part.pixels == 0) continue;
    const auto pixels = static_cast<float>(part.pixels);
    const double most = 1000 * part.contrast / contrast;
    parts[count++] = {.weights = weights_.data() + part.firstWeight,
                      .runs = runs_.data() + part.firstRun,
                      .weightCount = static_cast<int>(part.weights),
                      .runCount = static_cast<int>(part.runs),
                      .factor = static_cast<float>(most / part.norm),
                      .most = static_cast<float>(most),
                      .share = 1 / pixels,
                      .leastVariance = pixels};  // a deviation of one grey value
  }
  std::memset(map.scores.data(), 0, map.scores.size() * sizeof(uint16_t));
  for (int y = 0; y < map.height; ++y) {
    const size_t at = static_cast<size_t>(task_->top + y + margin_) * stride_ +
                      static_cast<size_t>(task_->left + margin_);
    for (int i = 0; i < count; ++i) {
      task_->kernels.CorrelatePart(parts[i], &pairs_[at], &prefix_[at], &squarePrefix_[at],
                                   map.width, &map.scores[static_cast<size_t>(y) * map.stride]);
    }
  }
  return true;
}

// ---- both ---------------------------------------------------------------------------------------

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
  if (!way.Open(task, level)) return false;
  const SweepGrid grid = GridOf(task.model, task.freedom, level);
  ScoreMap map{task.right - task.left, task.bottom - task.top, 0, {}};
  map.stride = map.width + kSumBlock;
  map.scores = Buffer<uint16_t>(static_cast<size_t>(map.stride) * map.height);
  if (!map.scores) return false;
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
  const size_t points = std::min<size_t>(kSweepPoints, model.level[level].points.size());
  return places * grid.angles * grid.scales * static_cast<double>(points);
}

bool Sweep(const SweepTask& task, size_t most, List<Candidate>& candidates) {
  return task.model.way == Way::kEdges ? SweepBy<EdgeSweep>(task, most, candidates)
                                       : SweepBy<GreySweep>(task, most, candidates);
}

}  // namespace quillon::finder
