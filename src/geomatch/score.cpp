// Only few positions are scored as they are defined. The others are proven, several at a time and
// in integers, to have no score above the best so far.
//
// With unit vectors in fixed point, S is the integer sum of products after j points, K the product
// of the two lengths and E the most that one product is off, so the true sum s has |S - K s| <= E
// j.
// - S < K t j - E j, with the rule's threshold t: the position has been abandoned by now. The
//   threshold never falls with j, so what it was abandoned with is below t. With t <= best it
//   loses.
// - After all points, S <= K best n - E n: it loses.
// At a point outside the image the rule is not tested. So where the model may leave the image, the
// first proof takes only sums after points inside.
// Positions that pass, among them all winners, are scored exactly, in raster order; after a new
// best the bounds are made anew and the rest of the group is looked at again. So the outcome is
// that of scoring every position in turn.
#include "geomatch/score.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "geomatch/geomatch_kernels.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

constexpr int kMaxModelUnit = 16384;
constexpr double kRadiansPerDegree = 3.14159265358979323846 / 180;

// Both vectors are off by less than 0.501 in each component; their lengths are at most 1.
double ProductError(int modelUnit) { return 0.71 * (modelUnit + kSearchUnit) + 1; }

int32_t FloorToInt(double value) {
  if (!(value > INT32_MIN)) return INT32_MIN;
  return value < INT32_MAX ? static_cast<int32_t>(std::floor(value)) : INT32_MAX;
}

double InverseMagnitude(PackedVector gradient) {
  const double gx = VectorX(gradient), gy = VectorY(gradient);
  return 1 / std::sqrt(gx * gx + gy * gy);
}

// The score of one position by its definition.
template <bool kStaysInside>
double ScoreAt(const PackedVector* gradients, const double* inverses, const TurnedModel& model,
               const GreedyRule& rule) {
  constexpr double kMargin = 1e-14;  // wider than the rounding of threshold * j
  double sum = 0;
  for (int i = 0; i < model.count; ++i) {
    const PackedVector g = gradients[model.offsets[i]], m = model.gradients[i];
    if (!kStaysInside && g == kOutside) continue;  // counted by j, but the rule is not tested
    if (g != 0) {
      const double inverse = inverses ? inverses[model.offsets[i]] : InverseMagnitude(g);
      sum += (VectorX(m) * VectorX(g) + VectorY(m) * VectorY(g)) * model.inverses[i] * inverse;
    }
    const int j = i + 1;
    const double threshold = rule.Threshold(j);
    const double bound = threshold * j;
    // Divide only where the outcome is near.
    if (sum <= bound + std::abs(bound) * kMargin && sum / j < threshold) return sum / j;
  }
  return sum / model.count;
}

}  // namespace

bool GeoTurner::Allocate(int points) {
  const auto size = static_cast<size_t>(points);
  offsets_ = Buffer<int32_t>(size);
  gradients_ = Buffer<PackedVector>(size);
  units_ = Buffer<PackedVector>(size);
  return offsets_ && gradients_ && units_;
}

int GeoTurner::UnitScale(int points) {
  // (scale + 2) * (kSearchUnit + 1) bounds a product with its error.
  const int64_t product = INT32_MAX / (int64_t{std::max(points, 1)} * (kSearchUnit + 1)) - 2;
  return static_cast<int>(std::clamp<int64_t>(product, 0, kMaxModelUnit));
}

const TurnedModel& GeoTurner::RotateGeoLevel(const Kernels& kernels, const GeoModelLevel& level,
                                             double degrees, int stride) {
  const double radians = degrees * kRadiansPerDegree;
  const double cosine = std::cos(radians), sine = std::sin(radians);
  kernels.geomatch.TurnModel({.count = level.count,
                              .x = level.x,
                              .y = level.y,
                              .gradientX = level.gradientX,
                              .gradientY = level.gradientY,
                              .inverses = level.inverseMagnitude,
                              .cosine = cosine,
                              .sine = sine,
                              .stride = stride,
                              .unitScale = static_cast<double>(UnitScale(level.count)),
                              .offsets = offsets_.data(),
                              .gradients = gradients_.data(),
                              .units = units_.data()});
  // The points lie within the template, its outermost pixels excepted.
  const double halfWidth = level.referenceX - 1, halfHeight = level.referenceY - 1;
  const auto reach = [&](double across, double along) {
    constexpr double kRounding = 1e-6;
    return static_cast<int>(
        std::min(std::abs(across * cosine) + std::abs(along * sine), level.radius) + kRounding);
  };
  model_ = {.count = level.count,
            .reachX = reach(halfWidth, halfHeight),
            .reachY = reach(halfHeight, halfWidth),
            .offsets = offsets_.data(),
            .gradients = gradients_.data(),
            .inverses = level.inverseMagnitude,
            .units = units_.data()};
  return model_;
}

