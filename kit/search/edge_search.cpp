#include "kit/search/edge_search.h"

#include <cmath>

#include "kit/errors.h"

namespace quillon::kit {

EdgeTool TeachEdges(const std::string& name, const GreyImage& pattern, double low,
                    double high) try {
  EdgeTool tool(IxCreateGeoTool());
  if (!tool || !IxCreateGeoMatchModel(&pattern, tool.get(), high, low)) {
    throw OutOfMemory("the edges of template '" + name + "'");
  }
  if (tool->model->count == 0) throw Failure("template '" + name + "' has no edges");
  return tool;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the edges of a template");
}

std::vector<Point> EdgePoints(const GeoModelLevel& model, const Pose& pose) try {
  std::vector<Point> points;
  points.reserve(static_cast<size_t>(model.count));
  for (int i = 0; i < model.count; ++i) points.push_back(pose.At(model.x[i], model.y[i]));
  return points;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the edges of a template");
}

Point CentreOf(const GeoModelLevel& model, const Pose& pose) {
  return pose.At((model.width - 1) / 2.0 - model.referenceX,
                 (model.height - 1) / 2.0 - model.referenceY);
}

namespace {

// The Sobel gradient of the picture at a pixel; none at the edge of the picture and beyond it.
Point Gradient(const GreyImage& image, int x, int y) {
  if (x < 1 || y < 1 || x >= image.width - 1 || y >= image.height - 1) return {0, 0};
  const unsigned char *a = image.rows[y - 1] + x, *m = image.rows[y] + x,
                      *b = image.rows[y + 1] + x;
  return {double((a[1] + 2 * m[1] + b[1]) - (a[-1] + 2 * m[-1] + b[-1])),
          double((b[-1] + 2 * b[0] + b[1]) - (a[-1] + 2 * a[0] + a[1]))};
}

// The mean agreement of directions, which is the score: the search tells where the best place is,
// but not how good it is.
double Agreement(const GreyImage& image, const GeoModelLevel& model, const Pose& pose) {
  const Pose turn = {0, 0, pose.degrees};
  double sum = 0;
  for (int i = 0; i < model.count; ++i) {
    const Point at = pose.At(model.x[i], model.y[i]);
    const Point g =
        Gradient(image, static_cast<int>(std::lround(at.x)), static_cast<int>(std::lround(at.y)));
    const Point m = turn.At(model.gradientX[i], model.gradientY[i]);
    const double length = Length(g) * Length(m);
    if (length > 0) sum += (g.x * m.x + g.y * m.y) / length;
  }
  return sum / model.count;
}

}  // namespace

EdgeMatch FindEdges(const GreyImage& image, const GeoMatchTool& tool, const EdgeQuery& query) try {
  int position[2] = {-1, -1};
  const bool anyAngle = query.lowest && query.highest;
  Pose pose = {};
  pose.degrees = CallExports([&] {
    return IxFindGeoMatchModel(&image, &tool, query.minScore, query.greediness, position,
                               query.highest.value_or(0), query.lowest.value_or(0), anyAngle);
  });
  pose.x = position[0];
  pose.y = position[1];
  const double score = position[0] < 0 ? 0 : Agreement(image, *tool.model, pose);
  return {position[0] >= 0 && score >= query.minScore, pose, score};
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a search by edges");
}

}  // namespace quillon::kit
