// Edge-based matching beside matchTemplate over a pyramid, and beside its own definition written
// plainly.
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "families.h"
#include "geomatch/search.h"
#include "geomatch/support/reference.h"
#include "support/operation.h"
#include "support/template_search.h"

namespace quillon::bench {
namespace {

constexpr double kHigh = 80, kLow = 30;  // thresholds of teaching

// A part with a hole, a slot, a notch and a mark.
cv::Mat DrawPattern(int side) {
  cv::Mat pattern(96, 96, CV_8UC1, cv::Scalar(70));
  cv::rectangle(pattern, {14, 18, 66, 60}, 190, cv::FILLED);
  cv::circle(pattern, {36, 40}, 12, 60, cv::FILLED);
  cv::rectangle(pattern, {56, 30, 16, 8}, 40, cv::FILLED);
  cv::line(pattern, {60, 70}, {76, 52}, 230, 4);
  cv::rectangle(pattern, {14, 62, 14, 16}, 70, cv::FILLED);
  cv::GaussianBlur(pattern, pattern, {3, 3}, 0);
  cv::resize(pattern, pattern, {side, side}, 0, 0, cv::INTER_AREA);
  return pattern;
}

// How a row searches, and what it found.
struct GeoRow {
  int side;            // of the template
  double degrees = 0;  // as it lies in the scene
  bool anyAngle = false;
  double limit = 0;  // angles to both sides

  cv::Point Place(cv::Size scene) const {
    return {scene.width * 5 / 8, scene.height * 3 / 7 / 8 * 8};
  }
};

struct GeoState {
  GeoMatchTool* tool = ConstructGeoTool();
  test::reference::GeoModel model = {};
  GeoPosition found = {-1, -1};
  double angle = 0;

  ~GeoState() { DestroyGeoTool(tool); }
};

struct PeerState {
  TemplateSearch search;
  TemplateMatch match = {};
};

// Shapes and shading, with the turned template on them.
void MakeScene(const GeoRow& row, GreyImage& image) {
  DrawPhotograph(image);
  cv::Mat scene = ToMat(image);
  const cv::Mat pattern = DrawPattern(row.side);
  const cv::Point place = row.Place(scene.size());
  const cv::Point2f centre(static_cast<float>(row.side / 2), static_cast<float>(row.side / 2));
  cv::Mat turn = cv::getRotationMatrix2D(centre, -row.degrees, 1);
  turn.at<double>(0, 2) += place.x - row.side / 2;
  turn.at<double>(1, 2) += place.y - row.side / 2;
  cv::warpAffine(pattern, scene, turn, scene.size(), cv::INTER_LINEAR, cv::BORDER_TRANSPARENT);
  FromMat(scene, image);
}

GeoQuery Query(const GeoRow& row) {
  return {.minScore = 0.7,
          .greediness = 0.8,
          .anyAngle = row.anyAngle,
          .lowest = -row.limit,
          .highest = row.limit};
}

void Prepare(const GeoRow& row, Frame& f) {
  MakeScene(row, f.source);
  GreyImage pattern;
  FromMat(DrawPattern(row.side), pattern);
  auto state = std::make_shared<GeoState>();
  BuildGeoModel(f.kernels, pattern, kHigh, kLow, *state->tool);
  state->model = test::reference::Teach(pattern, kHigh, kLow);
  f.state = state;
}

void Search(const GeoRow& row, Frame& f) {
  auto& state = *static_cast<GeoState*>(f.state.get());
  const auto& tool = static_cast<const GeoTaughtTool&>(*state.tool);
  state.angle = FindGeoModel(f.kernels, f.source, tool, Query(row), state.found);
}

void SearchPlainly(const GeoRow& row, Frame& f) {
  auto& state = *static_cast<GeoState*>(f.state.get());
  const GeoQuery query = Query(row);
  int position[2] = {-1, -1};
  state.angle = test::reference::Find(f.source, state.model,
                                      {.minScore = query.minScore,
                                       .greediness = query.greediness,
                                       .anyAngle = query.anyAngle,
                                       .lowest = query.lowest,
                                       .highest = query.highest},
                                      position)
                    .angle;
  state.found = {position[0], position[1]};
}

// Both found the template where it lies.
std::string BothFound(const GeoRow& row, const Frame& frame, const PeerFrame& peer) {
  const auto& ours = *static_cast<const GeoState*>(frame.state.get());
  const TemplateMatch& theirs = static_cast<const PeerState*>(peer.state.get())->match;
  const cv::Point place = row.Place({frame.source.width, frame.source.height});
  const auto misses = [&](cv::Point found, double degrees) {
    return cv::norm(found - place) > 2 || std::abs(degrees - row.degrees) > 2;
  };
  const auto report = [](const char* who, cv::Point found, double degrees) {
    return std::string(who) + " found (" + std::to_string(found.x) + ", " +
           std::to_string(found.y) + ") at " + std::to_string(degrees) + " degrees";
  };
  const cv::Point found(ours.found.x, ours.found.y);
  if (misses(found, ours.angle)) return report("we", found, ours.angle);
  if (misses(theirs.centre, theirs.degrees)) return report("it", theirs.centre, theirs.degrees);
  return "";
}

// Beside matchTemplate from the same coarsest level down, with as many angles as our sweep tries.
void AddSearch(const std::string& name, const GeoRow& row, const std::vector<double>& angles) {
  constexpr int kLevels = 3;  // of a 96 x 96 template
  Add({.name = name,
       .bytesPerPixel = 1,
       .prepare = [=](Frame& f) { Prepare(row, f); },
       .ours = [=](Frame& f) { Search(row, f); },
       .preparePeer =
           [=](PeerFrame& f) {
             f.state = std::make_shared<PeerState>(
                 PeerState{.search = {DrawPattern(row.side), kLevels, angles}});
           },
       .peer =
           [](PeerFrame& f) {
             auto& state = *static_cast<PeerState*>(f.state.get());
             state.match = state.search.Find(f.source);
           },
       .check = [=](const Frame& f, const PeerFrame& peer) { return BothFound(row, f, peer); },
       .sizes = {{1280, 1024}}});
}

}  // namespace

void AddEdgeMatching() {
  Add({.name = "geo_teach",
       .ours =
           [](Frame& f) {
             if (!f.state) f.state = std::make_shared<GeoState>();
             BuildGeoModel(f.kernels, f.source, kHigh, kLow,
                           *static_cast<GeoState*>(f.state.get())->tool);
           },
       .sizes = {{96, 96}, {512, 512}}});
  AddSearch("geo_find", {.side = 96}, {0});
  AddSearch("geo_find_20deg", {.side = 96, .degrees = 17, .anyAngle = true, .limit = 20},
            {-20, 0, 20});
  // Too small for a pyramid: one level, 51 angles.
  const GeoRow sweep = {.side = 14, .degrees = 0, .anyAngle = true, .limit = 1000};
  Add({.name = "geo_sweep",
       .bytesPerPixel = 1,
       .prepare = [=](Frame& f) { Prepare(sweep, f); },
       .ours = [=](Frame& f) { Search(sweep, f); },
       .plain = [=](Frame& f) { SearchPlainly(sweep, f); },
       .sizes = {{320, 240}}});
}

}  // namespace quillon::bench
