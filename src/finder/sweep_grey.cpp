#include "finder/sweep_grey.h"

#include <algorithm>
#include <cmath>

namespace quillon::finder {

bool GreySweep::Open(const SweepTask& task) {
  task_ = &task;
  const int level = task.level;
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

// What a pixel shows is the mean of 4 x 4 samples of the turned template; it is covered where the
// template has at least three quarters of them.
bool GreySweep::Turn(const Pose& pose, TurnedTemplate& turned) const {
  constexpr int kSide = 4, kEnough = kSide * kSide * 3 / 4;
  const Model& model = task_->model;
  const Direction turn = DirectionOf(pose.degrees);
  const int size = 1 << task_->level;
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
  map.Clear();
  for (int y = 0; y < map.Height(); ++y) {
    const size_t at = static_cast<size_t>(task_->top + y + margin_) * stride_ +
                      static_cast<size_t>(task_->left + margin_);
    for (int i = 0; i < count; ++i) {
      task_->kernels.CorrelatePart(parts[i], &pairs_[at], &prefix_[at], &squarePrefix_[at],
                                   map.Width(), map.Row(y));
    }
  }
  return true;
}

}  // namespace quillon::finder
