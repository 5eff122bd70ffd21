#include "ncc/fit.h"

#include <algorithm>
#include <cmath>

#include "core/length.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

constexpr int kTaps = 4;                // of cubic interpolation: pixels -1 ... 2
constexpr int kBefore = 1, kAfter = 2;  // of the border
constexpr int kArrays = 4 + 2 * kTaps;  // of floats along a row
constexpr int kEnough = 16;             // pixels that a fit needs

int WholeLanes(int count) { return (count + kFitLanes - 1) / kFitLanes * kFitLanes; }

// Catmull and Rom's weights of the pixels at -1, 0, 1 and 2 for a place f behind pixel 0, and how
// they change with f.
void CubicWeights(double f, float* weight, float* slope) {
  weight[0] = static_cast<float>(0.5 * f * (f * (2 - f) - 1));
  weight[1] = static_cast<float>(0.5 * (f * f * (3 * f - 5) + 2));
  weight[2] = static_cast<float>(0.5 * f * (f * (4 - 3 * f) + 1));
  weight[3] = static_cast<float>(0.5 * f * f * (f - 1));
  slope[0] = static_cast<float>(0.5 * (f * (4 - 3 * f) - 1));
  slope[1] = static_cast<float>(0.5 * f * (9 * f - 10));
  slope[2] = static_cast<float>(0.5 * (f * (8 - 9 * f) + 1));
  slope[3] = static_cast<float>(0.5 * f * (3 * f - 2));
}

// The columns first ... last - 1 of [0, end) where low <= start + step x <= high.
void Intersect(double start, double step, double low, double high, int& first, int& last) {
  constexpr double kLevel = 1e-12;
  if (std::abs(step) < kLevel) {
    if (start < low || start > high) last = first;
    return;
  }
  // Most stretches lie between the limits, and clear of them: no need to divide.
  constexpr double kClear = 1e-3;
  const double one = start + step * first, other = start + step * (last - 1);
  if (std::min(one, other) > low + kClear && std::max(one, other) < high - kClear) return;
  double from = (low - start) / step, to = (high - start) / step;
  if (from > to) std::swap(from, to);
  // Between `first` and `last` nothing is negative, and cutting fractions off rounds down.
  if (from > first) {
    first = from < last ? static_cast<int>(from) + (from > static_cast<int>(from)) : last;
  }
  if (to < last - 1) last = to < first ? first : static_cast<int>(to) + 1;
}

}  // namespace

// ---- the template -------------------------------------------------------------------------------

bool PoseFit::Open(const Kernels& kernels, const NccLevel& pattern, const NccMask* mask,
                   const FitFreedom& freedom) {
  width_ = pattern.width;
  height_ = pattern.height;
  planes_ = pattern.planes;
  freedom_ = freedom;
  if (width_ >= 2 && height_ >= 2 &&
      (!PrepareWeights(mask) ||
       !(freedom.moveOnly ? PrepareSmooth(pattern) : PrepareCells(kernels, pattern)))) {
    return false;
  }
  int64_t cells = static_cast<int64_t>(width_ - 1) * (height_ - 1);
  if (mask) cells = std::count(weights_.begin(), weights_.end(), 1.0f);
  coversTemplate_ = 2 * planes_ * cells > int64_t{pattern.count};
  kernels_ = &kernels;
  return true;
}

// A cell takes part when its four pixels do.
bool PoseFit::PrepareWeights(const NccMask* mask) {
  if (!mask) return true;
  weights_ = Buffer<float>(static_cast<size_t>(width_) * height_);
  if (!weights_) return false;
  float* next = weights_.data();
  for (int y = 0; y < height_; ++y) {
    const uint8_t *upper = mask->rows[y], *lower = mask->rows[std::min(y + 1, height_ - 1)];
    for (int x = 0; x < width_; ++x) {
      const int right = std::min(x + 1, width_ - 1);
      *next++ = (upper[x] | upper[right] | lower[x] | lower[right]) == 0 ? 1.0f : 0.0f;
    }
  }
  return true;
}