bool GeoScorer::Allocate(int points) {
  floors_ = Buffer<int32_t>(static_cast<size_t>(points) / kFloorPoints + 1);
  return static_cast<bool>(floors_);
}

void GeoScorer::SetBounds(const TurnedModel& model, const GreedyRule& rule, double best) {
  const int n = model.count, unit = GeoTurner::UnitScale(n);
  const double scale = static_cast<double>(unit) * kSearchUnit, error = ProductError(unit);
  // A sum not above this is below `score` after j points for certain.
  const auto floorOf = [&](double score, int j) {
    return FloorToInt(score * j * scale - error * j - 2);
  };
  checkedPoints_ = 0;
  lastFloor_ = INT32_MIN;
  const bool rising = rule.slope >= 0 && rule.rise >= 0;
  for (int i = 0; rising && checkedPoints_ < n; ++i) {
    const int j = std::min((i + 1) * kFloorPoints, n);
    const double threshold = rule.Threshold(j);
    if (!(threshold <= best)) break;
    floors_[i] = floorOf(threshold, j);
    checkedPoints_ = j;
  }
  if (checkedPoints_ == n) lastFloor_ = floorOf(best, n);

  // As long as the best score is 0, positions without any gradient can be passed over: their sum
  // stays 0 until the rule abandons them, after this many points.
  touchedPoints_ = 1;
  while (touchedPoints_ < n && !(rule.Threshold(touchedPoints_) > 0)) ++touchedPoints_;
}

double GeoScorer::ScoreGeoModel(const Kernels& kernels, const SearchPlanes& planes,
                                const TurnedModel& model, const PixelBox& window, double minScore,
                                double greediness, GeoPosition& bestPosition) {
  if (model.count == 0) return 0;
  const GeomatchKernels& geomatch = kernels.geomatch;
  GreedyRule rule(minScore, greediness, model.count);
  double best = 0;
  SetBounds(model, rule, best);

  const PixelBox inner = planes.Inner(model);
  // The first position from x on that is a new best, or `end`.
  const auto nextBest = [&](int x, int y, int end) {
    const bool staysInside =
        x >= inner.left && end - 1 <= inner.right && y >= inner.top && y <= inner.bottom;
    const PackedVector* units = planes.Units(x, y);
    const PackedVector* gradients = planes.Gradients(x, y);
    uint32_t lanes =
        best > 0 ? geomatch.PassingLanes(units, staysInside ? nullptr : gradients, model,
                                         checkedPoints_, floors_.data(), lastFloor_, end - x)
                 : geomatch.TouchedLanes(units, model, staysInside ? touchedPoints_ : model.count);
    for (; lanes != 0; lanes &= lanes - 1) {
      const int at = x + std::countr_zero(lanes);
      if (at >= end) break;
      const auto scoreAt = staysInside ? ScoreAt<true> : ScoreAt<false>;
      const double score = scoreAt(gradients + (at - x), planes.Inverses(at, y), model, rule);
      if (score > best) {
        best = score;
        return at;
      }
    }
    return end;
  };
  for (int y = window.top; y <= window.bottom; ++y) {
    for (int x = window.left; x <= window.right;) {
      const int end = std::min(x + geomatch.scanLanes, window.right + 1);
      const int at = nextBest(x, y, end);
      if (at < end) {
        bestPosition = {at, y};
        rule.minimum = best;
        SetBounds(model, rule, best);
      }
      x = at < end ? at + 1 : end;
    }
  }
  return best;
}

void ScoreGeoNeighbourhood(const Kernels& kernels, const SearchPlanes& planes,
                           const TurnedModel& model, GeoPosition centre, double (&scores)[3][3]) {
  double sums[3][4];
  const int x = centre.x - 1, y = centre.y - 1;
  kernels.geomatch.SumNeighbourhood(planes.Gradients(x, y), planes.Inverses(x, y), planes.Stride(),
                                    model, sums);
  for (int row = 0; row < 3; ++row) {
    for (int i = 0; i < 3; ++i) scores[row][i] = sums[row][i] / model.count;
  }
}

}  // namespace quillon
