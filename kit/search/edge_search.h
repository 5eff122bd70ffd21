// A part taught and found by its edges, for `quillon locate` and for recipes.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/geometry.h"
#include "quillon/quillon.h"

namespace quillon::kit {

struct ReleaseEdges {
  void operator()(GeoMatchTool* tool) const { IxDestroyMatchModel(tool); }
};
using EdgeTool = std::unique_ptr<GeoMatchTool, ReleaseEdges>;

// Edge points of a strength from `low`, beside one from `high`, or from `high`; 255 for the
// strongest. Throws Failure naming the template when it has none.
EdgeTool TeachEdges(const std::string& name, const GreyImage& pattern, double low, double high);

std::vector<Point> EdgePoints(const GeoModelLevel& model, const Pose& pose);

// The middle of the template at this pose.
Point CentreOf(const GeoModelLevel& model, const Pose& pose);

struct EdgeQuery {
  double minScore, greediness;
  std::optional<double> lowest, highest;  // angles; none: as the template lies
};

struct EdgeMatch {
  bool found;  // the score is enough
  Pose pose;
  double score;  // how well the directions of the edges agree: 1 for all, 0 for none
};
EdgeMatch FindEdges(const GreyImage& image, const GeoMatchTool& tool, const EdgeQuery& query);

}  // namespace quillon::kit
