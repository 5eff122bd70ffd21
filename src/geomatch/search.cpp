#include "geomatch/search.h"

#include <algorithm>
#include <cmath>

#include "core/angle.h"
#include "geomatch/geomatch_kernels.h"
#include "geomatch/quadric.h"
#include "pyramid/pyramid.h"

namespace quillon {
namespace {

constexpr int kSweepSteps = 50;  // to each side, whatever the limits

PixelBox Clamped(int64_t left, int64_t top, int64_t right, int64_t bottom, int width, int height) {
  // An empty box stays empty.
  return {.left = static_cast<int>(std::clamp<int64_t>(left, 0, width)),
          .top = static_cast<int>(std::clamp<int64_t>(top, 0, height)),
          .right = static_cast<int>(std::clamp<int64_t>(right, -1, width - 1)),
          .bottom = static_cast<int>(std::clamp<int64_t>(bottom, -1, height - 1))};
}

bool IsEmpty(const PixelBox& box) { return box.right < box.left || box.bottom < box.top; }

class GeoSearch {
 public:
  GeoSearch(const Kernels& kernels, const GreyImage& image, const GeoTaughtTool& tool,
            const GeoQuery& query, GeoPosition position)
      : kernels_(kernels), image_(image), tool_(tool), query_(query), position_(position) {}

  // False when memory is short: what was found so far may be of a coarse level then.
  bool Run() {
    if (!Allocate()) return false;
    step_ = AngleStep(tool_.levels[tool_.topLevel].radius);
    SearchTop();
    step_ *= 0.5;
    for (int k = tool_.topLevel - 1; k >= 0; --k) {
      SearchAroundPosition(k);
      step_ *= 0.5;
    }
    angle_ = query_.anyAngle ? RefinedAngle() : 0;
    return !isShortOfMemory_;
  }

  GeoPosition position() const { return position_; }
  double angle() const { return angle_; }

 private:
  bool Allocate() {
    int points = 0;
    for (int k = 0; k <= tool_.topLevel; ++k) points = std::max(points, tool_.levels[k].count);
    return turner_.Allocate(points) && scorer_.Allocate(points);
  }

  bool Prepare(int k, const PixelBox& window, bool withInverses) {
    const int margin = static_cast<int>(tool_.levels[k].radius) + 1;
    const bool done =
        planes_.ComputeSearchGradients(kernels_, image_, k, window, margin, withInverses);
    isShortOfMemory_ |= !done;
    return done;
  }

  void SearchTop() {
    const int k = tool_.topLevel;
    const GeoModelLevel& level = tool_.levels[k];
    const int width = ReducedSize(image_.width, k), height = ReducedSize(image_.height, k);
    const PixelBox window = Clamped(level.referenceX, level.referenceY, width - level.referenceX,
                                    height - level.referenceY, width, height);
    if (IsEmpty(window) || !Prepare(k, window, /*withInverses=*/false)) return;
    StartLevel();
    if (!query_.anyAngle) {
      TryAngle(k, window, 0);
      return;
    }
    if (!(step_ > 0)) return;
    const double slack = step_ / 2;
    for (double a = -kSweepSteps * step_; a <= kSweepSteps * step_; a += 2 * step_) {
      if (query_.lowest - slack <= a && a <= query_.highest + slack) TryAngle(k, window, a);
    }
  }

  void SearchAroundPosition(int k) {
    const int width = ReducedSize(image_.width, k), height = ReducedSize(image_.height, k);
    const int64_t x = 2 * int64_t{position_.x}, y = 2 * int64_t{position_.y};
    const PixelBox window = Clamped(x - 1, y - 1, x + 1, y + 1, width, height);
    if (IsEmpty(window)) return;
    // The refinement looks one position further.
    const PixelBox around = {window.left - 1, window.top - 1, window.right + 1, window.bottom + 1};
    if (!Prepare(k, around, /*withInverses=*/true)) return;
    StartLevel();
    if (!query_.anyAngle) {
      TryAngle(k, window, 0);
      return;
    }
    const double middle = angle_;
    for (double angle : {middle - 2 * step_, middle, middle + 2 * step_})
      TryAngle(k, window, angle);
  }

  void StartLevel() {
    best_ = 0;
    runningMinimum_ = query_.minScore;
  }

  // Without a finite step, for models without extent, only the middle angle is there.
  void TryAngle(int k, const PixelBox& window, double angle) {
    if (!std::isfinite(angle)) return;
    const TurnedModel& model =
        turner_.RotateGeoLevel(kernels_, tool_.levels[k], angle, planes_.Stride());
    GeoPosition found;
    const double score = scorer_.ScoreGeoModel(kernels_, planes_, model, window, runningMinimum_,
                                               query_.greediness, found);
    runningMinimum_ = score;
    if (!(score > best_)) return;
    best_ = score;
    angle_ = angle;
    position_ = found;
  }

  double RefinedAngle() {
    double angle = angle_;
    const double span = 2 * step_;
    double scores[3][3][3];
    if (std::isfinite(span) && SampleScores(span, scores)) {
      angle += span * SolveGeoQuadric(FitGeoQuadric(scores), span);
    }
    if (angle > query_.highest) angle = query_.highest;
    if (angle < query_.lowest) angle = query_.lowest;
    return angle;
  }

  // False when there is nothing to sample.
  bool SampleScores(double span, double (&scores)[3][3][3]) {
    const GeoModelLevel& level = tool_.levels[0];
    const auto [x, y] = position_;
    const double reach = level.radius + 2;  // a position that nothing scored at may lie anywhere
    const bool far =
        x < -reach || y < -reach || x > image_.width + reach || y > image_.height + reach;
    if (level.count == 0 || far) return false;
    const PixelBox around = {x - 1, y - 1, x + 1, y + 1};
    if (!planes_.Covers(0, around) && !Prepare(0, around, /*withInverses=*/true)) return false;
    double(*to)[3][3] = scores;
    for (double angle : {angle_ - span, angle_, angle_ + span}) {
      const TurnedModel& model = turner_.RotateGeoLevel(kernels_, level, angle, planes_.Stride());
      ScoreGeoNeighbourhood(kernels_, planes_, model, position_, *to++);
    }
    return true;
  }

  const Kernels& kernels_;
  const GreyImage& image_;
  const GeoTaughtTool& tool_;
  const GeoQuery& query_;
  GeoPosition position_;
  SearchPlanes planes_;
  GeoTurner turner_;
  GeoScorer scorer_;
  double step_ = 0, angle_ = 0;  // degrees
  double best_ = 0, runningMinimum_ = 0;
  bool isShortOfMemory_ = false;
};

}  // namespace

double FindGeoModel(const Kernels& kernels, const GreyImage& image, const GeoTaughtTool& tool,
                    const GeoQuery& query, GeoPosition& position) {
  GeoSearch search(kernels, image, tool, query, position);
  if (!search.Run()) return 0;
  position = search.position();
  return search.angle();
}

}  // namespace quillon
