// Measuring: edges, pairs of edges, and lines, circles and ellipses through edges.
#include <algorithm>
#include <cmath>

#include "kit/measure/caliper.h"
#include "kit/measure/fit.h"
#include "kit/measure/grey_statistics.h"
#include "kit/operations/operation.h"

namespace quillon::kit {
namespace {

constexpr const char *kBox = "box", *kRing = "ring", *kPercentiles = "percentiles";

TurnedBox BoxOf(const Values& values) {
  const auto box = values.List<double>(kBox);
  return {{box[0], box[1], box[4]}, box[2], box[3]};
}

Annulus RingOf(const Values& values) {
  const auto ring = values.List<double>(kRing);
  return {{ring[0], ring[1]}, ring[2], ring[3]};
}

EdgeRule RuleOf(const Values& values) {
  const std::string sign = values.Text("sign"), select = values.Text("select");
  return {.sign = sign == "rising"    ? EdgeSign::kRising
                  : sign == "falling" ? EdgeSign::kFalling
                                      : EdgeSign::kAny,
          .minStrength = values.Number("min_strength"),
          .smoothing = values.Number("smoothing"),
          .order = select == "first"       ? EdgeOrder::kFirst
                   : select == "last"      ? EdgeOrder::kLast
                   : select == "strongest" ? EdgeOrder::kStrongest
                                           : EdgeOrder::kAll};
}

// A line from side to side, as a rectangle without width.
std::array<double, 8> Ends(Point from, Point to) {
  return {from.x, from.y, to.x, to.y, to.x, to.y, from.x, from.y};
}

void FindEdgesIn(const Call& call) {
  const TurnedBox box = BoxOf(call.values);
  for (const Edge& edge : FindEdges(*call.a.grey, box, RuleOf(call.values))) {
    const double across = edge.position - box.width / 2;
    call.result.things.push_back(
        {.x = edge.at.x,
         .y = edge.at.y,
         .angle = box.pose.degrees,
         .corners = Ends(box.At(across, -box.height / 2), box.At(across, box.height / 2)),
         .position = edge.position,
         .strength = edge.strength});
  }
}

void FindPairsIn(const Call& call) {
  const TurnedBox box = BoxOf(call.values);
  for (const EdgePair& pair : FindEdgePairs(*call.a.grey, box, RuleOf(call.values))) {
    const Point middle = pair.Middle();
    const TurnedBox bar = {{middle.x, middle.y, box.pose.degrees}, pair.Width(), box.height};
    const Thing thing = {
        .x = middle.x,
        .y = middle.y,
        .width = pair.Width(),
        .angle = box.pose.degrees,
        .corners = bar.Corners(),
        .position = (pair.first.position + pair.second.position) / 2,
        .strength = std::min(std::abs(pair.first.strength), std::abs(pair.second.strength))};
    call.result.things.push_back(thing);
  }
}

void AddResidual(const Residual& residual, Thing& thing) {
  thing.rms = residual.rms;
  thing.worst = residual.worst;
  thing.form = residual.spread;
  thing.used = residual.used;
  thing.refused = residual.refused;
}

// A line's direction is that of its rectangle's height, not turned about: clockwise by 90 degrees
// from the direction in which edges are looked for.
void FitLineIn(const Call& call) {
  const TurnedBox box = BoxOf(call.values);
  const auto points =
      EdgesAcross(*call.a.grey, box, call.values.Whole("calipers"), RuleOf(call.values));
  const auto line = FitLine(points, call.values.Number("refuse"));
  if (!line) return;
  const Pose along = {line->middle.x, line->middle.y, line->degrees};
  Thing thing = {.x = line->middle.x,
                 .y = line->middle.y,
                 .angle = line->degrees,
                 .corners = Ends(along.At(-line->length / 2, 0), along.At(line->length / 2, 0)),
                 .length = line->length};
  AddResidual(line->residual, thing);
  call.result.things.push_back(thing);
}

template <auto Fit>
void FitRound(const Call& call) {
  const auto points = EdgesAround(*call.a.grey, RingOf(call.values), call.values.Whole("rays"),
                                  call.values.Number("ray_width"), RuleOf(call.values));
  const auto found = Fit(points, call.values.Number("refuse"));
  if (!found) return;
  const TurnedBox around = {
      {found->centre.x, found->centre.y, found->degrees}, found->width, found->height};
  Thing thing = {.x = found->centre.x,
                 .y = found->centre.y,
                 .width = found->width,
                 .height = found->height,
                 .angle = found->degrees,
                 .corners = around.Corners(),
                 .diameter = (found->width + found->height) / 2};
  AddResidual(found->residual, thing);
  call.result.things.push_back(thing);
}

// Pixels whose centres lie in the box.
void MeasureGreys(const Call& call) {
  const TurnedBox box = BoxOf(call.values);
  const GreyImage& image = *call.a.grey;
  const auto corners = box.Corners();
  const auto [left, right] = std::minmax({corners[0], corners[2], corners[4], corners[6]});
  const auto [top, bottom] = std::minmax({corners[1], corners[3], corners[5], corners[7]});
  const auto clamped = [](double value, int most) {
    return static_cast<int>(std::clamp(value, 0.0, double(most)));
  };
  const Pose back = {0, 0, -box.pose.degrees};
  GreyStatistics greys;
  for (int y = clamped(top, image.height - 1); y <= clamped(bottom, image.height - 1); ++y) {
    for (int x = clamped(left, image.width - 1); x <= clamped(right, image.width - 1); ++x) {
      const Point at = back.At(x - box.pose.x, y - box.pose.y);
      const bool isInside = std::abs(at.x) <= box.width / 2 && std::abs(at.y) <= box.height / 2;
      if (isInside) greys.Add(image.rows[y][x]);
    }
  }
  if (greys.Count() == 0) return;
  const auto shares = call.values.List<double>(kPercentiles);
  call.result.things.push_back({.area = double(greys.Count()),
                                .x = box.pose.x,
                                .y = box.pose.y,
                                .width = box.width,
                                .height = box.height,
                                .angle = box.pose.degrees,
                                .mean = greys.Mean(),
                                .corners = corners,
                                .median = double(greys.Percentile(50)),
                                .deviation = greys.Deviation(),
                                .darkest = double(greys.Percentile(0)),
                                .brightest = double(greys.Percentile(100)),
                                .low = double(greys.Percentile(shares[0])),
                                .high = double(greys.Percentile(shares[1]))});
}

// ---- arguments ----------------------------------------------------------------------------------

Argument BoxToLookIn(const char* summary) { return Box(kBox, summary); }
Argument Sign(const char* summary) {
  return Choice("sign", {"any", "rising", "falling"}, summary).Or("\"any\"");
}
Argument MinStrength() {
  return Number("min_strength", 1, 255, "edges of a step of at least this")
      .Or("20")
      .In("grey values");
}
Argument Smoothing() {
  return Number("smoothing", 0.3, 20,
                "edges are looked for in a profile that is smoothed this much")
      .Or("1")
      .In("pixels");
}
Argument OneEdge(const char* summary) {
  return Choice("select", {"first", "last", "strongest"}, summary).Or("\"strongest\"");
}
Argument Refuse() {
  return Number("refuse", 1, 1e9,
                "edge points that lie farther from the shape than this many robust deviations are "
                "refused")
      .Or("3");
}

std::vector<Argument> RoundArguments() {
  return {Ring(kRing, "where its outline lies: rays run from the inner radius to the outer"),
          Sign("rising: outwards from dark to bright"),
          OneEdge("which edge of each ray"),
          MinStrength(),
          Smoothing(),
          Whole("rays", 5, 1000, "edge points all around").Or("48"),
          Number("ray_width", 1, 1000, "each ray is averaged over this").Or("3").In("pixels"),
          Refuse()};
}

}  // namespace

std::vector<Operation> MeasuringOperations() {
  constexpr const char* kFamily = "measuring";
  const auto all = [](const char* summary) {
    return Choice("select", {"all", "first", "last", "strongest"}, summary).Or("\"all\"");
  };
  return {
      {.name = "edges",
       .family = kFamily,
       .summary = "edges that cross a turned rectangle, to a hundredth of a pixel",
       .output = Kind::kEdges,
       .arguments = {BoxToLookIn("edges are looked for along its width, averaged along its height"),
                     Sign("rising: from dark to bright along the width"), all("which of them"),
                     MinStrength(), Smoothing()},
       .run = FindEdgesIn},
      {.name = "edge-pairs",
       .family = kFamily,
       .summary = "bars that cross a turned rectangle: two edges of opposite signs each",
       .output = Kind::kPairs,
       .arguments = {BoxToLookIn("bars are looked for along its width, averaged along its height"),
                     Sign("of the first edge: rising for bright bars, falling for dark ones"),
                     all("which bars"), MinStrength(), Smoothing()},
       .run = FindPairsIn},
      {.name = "fit-line",
       .family = kFamily,
       .summary = "the line through edges that cross a turned rectangle",
       .output = Kind::kLines,
       .arguments = {BoxToLookIn("edges are looked for along its width, one in each of the equal "
                                 "parts of its height"),
                     Sign("rising: from dark to bright along the width"),
                     OneEdge("which edge of each part"), MinStrength(), Smoothing(),
                     Whole("calipers", 2, 1000, "parts of the height").Or("20"), Refuse()},
       .run = FitLineIn},
      {.name = "fit-circle",
       .family = kFamily,
       .summary = "the circle through edges around a centre",
       .output = Kind::kCircles,
       .arguments = RoundArguments(),
       .run = FitRound<FitCircle>},
      {.name = "fit-ellipse",
       .family = kFamily,
       .summary = "the ellipse through edges around a centre",
       .output = Kind::kCircles,
       .arguments = RoundArguments(),
       .run = FitRound<FitEllipse>},
      {.name = "statistics",
       .family = kFamily,
       .summary = "what the grey values in a turned rectangle are like",
       .output = Kind::kRegions,
       .arguments = {BoxToLookIn("the pixels whose centres lie in it"),
                     Range(kPercentiles, 0, 100,
                           "low and high: the grey values that so many pixels are at or below")
                         .In("per cent")
                         .Or("[5, 95]")},
       .run = MeasureGreys},
  };
}

}  // namespace quillon::kit
