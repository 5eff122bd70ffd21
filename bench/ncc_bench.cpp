// Image pyramid beside cv::resize; template matching beside matchTemplate, over a pyramid and at
// full resolution.
#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "families.h"
#include "ncc/correlation.h"
#include "ncc/model.h"
#include "ncc/search.h"
#include "pyramid/pyramid.h"
#include "support/operation.h"
#include "support/template_search.h"

namespace quillon::bench {
namespace {

constexpr Size kScene = {1280, 1024};

// Where the template's pixel (side / 2, side / 2) lies, and how the template is turned and scaled.
struct Placed {
  cv::Point at;
  double degrees = 0, scale = 1;
};

// What a row searches for.
struct NccRow {
  int side;  // of the template
  std::vector<Placed> placed;
  double angleLimit = 0;  // to both sides
  double scaleMin = 1, scaleMax = 1;

  SearchLimits Limits() const {
    return {.minScore = 0.8,
            .angleMax = angleLimit,
            .angleMin = -angleLimit,
            .scaleMax = scaleMax,
            .scaleMin = scaleMin,
            .rotate = angleLimit > 0,
            .maxResults = static_cast<int>(placed.size())};
  }
};

struct PeerState {
  TemplateSearch search;
  TemplateMatch match = {};
};

// Boxes and discs of many sizes.
cv::Mat DrawPattern(int side) {
  constexpr int kSide = 128;
  cv::Mat pattern(kSide, kSide, CV_8UC1, cv::Scalar(120));
  cv::RNG random(7);
  for (int i = 0; i < 40; ++i) {
    const cv::Point at(random.uniform(0, kSide), random.uniform(0, kSide));
    const int size = random.uniform(6, 30), value = random.uniform(10, 245);
    if (i % 2 == 0) {
      cv::rectangle(pattern, at, at + cv::Point(size, size / 2), value, cv::FILLED);
    } else {
      cv::circle(pattern, at, size / 2, value, cv::FILLED);
    }
  }
  cv::GaussianBlur(pattern, pattern, {3, 3}, 0);
  cv::resize(pattern, pattern, {side, side}, 0, 0, cv::INTER_AREA);
  return pattern;
}

// Shapes and shading, with the template on them.
void MakeScene(const NccRow& row, GreyImage& image) {
  DrawPhotograph(image);
  cv::Mat scene = ToMat(image);
  const cv::Mat pattern = DrawPattern(row.side);
  const cv::Point2f centre(static_cast<float>(row.side / 2), static_cast<float>(row.side / 2));
  for (const Placed& p : row.placed) {
    cv::Mat turn = cv::getRotationMatrix2D(centre, -p.degrees, p.scale);
    turn.at<double>(0, 2) += p.at.x - row.side / 2;
    turn.at<double>(1, 2) += p.at.y - row.side / 2;
    cv::warpAffine(pattern, scene, turn, scene.size(), cv::INTER_LINEAR, cv::BORDER_TRANSPARENT);
  }
  FromMat(scene, image);
}

void Prepare(const NccRow& row, Frame& f) {
  MakeScene(row, f.source);
  GreyImage pattern;
  FromMat(DrawPattern(row.side), pattern);
  const auto tool = std::make_shared<NccTool>();
  BuildNccModel(f.kernels, pattern, /*useMask=*/false, *tool);
  f.state = tool;
}

void Search(const NccRow& row, Frame& f) {
  FindNccModel(f.kernels, f.source, row.Limits(), *static_cast<NccTool*>(f.state.get()));
}

double Turn(double from, double to) { return std::abs(std::remainder(from - to, 360.0)); }

// Ours lies within a pixel, a degree and 2 % of each placed template.
std::string FoundAll(const NccRow& row, const Frame& frame) {
  const auto& tool = *static_cast<const NccTool*>(frame.state.get());
  for (const Placed& p : row.placed) {
    bool found = false;
    for (int i = 0; i < tool.resultCount; ++i) {
      const NccResult& r = tool.results[static_cast<size_t>(i)];
      found |= std::hypot(r.x - p.at.x, r.y - p.at.y) < 1 && Turn(r.angle, p.degrees) < 1 &&
               std::abs(r.scale - p.scale) < 0.02;
    }
    if (!found) {
      return "we did not find (" + std::to_string(p.at.x) + ", " + std::to_string(p.at.y) +
             ") among " + std::to_string(tool.resultCount);
    }
  }
  return "";
}

// And the peer, whose angles are steps, within 2 pixels and 2 degrees.
std::string BothFound(const NccRow& row, const Frame& frame, const PeerFrame& peer) {
  const TemplateMatch& match = static_cast<const PeerState*>(peer.state.get())->match;
  const Placed& placed = row.placed[0];
  if (cv::norm(match.centre - placed.at) > 2 || Turn(match.degrees, placed.degrees) > 2) {
    return "it found (" + std::to_string(match.centre.x) + ", " + std::to_string(match.centre.y) +
           ") at " + std::to_string(match.degrees) + " degrees";
  }
  return FoundAll(row, frame);
}

Operation MakeSearch(const std::string& name, const NccRow& row) {
  return {.name = name,
          .bytesPerPixel = 1,
          .prepare = [=](Frame& f) { Prepare(row, f); },
          .ours = [=](Frame& f) { Search(row, f); },
          .check = [=](const Frame& f, const PeerFrame&) { return FoundAll(row, f); },
          .sizes = {kScene}};
}

// Beside matchTemplate from level `levels` down: the coarsest from which it still finds the place.
void AddSearch(const std::string& name, const NccRow& row, int levels,
               const std::vector<double>& angles) {
  Operation search = MakeSearch(name, row);
  search.preparePeer = [=](PeerFrame& f) {
    f.state =
        std::make_shared<PeerState>(PeerState{.search = {DrawPattern(row.side), levels, angles}});
  };
  search.peer = [](PeerFrame& f) {
    auto& state = *static_cast<PeerState*>(f.state.get());
    state.match = state.search.Find(f.source);
  };
  search.check = [=](const Frame& f, const PeerFrame& peer) { return BothFound(row, f, peer); };
  Add(search);
}

// Half as bright, and the two halves of a block are truncated: ours is up to 4 below.
std::string HalfAsBright(const Frame& frame, const PeerFrame& peer) {
  const cv::Mat ours = ToMat(frame.result);
  if (ours.size() != peer.result.size()) return "sizes differ";
  const double worst = cv::norm(ours * 2, peer.result, cv::NORM_INF);
  return worst <= 4 ? "" : "pixels differ by up to " + std::to_string(worst);
}

// The template is the picture as it is left by a fault: its darker half lost.
ColourImage& MakeFaulty(const ColourImage& picture, ColourImage& faulty) {
  faulty.CopyFrom(&picture);
  for (int i = 0; i < faulty.imageSize; ++i) faulty.bits[i] = std::max<uint8_t>(faulty.bits[i], 90);
  return faulty;
}

struct OnePosition {
  NccTool tool;
  double score = 0;
};

// The score of a picture with a template of its own size.
void AddOnePosition() {
  Add({.name = "ncc_one_position",
       .bytesPerPixel = 6,
       .prepare =
           [](Frame& f) {
             ColourImage faulty;
             const auto state = std::make_shared<OnePosition>();
             BuildSingleLevelModel(f.kernels, MakeFaulty(f.colour, faulty), state->tool);
             f.state = state;
           },
       .ours =
           [](Frame& f) {
             auto& state = *static_cast<OnePosition*>(f.state.get());
             state.score = ScoreOnePosition(f.kernels, f.colour, state.tool);
           },
       .preparePeer = [](PeerFrame& f) { cv::max(f.colour, cv::Scalar::all(90), f.other); },
       .peer = [](PeerFrame& f) { cv::matchTemplate(f.colour, f.other, f.result, cv::TM_CCORR); },
       .check = [](const Frame& f, const PeerFrame& peer) -> std::string {
         const auto& state = *static_cast<const OnePosition*>(f.state.get());
         cv::Mat a, b;
         peer.colour.reshape(1, 1).convertTo(a, CV_64F);
         peer.other.reshape(1, 1).convertTo(b, CV_64F);
         a -= cv::mean(a);
         b -= cv::mean(b);
         const double exact = a.dot(b) / std::sqrt(a.dot(a) * b.dot(b));
         return std::abs(state.score - exact) < 1e-9 ? "" : "scores differ";
       },
       .sizes = {{32, 32}, {64, 64}, {640, 480}, {1920, 1080}}});
}

}  // namespace

void AddTemplateMatching() {
  AddOnePosition();
  Add({.name = "pyramid_16",
       .bytesPerPixel = 1,
       .ours = [](Frame& f) { ReduceImageBy16(f.kernels, f.source, f.result); },
       .peer =
           [](PeerFrame& f) {
             const cv::Size size(f.source.cols / 16, f.source.rows / 16);
             const cv::Mat whole = f.source(cv::Rect({}, size * 16));
             cv::resize(whole, f.result, size, 0, 0, cv::INTER_AREA);
           },
       .check = HalfAsBright});
  const cv::Point place(803, 437);
  const NccRow moved = {.side = 64, .placed = {{place}}};
  AddSearch("ncc_find", moved, 3, {0});
  AddSearch("ncc_find_full", moved, 0, {0});
  AddSearch("ncc_find_20deg", {.side = 64, .placed = {{place, 17}}, .angleLimit = 20}, 3,
            {-20, 0, 20});
  AddSearch("ncc_find_20deg_large", {.side = 128, .placed = {{place, 17}}, .angleLimit = 20}, 4,
            {-20, 0, 20});
  Add(MakeSearch("ncc_find_any_pose", {.side = 100,
                                       .placed = {{{130, 120}, 10, 0.85},
                                                  {{390, 150}, 75, 1.15},
                                                  {{640, 130}, 140, 0.95},
                                                  {{900, 140}, -160, 1.05},
                                                  {{1150, 160}, -95, 1.2},
                                                  {{150, 480}, -35, 0.8},
                                                  {{420, 560}, 175, 1.1},
                                                  {{700, 840}, 50, 0.9},
                                                  {{980, 700}, -120, 1},
                                                  {{1130, 880}, 0, 1.17}},
                                       .angleLimit = 180,
                                       .scaleMin = 0.8,
                                       .scaleMax = 1.2}));
}

}  // namespace quillon::bench
