#include "ncc/fit.h"

#include <algorithm>
#include <cmath>

namespace quillon {
namespace {

// The image is explained as offset + gain T + what small changes of the pose add to T:
//   b = (1, T, dT/du, dT/dv, dT/d(turn), dT/d(scale)), u and v along the template's axes.
constexpr int kTerms = 6;
enum Term { kOffset, kGain, kU, kV, kTurn, kScale };

struct Moments {
  int count = 0;
  double normal[kTerms][kTerms] = {};  // sums of b_i b_j, upper triangle
  double right[kTerms] = {};           // sums of b_i I
  double imageSquared = 0;
};

double Score(const Moments& m) {
  const double n = m.normal[kOffset][kOffset];
  const double sumT = m.normal[kOffset][kGain], sumI = m.right[kOffset];
  const double devT = m.normal[kGain][kGain] - sumT * sumT / n;
  const double devI = m.imageSquared - sumI * sumI / n;
  constexpr double kFlat = 1e-3;
  if (!(devT > kFlat) || !(devI > kFlat)) return -1;
  return (m.right[kGain] - sumT * sumI / n) / std::sqrt(devT * devI);
}

// The columns first ... last - 1 of [0, end) where low <= start + step x <= high.
void Intersect(double start, double step, double low, double high, int& first, int& last) {
  constexpr double kLevel = 1e-12;
  if (std::abs(step) < kLevel) {
    if (start < low || start > high) last = first;
    return;
  }
  double from = (low - start) / step, to = (high - start) / step;
  if (from > to) std::swap(from, to);
  if (from > first) first = from < last ? static_cast<int>(std::ceil(from)) : last;
  if (to < last - 1) last = to < first ? first : static_cast<int>(std::floor(to)) + 1;
}

class Fit {
 public:
  Fit(const NccLevel& pattern, const NccMask* mask, const Patch& patch, const FitFreedom& freedom)
      : pattern_(pattern), mask_(mask), patch_(patch), freedom_(freedom) {
    active_[kTurn] = freedom.turn;
    active_[kScale] = freedom.scale;
  }

  double Run(Pose& pose) {
    if (pattern_.width < 2 || pattern_.height < 2) return -1;
    Moments moments = Measure(pose);
    double score = Score(moments);
    const int enough = std::min(kEnough, (pattern_.width - 1) * (pattern_.height - 1) / 2);
    if (moments.count < enough) return -1;
    for (int i = 0; i < kIterations; ++i) {
      Pose next = pose;
      const double moved = Step(moments, next);
      if (!(moved > 0)) break;
      moments = Measure(next);
      const double nextScore = Score(moments);
      if (moments.count < enough || !(nextScore > score)) break;
      pose = next;
      score = nextScore;
      if (moved < kStill) break;
    }
    return score;
  }

 private:
  static constexpr int kEnough = 16, kIterations = 8;
  static constexpr double kStill = 0.003;  // pixels
  static constexpr double kLongest = 2.0;  // of a step, pixels

  bool Cares(int x, int y) const {
    return !mask_ || (mask_->rows[y][x] == 0 && mask_->rows[y][x + 1] == 0 &&
                      mask_->rows[y + 1][x] == 0 && mask_->rows[y + 1][x + 1] == 0);
  }

  Moments Measure(const Pose& pose) const {
    Moments m;
    const double c = std::cos(pose.degrees * kRadians) / pose.scale;
    const double s = std::sin(pose.degrees * kRadians) / pose.scale;
    const double middleU = (pattern_.width - 1) * 0.5, middleV = (pattern_.height - 1) * 0.5;
    for (int y = 0; y < patch_.Height(); ++y) {
      const double fromX = patch_.Left() + 0.5 - pose.x, fromY = patch_.Top() + y + 0.5 - pose.y;
      const double startU = fromX * c + fromY * s + middleU;
      const double startV = fromY * c - fromX * s + middleV;
      int first = 0, last = patch_.Width();
      Intersect(startU, c, 0, pattern_.width - 1, first, last);
      Intersect(startV, -s, 0, pattern_.height - 1, first, last);
      for (int x = first; x < last; ++x) {
        const double u = startU + x * c, v = startV - x * s;
        const int column = std::clamp(static_cast<int>(u), 0, pattern_.width - 2);
        const int row = std::clamp(static_cast<int>(v), 0, pattern_.height - 2);
        if (!Cares(column, row)) continue;
        for (int plane = 0; plane < pattern_.planes; ++plane) {
          AddPixel(plane, column, row, u, v, patch_.Pixels(plane, y)[x], m);
        }
      }
    }
    for (int i = 0; i < kTerms; ++i) {
      for (int j = 0; j < i; ++j) m.normal[i][j] = m.normal[j][i];
    }
    return m;
  }

  // The template and its slopes between pixels.
  struct Sample {
    double value, du, dv;
  };

  Sample Linear(int plane, int column, int row, double fu, double fv) const {
    const uint8_t* upper = pattern_.Plane(plane)[row] + column;
    const uint8_t* lower = pattern_.Plane(plane)[row + 1] + column;
    const double above = upper[0] + (upper[1] - upper[0]) * fu;
    const double below = lower[0] + (lower[1] - lower[0]) * fu;
    const double du = (upper[1] - upper[0]) * (1 - fv) + (lower[1] - lower[0]) * fv;
    return {above + (below - above) * fv, du, below - above};
  }

