#include "ncc/climb.h"

#include <algorithm>
#include <cmath>

#include "simd/kernels.h"

namespace quillon {
namespace {

bool TakesPart(const NccMask* mask, int x, int y) { return !mask || mask->rows[y][x] == 0; }

}  // namespace

// ---- the template -------------------------------------------------------------------------------

bool PoseClimb::Open(const Kernels& kernels, const NccLevel& pattern, const NccMask* mask,
                     const CellReach& reach) {
  kernels_ = &kernels;
  reach_ = reach;
  width_ = pattern.width;
  height_ = pattern.height;
  planes_ = pattern.planes;
  const bool turns = reach.degrees > 0, scales = reach.scale > 0;
  changes_[2] = turns ? kTurned : kScaled;
  changes_[3] = turns ? kScaled : kTurned;
  factorCount_ = 3 + turns + scales;
  if (!Place(mask)) return false;
  FillFactors(pattern, mask);
  InvertSlopes();
  return true;
}

// Lists the pixels of the template that take part, by their distance from its centre.
bool PoseClimb::Place(const NccMask* mask) {
  count_ = 0;
  for (int y = 0; y < height_; ++y) {
    for (int x = 0; x < width_; ++x) count_ += TakesPart(mask, x, y);
  }
  stride_ = (count_ + kFitLanes - 1) / kFitLanes * kFitLanes;
  points_ = Buffer<float>::Zeroed(3 * static_cast<size_t>(stride_));
  factors_ = Buffer<float>::Zeroed(static_cast<size_t>(planes_) * factorCount_ * stride_);
  if (!points_ || !factors_) return false;
  std::fill_n(points_.data() + 2 * static_cast<ptrdiff_t>(stride_), count_, 1.0f);
  int i = 0;
  for (int y = 0; y < height_; ++y) {
    for (int x = 0; x < width_; ++x) {
      if (!TakesPart(mask, x, y)) continue;
      points_[i] = static_cast<float>(x + 0.5 - width_ * 0.5);
      points_[stride_ + i++] = static_cast<float>(y + 0.5 - height_ * 0.5);
    }
  }
  return true;
}

// The pattern, and what small changes of the pose add to it, from differences of neighbours that
// take part.
void PoseClimb::FillFactors(const NccLevel& pattern, const NccMask* mask) {
  // Which neighbours there are: bits, one for each.
  enum { kLeft = 1, kRight = 2, kUp = 4, kDown = 8 };
  const auto neighbours = [&](int x, int y) {
    int all =
        (x > 0) * kLeft | (x < width_ - 1) * kRight | (y > 0) * kUp | (y < height_ - 1) * kDown;
    if (!mask) return all;
    if (all & kLeft && !TakesPart(mask, x - 1, y)) all &= ~kLeft;
    if (all & kRight && !TakesPart(mask, x + 1, y)) all &= ~kRight;
    if (all & kUp && !TakesPart(mask, x, y - 1)) all &= ~kUp;
    if (all & kDown && !TakesPart(mask, x, y + 1)) all &= ~kDown;
    return all;
  };
  const auto slope = [](int behind, int ahead, bool both) {
    return static_cast<float>(ahead - behind) * (both ? 0.5f : 1.0f);
  };
  for (int plane = 0; plane < planes_; ++plane) {
    const uint8_t* const* rows = pattern.Plane(plane);
    float* const factors = Factor(plane, 0);
    int i = 0;
    for (int y = 0; y < height_; ++y) {
      const uint8_t* row = rows[y];
      const uint8_t *above = rows[std::max(y - 1, 0)], *below = rows[std::min(y + 1, height_ - 1)];
      for (int x = 0; x < width_; ++x) {
        if (!TakesPart(mask, x, y)) continue;
        const int has = neighbours(x, y);
        const bool left = has & kLeft, right = has & kRight, up = has & kUp, down = has & kDown;
        const float du = slope(row[x - left], row[x + right], left && right);
        const float dv = slope(up ? above[x] : row[x], down ? below[x] : row[x], up && down);
        const float u = points_[i], v = points_[stride_ + i];
        const float slopes[kChanges] = {du, dv, du * v - dv * u, -(du * u + dv * v)};
        factors[i] = static_cast<float>(row[x]) - 128.0f;
        for (int k = 1; k < factorCount_; ++k) {
          factors[k * stride_ + i] = slopes[changes_[k - 1]];
        }
        ++i;
      }
    }
  }
}

// Adds up a plane's factors and their products.
void PoseClimb::AddFactors(int plane, double (&products)[kTerms][kTerms]) {
  // All are whole quarters, and their sums exact in any order, while the sum of n squares stays
  // below 2^53 sixteenths.
  const double largest = 255 * 0.5 * (width_ + height_);
  if (largest * largest * planes_ * count_ < std::ldexp(1.0, 53 - 4)) {
    const auto sum = kernels_->fit.ExactProduct;
    for (int j = 0; j < factorCount_; ++j) {
      const float* const factor = Factor(plane, j);
      sums_[j] += sum(factor, Ones(), count_);
      for (int k = 0; k <= j; ++k) products[j][k] += sum(factor, Factor(plane, k), count_);
    }
    return;
  }
  const float* const first = Factor(plane, 0);
  for (int i = 0; i < count_; ++i) {
    for (int j = 0; j < factorCount_; ++j) {
      const double term = first[j * stride_ + i];
      sums_[j] += term;
      for (int k = 0; k <= j; ++k) products[j][k] += term * first[k * stride_ + i];
    }
  }
}

// The matrix that makes changes of an image's products with pattern and slopes J: (J'J)^-1 J', of
// slopes without what gain and offset explain. A change that others amount to already is left out.
void PoseClimb::InvertSlopes() {
  double products[kTerms][kTerms] = {};
  std::fill_n(sums_, kTerms, 0.0);
  for (int plane = 0; plane < planes_; ++plane) AddFactors(plane, products);
  const double n = static_cast<double>(planes_) * count_;
  for (int j = 0; j < kTerms; ++j) {
    for (int k = 0; k <= j; ++k) {
      products[j][k] -= sums_[j] * sums_[k] / n;
      products[k][j] = products[j][k];
    }
  }
  const double deviation = products[0][0];
  constexpr double kFlat = 0.25;  // whole numbers that are not all equal deviate by more
  norm_ = deviation > kFlat ? std::sqrt(deviation) : 0;
  if (!(norm_ > 0)) return;

  // Gauss and Jordan's inverse, to the right of the matrix.
  double a[kChanges][2 * kChanges] = {};
  for (int j = 0; j < kChanges; ++j) {
    for (int k = 0; k < kChanges; ++k) {
      a[j][k] = products[1 + j][1 + k] - products[1 + j][0] * products[1 + k][0] / deviation;
    }
    a[j][kChanges + j] = 1;
  }
  for (int j = 0; j < kChanges; ++j) {
    constexpr double kSingular = 1e-6;
    const bool apart = a[j][j] > kSingular * products[1 + j][1 + j];
    const double inverse = apart ? 1 / a[j][j] : 0;
    for (double& entry : a[j]) entry *= inverse;
    for (int k = 0; k < kChanges; ++k) {
      const double factor = a[k][j];
      for (int l = 0; l < 2 * kChanges && k != j; ++l) a[k][l] -= factor * a[j][l];
      if (!apart) a[k][j] = a[k][kChanges + j] = 0;
    }
  }
  for (int k = 0; k < kChanges; ++k) {
    weights_[k][0] = 0;
    along_[k] = products[1 + k][0] / deviation;
    for (int j = 0; j < kChanges; ++j) {
      weights_[k][1 + j] = a[k][kChanges + j];
      weights_[k][0] -= a[k][kChanges + j] * products[1 + j][0] / deviation;
    }
  }
}

// ---- climbing -----------------------------------------------------------------------------------

PoseClimb::Placed PoseClimb::Put(const Pose& pose) {
  return {pose, pose.scale * std::cos(pose.degrees * kRadians),
          pose.scale * std::sin(pose.degrees * kRadians)};
}

bool PoseClimb::PutInside(const Patch& patch, Placed& placed) const {
  const Extent size = {static_cast<double>(width_), static_cast<double>(height_)};
  return MoveInside(patch.Image(), BoxOf(size, placed.cosine, placed.sine), placed.pose);
}

// The correlation with the image's samples at the pattern's pixels, and the changes that lead to a
// better one; -1 where the image is flat or the opposite of the pattern.
double PoseClimb::Correlate(const Patch& patch, const Placed& placed, Changes& changes) const {
  constexpr int kStretch = 1024;  // what single precision adds up well
  const double x = placed.pose.x - 0.5 - patch.Left(), y = placed.pose.y - 0.5 - patch.Top();
  const FitPlacing placing = {static_cast<float>(x), static_cast<float>(y),
                              static_cast<float>(placed.cosine), static_cast<float>(placed.sine)};
  double totals[2 + kMostFitFactors] = {};
  for (int plane = 0; plane < planes_; ++plane) {
    const FitCells image = {patch.Cells(plane), nullptr, patch.Width(), patch.Height()};
    for (int from = 0; from < count_; from += kStretch) {
      const FitPoints points = {.u = points_.data() + from,
                                .v = points_.data() + stride_ + from,
                                .factors = Factor(plane, 0) + from,
                                .stride = stride_,
                                .factorCount = factorCount_,
                                .count = std::min(kStretch, count_ - from)};
      float sums[2 + kMostFitFactors];
      kernels_->fit.CorrelatePoints(image, points, placing, sums);
      for (int i = 0; i < 2 + factorCount_; ++i) totals[i] += sums[i];
    }
  }
  const double n = static_cast<double>(planes_) * count_;
  const double mean = totals[0] / n, deviation = totals[1] - totals[0] * mean;
  double products[kTerms] = {};  // of the image without its mean
  for (int j = 0; j < factorCount_; ++j) products[j] = totals[2 + j] - mean * sums_[j];
  constexpr double kFlat = 1e-3;
  if (!(deviation > kFlat * n) || !(products[0] > kFlat * norm_)) return -1;
  const double gain = products[0] / (norm_ * norm_);
  double explained = gain * products[0];
  for (int k = 0; k < factorCount_ - 1; ++k) {  // the other weights are 0
    double sum = 0;
    for (int j = 0; j < factorCount_; ++j) sum += weights_[k][j] * products[j];
    changes.by[changes_[k]] = sum / gain;
    explained += sum * (products[1 + k] - along_[k] * products[0]);
  }
  changes.promised = std::sqrt(explained / deviation);
  return products[0] / (norm_ * std::sqrt(deviation));
}

// The changes are of the pattern, so the image's pose changes by their inverse. The new pose is
// kept within the cell around `point`.
PoseClimb::Placed PoseClimb::Step(const Placed& from, const Pose& point,
                                  const Changes& changes) const {
  const auto within = [](double value, double middle, double reach) {
    return std::clamp(value, middle - reach, middle + reach);
  };
  const double u = changes.by[kAlongX], v = changes.by[kAlongY];
  Pose pose = from.pose;
  pose.x = within(pose.x - u * from.cosine + v * from.sine, point.x, reach_.pixels);
  pose.y = within(pose.y - u * from.sine - v * from.cosine, point.y, reach_.pixels);
  pose.degrees =
      within(pose.degrees + changes.by[kTurned] / kRadians, point.degrees, reach_.degrees);
  pose.scale = within(pose.scale * (1 + changes.by[kScaled]), point.scale, reach_.scale);
  if (pose.degrees == from.pose.degrees && pose.scale == from.pose.scale) {
    return {pose, from.cosine, from.sine};
  }
  return Put(pose);
}

double PoseClimb::Score(const Patch& patch, Pose& pose) const {
  if (!(norm_ > 0) || patch.Width() == 0 || patch.Height() == 0) return -1;
  Changes unused;
  Placed placed = Put(pose);
  if (!PutInside(patch, placed)) return -1;
  pose = placed.pose;
  return Correlate(patch, placed, unused);
}

double PoseClimb::Run(const Patch& patch, const Pose& point, double hopeful, Pose& pose) const {
  constexpr int kSteps = 6, kEnough = 2;
  constexpr double kDoubt = 0.1;  // of the promise: far from a match, slopes are rough
  if (!(norm_ > 0) || patch.Width() == 0 || patch.Height() == 0) return -1;
  Changes changes;
  Placed placed = Put(pose);
  if (!PutInside(patch, placed)) return -1;
  double score = Correlate(patch, placed, changes);
  for (int i = 0; i < kSteps && score > -1; ++i) {
    if (i == kEnough && score < hopeful) break;
    if (i == 0 && changes.promised < hopeful - kDoubt) break;
    Changes nextChanges;
    Placed next = Step(placed, point, changes);
    const double gain = (PutInside(patch, next) ? Correlate(patch, next, nextChanges) : -1) - score;
    if (gain > 0) {
      placed = next;
      score += gain;
      changes = nextChanges;
    } else {
      for (double& change : changes.by) change *= 0.5;  // a step too far
    }
    constexpr double kStill = 1e-3;
    if (std::abs(gain) < kStill) break;
  }
  pose = placed.pose;
  return score;
}

}  // namespace quillon
