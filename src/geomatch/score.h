// Scoring a turned model over a window of positions.
#pragma once

#include "geomatch/search_planes.h"
#include "quillon/records.h"

namespace quillon {

// The rule that abandons a position after point j of n, unless that point lies outside the image:
//   sum / j < min((minimum - 1) + rise * j, slope * j)
// with rise and slope from the first minimum. Later only `minimum` follows the best score.
struct GreedyRule {
  GreedyRule(double minScore, double greediness, int points)
      : minimum(minScore),
        slope(minScore / points),
        rise((1 - greediness * minScore) / (1 - greediness) / points) {}

  double Threshold(int j) const {
    const double first = (minimum - 1) + rise * j, second = slope * j;
    return second < first ? second : first;
  }

  double minimum, slope, rise;
};

struct GeoPosition {
  int x, y;
};

// A model level turned by an angle, and room for it.
class GeoTurner {
 public:
  // Room for models of up to `points`; false when the memory is not there.
  bool Allocate(int points);
  // Valid until the next call. Turned points are off the reference by the radius at most.
  const TurnedModel& RotateGeoLevel(const Kernels& kernels, const GeoModelLevel& level,
                                    double degrees, int stride);
  // Gradients of the model have this length in its unit vectors: as much as leaves room for the sum
  // of all points' products in 32 bits.
  static int UnitScale(int points);

 private:
  TurnedModel model_ = {};
  Buffer<int32_t> offsets_;
  Buffer<PackedVector> gradients_, units_;
};

// The score of each position is the sum over the points of
//   (model gradient . search gradient) * model inverse magnitude * search inverse magnitude
// by the number of points looked at: all, or those until GreedyRule abandons it.
class GeoScorer {
 public:
  bool Allocate(int points);
  // The best score of the window's positions, 0 when none is above 0. The first position with that
  // score in raster order goes to `best`.
  double ScoreGeoModel(const Kernels& kernels, const SearchPlanes& planes, const TurnedModel& model,
                       const PixelBox& window, double minScore, double greediness,
                       GeoPosition& best);

 private:
  void SetBounds(const TurnedModel& model, const GreedyRule& rule, double best);

  Buffer<int32_t> floors_;
  int checkedPoints_ = 0, touchedPoints_ = 0;
  int32_t lastFloor_ = 0;
};

// scores[dy + 1][dx + 1]: those around a position, of all points.
void ScoreGeoNeighbourhood(const Kernels& kernels, const SearchPlanes& planes,
                           const TurnedModel& model, GeoPosition centre, double (&scores)[3][3]);

}  // namespace quillon