// A cell for every pixel: those of the last column and row repeat it.
bool PoseFit::PrepareCells(const Kernels& kernels, const NccLevel& pattern) {
  cells_ = Buffer<uint32_t>(static_cast<size_t>(planes_) * width_ * height_);
  if (!cells_) return false;
  uint32_t* next = cells_.data();
  for (int plane = 0; plane < planes_; ++plane) {
    for (int y = 0; y < height_; ++y, next += width_) {
      kernels.fit.PackCells(pattern.Plane(plane)[y],
                            pattern.Plane(plane)[std::min(y + 1, height_ - 1)], width_, next);
    }
  }
  return true;
}

// The pixels as numbers, within a border that repeats the outermost ones.
bool PoseFit::PrepareSmooth(const NccLevel& pattern) {
  smoothStride_ = WholeLanes(width_ + kBefore + kAfter) + kFitLanes;
  const int rows = height_ + kBefore + kAfter;
  smooth_ = Buffer<float>(static_cast<size_t>(planes_) * rows * smoothStride_);
  if (!smooth_) return false;
  float* next = smooth_.data();
  for (int plane = 0; plane < planes_; ++plane) {
    for (int y = 0; y < rows; ++y) {
      const uint8_t* from = pattern.Plane(plane)[std::clamp(y - kBefore, 0, height_ - 1)];
      std::fill_n(next, kBefore, from[0]);
      std::copy_n(from, width_, next + kBefore);
      std::fill(next + kBefore + width_, next + smoothStride_, from[width_ - 1]);
      next += smoothStride_;
    }
  }
  return true;
}

// ---- sums ---------------------------------------------------------------------------------------

bool PoseFit::Reserve(int width) {
  const int room = WholeLanes(width);
  if (room > room_) {
    samples_ = Buffer<float>(kArrays * static_cast<size_t>(room));
    scratch_ = Buffer<uint32_t>(static_cast<size_t>(room));
    room_ = samples_ && scratch_ ? room : 0;
    weighedAlike_ = -1;
    if (room_ == 0) return false;
  }
  float* const at = samples_.data();
  row_ = {at, at + room_, at + 2 * room_, at + 3 * room_, scratch_.data()};
  for (int i = 0; i < kTaps; ++i) {
    filteredValues_[i] = at + (4 + 2 * i) * room_;
    filteredSlopes_[i] = at + (5 + 2 * i) * room_;
  }
  return true;
}

// Moves what has been added up in single precision to the sums in double precision. Floats stay
// exact enough only for a few image rows, so this happens every kMostAdded pixels.
void PoseFit::Flush(Moments& m) {
  const int terms = freedom_.moveOnly ? kTurn : freedom_.scale ? kFitTerms : kScale;
  for (int i = 0; i <= kFitTerms; i = i + 1 == terms ? kImage : i + 1) {
    for (int j = i; j <= kFitTerms; j = j + 1 == terms ? kImage : j + 1) {
      for (float& sum : sums_.sums[i][j]) {
        m.sums[i][j] += sum;
        sum = 0;
      }
      m.sums[j][i] = m.sums[i][j];
    }
  }
  pixelsAdded_ = 0;
}

// Samples the template along an image row, for a pose that is neither turned nor scaled. All pixels
// of the row then lie equally far between two pixels of the template, so the interpolation weights
// of the first pixel serve them all.
void PoseFit::SampleMoved(int plane, const FitLine& line, int count) {
  const FitKernels& kernels = kernels_->fit;
  const int column = std::clamp(static_cast<int>(line.u), 0, width_ - 1);
  const int row = std::clamp(static_cast<int>(line.v), 0, height_ - 1);
  float weight[kTaps], slope[kTaps];
  CubicWeights(line.u - column, weight, slope);
  const int rows = height_ + kBefore + kAfter;
  const float *values[kTaps], *slopes[kTaps];
  for (int i = 0; i < kTaps; ++i) {
    const int from = plane * rows + row + i, slot = from % kTaps;
    if (filteredRows_[slot] != from) {
      kernels.FilterRow(smooth_.data() + static_cast<ptrdiff_t>(from) * smoothStride_ + column,
                        weight, slope, count, filteredValues_[slot], filteredSlopes_[slot]);
      filteredRows_[slot] = from;
    }
    values[i] = filteredValues_[slot];
    slopes[i] = filteredSlopes_[slot];
  }
  CubicWeights(line.v - row, weight, slope);
  kernels.FilterColumns(values, slopes, weight, slope, count, row_);
  const float* weights =
      weights_ ? weights_.data() + static_cast<ptrdiff_t>(row) * width_ + column : nullptr;
  if (!weights && weighedAlike_ == count) return;
  for (int x = 0; x < count; ++x) row_.weight[x] = weights ? weights[x] : 1.0f;
  for (int x = count; x < WholeLanes(count); ++x) row_.weight[x] = 0;
  weighedAlike_ = count;
}