  // Without turn and scale all pixels have the same fraction: linear interpolation, which blurs the
  // more the nearer that is to a half, would pull every match to whole pixels.
  Sample Cubic(int plane, int column, int row, double fu, double fv) const {
    double weightU[4], slopeU[4], weightV[4], slopeV[4];
    CubicWeights(fu, weightU, slopeU);
    CubicWeights(fv, weightV, slopeV);
    Sample t = {0, 0, 0};
    for (int j = 0; j < 4; ++j) {
      const uint8_t* pixels =
          pattern_.Plane(plane)[std::clamp(row + j - 1, 0, pattern_.height - 1)];
      double value = 0, slope = 0;
      for (int i = 0; i < 4; ++i) {
        const int pixel = pixels[std::clamp(column + i - 1, 0, pattern_.width - 1)];
        value += weightU[i] * pixel;
        slope += slopeU[i] * pixel;
      }
      t.value += weightV[j] * value;
      t.du += weightV[j] * slope;
      t.dv += slopeV[j] * value;
    }
    return t;
  }

  // Catmull and Rom's, of the pixels at -1, 0, 1 and 2, and their slopes.
  static void CubicWeights(double f, double* weight, double* slope) {
    weight[0] = 0.5 * f * (f * (2 - f) - 1);
    weight[1] = 0.5 * (f * f * (3 * f - 5) + 2);
    weight[2] = 0.5 * f * (f * (4 - 3 * f) + 1);
    weight[3] = 0.5 * f * f * (f - 1);
    slope[0] = 0.5 * (f * (4 - 3 * f) - 1);
    slope[1] = 0.5 * f * (9 * f - 10);
    slope[2] = 0.5 * (f * (8 - 9 * f) + 1);
    slope[3] = 0.5 * f * (3 * f - 2);
  }

  void AddPixel(int plane, int column, int row, double u, double v, uint8_t pixel,
                Moments& m) const {
    const bool moveOnly = !freedom_.turn && !freedom_.scale;
    const Sample t = moveOnly ? Cubic(plane, column, row, u - column, v - row)
                              : Linear(plane, column, row, u - column, v - row);
    const double fromU = u - (pattern_.width - 1) * 0.5, fromV = v - (pattern_.height - 1) * 0.5;
    const double b[kTerms] = {
        1, t.value - 128, t.du, t.dv, t.du * fromV - t.dv * fromU, -(t.du * fromU + t.dv * fromV)};
    const double value = pixel - 128.0;
    ++m.count;
    for (int i = 0; i < kTerms; ++i) {
      for (int j = i; j < kTerms; ++j) m.normal[i][j] += b[i] * b[j];
      m.right[i] += b[i] * value;
    }
    m.imageSquared += value * value;
  }

  // Solves for the active terms; the others are 0. False when they cannot be told apart.
  bool Solve(const Moments& m, double* solution) const {
    double a[kTerms][kTerms + 1];
    int term[kTerms], size = 0;
    for (int i = 0; i < kTerms; ++i) {
      solution[i] = 0;
      if (active_[i]) term[size++] = i;
    }
    for (int i = 0; i < size; ++i) {
      for (int j = 0; j < size; ++j) a[i][j] = m.normal[term[i]][term[j]];
      a[i][size] = m.right[term[i]];
    }
    // Symmetric and positive: no need to exchange rows.
    for (int i = 0; i < size; ++i) {
      constexpr double kSingular = 1e-9;
      if (!(a[i][i] > kSingular * m.normal[term[i]][term[i]])) return false;
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

  // Moves the pose; returns by how many pixels at most, 0 when it cannot.
  double Step(const Moments& m, Pose& pose) {
    double solution[kTerms];
    if (!Solve(m, solution) || !(solution[kGain] > 0)) return 0;
    const double radius = 0.5 * std::hypot(pattern_.width, pattern_.height);
    const double gain = solution[kGain];
    double change[kTerms];
    for (int i = kU; i < kTerms; ++i) change[i] = solution[i] / gain;
    const double moved = pose.scale * (std::hypot(change[kU], change[kV]) +
                                       radius * std::hypot(change[kTurn], change[kScale]));
    if (!std::isfinite(moved)) return 0;
    const double shorten = moved > kLongest ? kLongest / moved : 1;
    for (int i = kU; i < kTerms; ++i) change[i] *= shorten;
    // T(u + change) is the template moved the other way.
    const double c = pose.scale * std::cos(pose.degrees * kRadians);
    const double s = pose.scale * std::sin(pose.degrees * kRadians);
    pose.x -= change[kU] * c - change[kV] * s;
    pose.y -= change[kU] * s + change[kV] * c;
    Move(kTurn, change[kTurn] / kRadians, freedom_.degreesMin, freedom_.degreesMax, pose.degrees);
    Move(kScale, change[kScale] * pose.scale, freedom_.scaleMin, freedom_.scaleMax, pose.scale);
    return moved * shorten;
  }

  // What reaches its bound stays there, and the others are fitted without it.
  void Move(Term term, double change, double low, double high, double& value) {
    if (!active_[term]) return;
    value += change;
    if (value >= low && value <= high) return;
    value = std::clamp(value, low, high);
    active_[term] = false;
  }

  const NccLevel& pattern_;
  const NccMask* mask_;
  const Patch& patch_;
  const FitFreedom& freedom_;
  bool active_[kTerms] = {true, true, true, true, false, false};
};

}  // namespace

double FitPose(const NccLevel& pattern, const NccMask* mask, const Patch& patch,
               const FitFreedom& freedom, Pose& pose) {
  return Fit(pattern, mask, patch, freedom).Run(pose);
}

}  // namespace quillon