// A stretch of an image row with one plane of the template.
void PoseFit::AddStretch(const FitCells& cells, int plane, const uint8_t* pixels,
                         const FitLine& line, int count, Moments& m) {
  constexpr int kMostAdded = 1024;  // pixels, spread over kFitLanes float sums: 64 in each
  if (pixelsAdded_ > 0 && pixelsAdded_ + count > kMostAdded) Flush(m);
  pixelsAdded_ += count;
  if (freedom_.moveOnly) {
    SampleMoved(plane, line, count);
    kernels_->fit.AddMoved(row_, pixels, count, sums_);
  } else {
    kernels_->fit.AddLine(cells, line, pixels, count, freedom_.scale, row_, sums_);
  }
}

PoseFit::Moments PoseFit::Measure(const Patch& patch, const Pose& pose) {
  Moments m = {};
  const double c = std::cos(pose.degrees * kRadians) / pose.scale;
  const double s = std::sin(pose.degrees * kRadians) / pose.scale;
  const double middleU = (width_ - 1) * 0.5, middleV = (height_ - 1) * 0.5;
  const double fromX = patch.Left() + 0.5 - pose.x;
  for (int plane = 0; plane < planes_; ++plane) {
    const FitCells cells = {
        cells_ ? cells_.data() + static_cast<ptrdiff_t>(plane) * width_ * height_ : nullptr,
        weights_ ? weights_.data() : nullptr, width_, height_};
    std::fill_n(filteredRows_, kTaps, -1);
    for (int y = 0; y < patch.Height(); ++y) {
      const double fromY = patch.Top() + y + 0.5 - pose.y;
      const double u = fromX * c + fromY * s + middleU, v = fromY * c - fromX * s + middleV;
      int first = 0, last = patch.Width();
      Intersect(u, c, 0, width_ - 1, first, last);
      Intersect(v, -s, 0, height_ - 1, first, last);
      const int count = last - first;
      if (count <= 0) continue;
      const FitLine line = {u + first * c, v - first * s, c, -s};
      AddStretch(cells, plane, patch.Pixels(plane, y) + first, line, count, m);
    }
  }
  Flush(m);
  return m;
}

// ---- steps --------------------------------------------------------------------------------------

double PoseFit::Score(const Moments& m) const {
  const double n = m.sums[kOffset][kOffset];
  if (n < std::min(kEnough, (width_ - 1) * (height_ - 1) / 2)) return -1;
  const double sumT = m.sums[kOffset][kGain], sumI = m.sums[kOffset][kImage];
  const double devT = m.sums[kGain][kGain] - sumT * sumT / n;
  const double devI = m.sums[kImage][kImage] - sumI * sumI / n;
  constexpr double kFlat = 1e-3;
  if (!(devT > kFlat * n) || !(devI > kFlat * n)) return -1;
  return (m.sums[kGain][kImage] - sumT * sumI / n) / std::sqrt(devT * devI);
}

// Solves for the active terms; the others are 0. False when they cannot be told apart.
bool PoseFit::Solve(const Moments& m, double* solution) const {
  double a[kFitTerms][kFitTerms + 1];
  int term[kFitTerms], size = 0;
  for (int i = 0; i < kFitTerms; ++i) {
    solution[i] = 0;
    if (active_[i]) term[size++] = i;
  }
  for (int i = 0; i < size; ++i) {
    for (int j = 0; j < size; ++j) a[i][j] = m.sums[term[i]][term[j]];
    a[i][size] = m.sums[term[i]][kImage];
  }
  // Symmetric and positive: no need to exchange rows.
  for (int i = 0; i < size; ++i) {
    constexpr double kSingular = 1e-6;
    if (!(a[i][i] > kSingular * m.sums[term[i]][term[i]])) return false;
    for (int k = i + 1; k < size; ++k) {
      const double factor = a[k][i] / a[i][i];
      for (int j = i; j <= size; ++j) a[k][j] -= factor * a[i][j];
    }
  }
  for (int i = size - 1; i >= 0; --i) {
    double sum = a[i][size];
    for (int j = i + 1; j < size; ++j) sum -= a[i][j] * solution[term[j]];
    solution[term[i]] = sum / a[i][i];
  }
  return true;
}

bool PoseFit::MoveInto(const Patch& patch, Pose& pose) const {
  const Extent size = {static_cast<double>(width_), static_cast<double>(height_)};
  return FitInside(patch.Image(), size, freedom_.scale ? freedom_.scaleMin : pose.scale, pose);
}

// Moves the pose, no point by more than `longest` pixels; returns by how many, 0 when it cannot.
double PoseFit::Step(const Patch& patch, const Moments& m, double longest, Pose& pose) {
  double solution[kFitTerms];
  if (!Solve(m, solution) || !(solution[kGain] > 0)) return 0;
  const double radius = 0.5 * Length(width_, height_);
  const double gain = solution[kGain];
  double change[kFitTerms];
  for (int i = kU; i < kFitTerms; ++i) change[i] = solution[i] / gain;
  const double moved = pose.scale * (Length(change[kU], change[kV]) +
                                     radius * Length(change[kTurn], change[kScale]));
  if (!std::isfinite(moved)) return 0;
  const double shorten = moved > longest ? longest / moved : 1;
  for (int i = kU; i < kFitTerms; ++i) change[i] *= shorten;
  // T(u + change) is the template moved the other way.
  const double c = pose.scale * std::cos(pose.degrees * kRadians);
  const double s = pose.scale * std::sin(pose.degrees * kRadians);
  pose.x -= change[kU] * c - change[kV] * s;
  pose.y -= change[kU] * s + change[kV] * c;
  Move(kTurn, change[kTurn] / kRadians, freedom_.degreesMin, freedom_.degreesMax, pose.degrees);
  Move(kScale, change[kScale] * pose.scale, freedom_.scaleMin, freedom_.scaleMax, pose.scale);
  return MoveInto(patch, pose) ? moved * shorten : 0;
}

// What reaches its bound stays there, and the others are fitted without it.
void PoseFit::Move(FitTerm term, double change, double low, double high, double& value) {
  if (!active_[term]) return;
  value += change;
  if (value >= low && value <= high) return;
  value = std::clamp(value, low, high);
  active_[term] = false;
}

bool PoseFit::Run(const Patch& patch, Pose& pose, double& score) {
  constexpr int kIterations = 8;
  constexpr double kLongest = 2.0, kStill = 0.003;  // pixels
  score = -1;
  if (width_ < 2 || height_ < 2) return true;
  if (!MoveInto(patch, pose)) return true;
  if (!Reserve(patch.Width())) return false;
  std::fill_n(active_, kFitTerms, true);
  active_[kTurn] = freedom_.turn;
  active_[kScale] = freedom_.scale;
  Moments moments = Measure(patch, pose);
  score = Score(moments);
  bool improved = false;
  double longest = kLongest;
  for (int i = 0; i < kIterations; ++i) {
    Pose next = pose;
    bool active[kFitTerms];
    std::copy_n(active_, kFitTerms, active);
    const double moved = Step(patch, moments, longest, next);
    if (!(moved > 0)) break;
    const Moments nextMoments = Measure(patch, next);
    const double nextScore = Score(nextMoments);
    if (nextScore > score) {
      improved = true;
      moments = nextMoments;
      pose = next;
      score = nextScore;
    } else if (!improved) {
      longest = moved * 0.5;  // the very first step is too long
      std::copy_n(active, kFitTerms, active_);
    } else {
      break;
    }
    if (moved < kStill) break;
  }
  return true;
}

}  // namespace quillon
