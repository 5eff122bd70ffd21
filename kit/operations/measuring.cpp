// Measuring: edges, pairs of edges, lines, circles and ellipses through edges and through contours,
// and what grey values are like.
#include <algorithm>
#include <cmath>
#include <functional>

#include "kit/images/pixels.h"
#include "kit/measure/caliper.h"
#include "kit/measure/contour.h"
#include "kit/measure/fit.h"
#include "kit/measure/grey_statistics.h"
#include "kit/measure/shape.h"
#include "kit/operations/operation.h"
#include "kit/search/blob_search.h"

namespace quillon::kit {
namespace {

constexpr const char *kBox = "box", *kRing = "ring", *kPolygon = "polygon",
                     *kPercentiles = "percentiles", *kRefuse = "refuse", *kMaxRms = "max_rms",
                     *kSize = "size";

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

// ---- shapes through points ----------------------------------------------------------------------

// Draws the shape, and the points that it was fitted to apart from those that were refused.
struct FitTool : Tool {
  Report Page(const std::string& picture) const override {
    Report report = Tool::Page(picture);
    report.layers.push_back({"Edge points", Tone::kMagenta});
    report.layers.push_back({"Refused", Tone::kRed});
    return report;
  }

  void Draw(const Searched& searched, int firstRow, Report& report) const override {
    const int used = static_cast<int>(Tool::Page("").layers.size()), refused = used + 1;
    Tool::Draw(searched, firstRow, report);
    for (size_t i = 0; i < searched.things.size(); ++i) {
      const int row = firstRow + static_cast<int>(i);
      report.pictures.back().Dots({used, row}, searched.things[i].usedPoints);
      report.pictures.back().Dots({refused, row}, searched.things[i].refusedPoints);
    }
  }
};

std::unique_ptr<Tool> MakeFit(const Values&, const Sources&) { return std::make_unique<FitTool>(); }

void AddPoints(std::span<const Point> points, const Residual& residual, Thing& thing) {
  for (size_t i = 0; i < points.size(); ++i) {
    (residual.isUsed[i] ? thing.usedPoints : thing.refusedPoints).push_back(points[i]);
  }
  thing.rms = residual.rms;
  thing.worst = residual.worst;
  thing.form = residual.spread;
  thing.used = residual.used;
  thing.refused = residual.refused;
}

Thing ThingOf(const FittedLine& line, std::span<const Point> points) {
  const Pose along = {line.middle.x, line.middle.y, line.degrees};
  Thing thing = {.x = line.middle.x,
                 .y = line.middle.y,
                 .angle = line.degrees,
                 .corners = Ends(along.At(-line.length / 2, 0), along.At(line.length / 2, 0)),
                 .length = line.length};
  AddPoints(points, line.residual, thing);
  return thing;
}

Thing ThingOf(const FittedEllipse& found, std::span<const Point> points) {
  const TurnedBox around = {
      {found.centre.x, found.centre.y, found.degrees}, found.width, found.height};
  Thing thing = {.x = found.centre.x,
                 .y = found.centre.y,
                 .width = found.width,
                 .height = found.height,
                 .angle = found.degrees,
                 .corners = around.Corners(),
                 .diameter = (found.width + found.height) / 2};
  AddPoints(points, found.residual, thing);
  return thing;
}

ShapeRule ShapeRuleOf(const Values& values, const char* calipers) {
  return {values.Whole(calipers), RuleOf(values), values.Number(kRefuse)};
}

template <class Found>
void Tell(const Call& call, const Found& found) {
  if (found) call.result.things.push_back(ThingOf(found->shape, found->points));
}

// A line's direction is that of its rectangle's height, not turned about: clockwise by 90 degrees
// from the direction in which edges are looked for.
void FitLineIn(const Call& call) {
  const Values& values = call.values;
  Tell(call, FindLine(*call.a.grey, BoxOf(values), ShapeRuleOf(values, "calipers")));
}

template <auto Find>
void FitRound(const Call& call) {
  const Values& values = call.values;
  Tell(call,
       Find(*call.a.grey, RingOf(values), values.Number("ray_width"), ShapeRuleOf(values, "rays")));
}

// ---- shapes through contours --------------------------------------------------------------------

// The columns and rows of the picture that a box reaches, both included.
struct Reach {
  int left, top, right, bottom;
};

Reach ReachOf(const TurnedBox& box, const GreyImage& image) {
  const auto corners = box.Corners();
  const auto [left, right] = std::minmax({corners[0], corners[2], corners[4], corners[6]});
  const auto [top, bottom] = std::minmax({corners[1], corners[3], corners[5], corners[7]});
  const auto clamped = [](double value, int most) {
    return static_cast<int>(std::clamp(value, 0.0, double(most)));
  };
  return {clamped(left, image.width - 1), clamped(top, image.height - 1),
          clamped(right, image.width - 1), clamped(bottom, image.height - 1)};
}

// Halfway between the dark pixels and the bright ones, where a blurred edge between them lies. By
// their medians: the pixels of the edges themselves would draw their means to each other, and the
// fewer of both the more.
double HalfwayLevel(const GreyImage& image) {
  GreyImage binary;
  const int level = OtsuLevel(image, binary);
  GreyStatistics dark, bright;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      const unsigned char grey = image.rows[y][x];
      (grey <= level ? dark : bright).Add(grey);
    }
  }
  return bright.Count() ? (dark.Percentile(50) + bright.Percentile(50)) / 2.0 : 256;
}

std::vector<Contour> ContoursIn(const GreyImage& image, const Values& values) {
  const double minLength = values.Number("min_length");
  return FindContours(image, values.Has("level") ? values.Number("level") : HalfwayLevel(image),
                      minLength);
}

// In the box, where there is one: from there the level is taken too.
std::vector<Contour> ContoursOf(const GreyImage& image, const Values& values) {
  if (!values.Has(kBox)) return ContoursIn(image, values);
  const TurnedBox box = BoxOf(values);
  const Reach reach = ReachOf(box, image);
  GreyImage part;
  part.Create(reach.right - reach.left + 1, reach.bottom - reach.top + 1);
  RequirePixels(part);
  for (int y = 0; y < part.height; ++y) {
    std::copy_n(image.rows[reach.top + y] + reach.left, part.width, part.rows[y]);
  }
  std::vector<Contour> contours = ContoursIn(part, values);
  for (Contour& contour : contours) {
    for (Point& at : contour.points) at = {at.x + reach.left, at.y + reach.top};
  }
  return CutTo(box, contours, values.Number("min_length"));
}

// Whether its size is one that is looked for.
bool IsWithin(const Values& values, double size) {
  if (!values.Has(kSize)) return true;
  const auto range = values.List<double>(kSize);
  return size >= range[0] && size <= range[1];
}

template <auto Fit>
void FitContours(const Call& call) {
  constexpr size_t kMostPoints = 2000;  // of a contour: more of them take time and tell nothing
  const std::string around = call.values.Text("around");
  for (const Contour& contour : ContoursOf(*call.a.grey, call.values)) {
    const bool isOne =
        around == "any" || (contour.isClosed && contour.IsAroundBright() == (around == "bright"));
    if (!isOne) continue;
    const std::vector<Point> points = Thinned(contour, kMostPoints);
    const auto found = Fit(points, call.values.Number(kRefuse));
    if (!found) continue;
    const Thing thing = ThingOf(*found, points);
    const bool isGood = !call.values.Has(kMaxRms) || thing.rms <= call.values.Number(kMaxRms);
    if (isGood && IsWithin(call.values, thing.length + thing.diameter)) {
      call.result.things.push_back(thing);
    }
  }
}

// ---- grey values --------------------------------------------------------------------------------

// A part of the picture: the box around it, and which pixels of a row have their centres in it;
// `inside` begins with the column `left`, and is false at first.
struct Area {
  TurnedBox around;
  std::function<void(int y, int left, std::vector<bool>& inside)> mark;
};

// By a rule for each pixel.
template <class Rule>
Area AreaOf(const TurnedBox& around, Rule isInside) {
  return {around, [isInside](int y, int left, std::vector<bool>& inside) {
            for (size_t i = 0; i < inside.size(); ++i) inside[i] = isInside(left + double(i), y);
          }};
}

// Between every two crossings of the row with the boundary, which belongs to the polygon.
void MarkPolygon(const std::vector<std::array<int, 2>>& corners, int y, int left,
                 std::vector<bool>& inside) {
  const auto fill = [&](double from, double to) {
    const double last = left + double(inside.size()) - 1;
    for (double x = std::max(std::ceil(from), double(left)); x <= std::min(to, last); ++x) {
      inside[static_cast<size_t>(x - left)] = true;
    }
  };
  std::vector<double> crossings;
  for (size_t i = 0; i < corners.size(); ++i) {
    const auto [x0, y0] = corners[i];
    const auto [x1, y1] = corners[(i + 1) % corners.size()];
    if (y < std::min(y0, y1) || y > std::max(y0, y1)) continue;
    if (y0 == y1) {
      fill(std::min(x0, x1), std::max(x0, x1));
      continue;
    }
    const double x = x0 + double(y - y0) * (x1 - x0) / (y1 - y0);
    fill(x, x);
    if ((y0 <= y) != (y1 <= y)) crossings.push_back(x);  // a corner is of one of its two sides
  }
  std::sort(crossings.begin(), crossings.end());
  for (size_t i = 0; i + 1 < crossings.size(); i += 2) fill(crossings[i], crossings[i + 1]);
}

// What the values name: a turned rectangle, a ring, a polygon, or all of the picture.
Area AreaOf(const Values& values, const GreyImage& image) {
  if (values.Has(kPolygon)) {
    const auto corners = values.List<std::array<int, 2>>(kPolygon);
    const auto [left, right] = std::minmax_element(corners.begin(), corners.end(),
                                                   [](auto& a, auto& b) { return a[0] < b[0]; });
    const auto [top, bottom] = std::minmax_element(corners.begin(), corners.end(),
                                                   [](auto& a, auto& b) { return a[1] < b[1]; });
    const TurnedBox around = {
        {((*left)[0] + (*right)[0]) / 2.0, ((*top)[1] + (*bottom)[1]) / 2.0, 0},
        double((*right)[0] - (*left)[0]),
        double((*bottom)[1] - (*top)[1])};
    return {around, [corners](int y, int firstColumn, std::vector<bool>& inside) {
              MarkPolygon(corners, y, firstColumn, inside);
            }};
  }
  if (values.Has(kRing)) {
    const Annulus ring = RingOf(values);
    const TurnedBox around = {{ring.centre.x, ring.centre.y, 0}, 2 * ring.outer, 2 * ring.outer};
    return AreaOf(around, [ring](double x, double y) {
      const double away = Distance({x, y}, ring.centre);
      return away >= ring.inner && away <= ring.outer;
    });
  }
  const TurnedBox box = values.Has(kBox)
                            ? BoxOf(values)
                            : TurnedBox{{(image.width - 1) / 2.0, (image.height - 1) / 2.0, 0},
                                        double(image.width),
                                        double(image.height)};
  const Pose back = {0, 0, -box.pose.degrees};
  return AreaOf(box, [box, back](double x, double y) {
    const Point at = back.At(x - box.pose.x, y - box.pose.y);
    return std::abs(at.x) <= box.width / 2 && std::abs(at.y) <= box.height / 2;
  });
}

void MeasureGreys(const Call& call) {
  const GreyImage& image = *call.a.grey;
  const Area area = AreaOf(call.values, image);
  const TurnedBox& box = area.around;
  const Reach reach = ReachOf(box, image);
  GreyStatistics greys;
  std::vector<bool> inside(static_cast<size_t>(reach.right - reach.left + 1));
  for (int y = reach.top; y <= reach.bottom; ++y) {
    std::fill(inside.begin(), inside.end(), false);
    area.mark(y, reach.left, inside);
    for (size_t i = 0; i < inside.size(); ++i) {
      if (inside[i]) greys.Add(image.rows[y][reach.left + static_cast<int>(i)]);
    }
  }
  if (greys.Count() == 0) {
    if (call.values.Has(kPolygon)) throw NoPixelInPolygon(image.width, image.height);
    return;
  }
  const auto shares = call.values.List<double>(kPercentiles);
  call.result.things.push_back({.area = double(greys.Count()),
                                .x = box.pose.x,
                                .y = box.pose.y,
                                .width = box.width,
                                .height = box.height,
                                .angle = box.pose.degrees,
                                .mean = greys.Mean(),
                                .corners = box.Corners(),
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
  return Number(kRefuse, 1, 1e9,
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

std::vector<Argument> ContourArguments(const Argument& box, const char* size) {
  return {box,
          Number("level", 0, 255,
                 "grey value that contours follow; without: halfway between the medians of dark "
                 "and bright pixels, as Otsu's threshold parts them")
              .Optional(),
          Choice("around", {"any", "bright", "dark"},
                 "bright or dark: only contours that are closed around such things")
              .Or("\"any\""),
          Number("min_length", 2, 1e6, "contours of at least this length").Or("20").In("pixels"),
          Refuse(),
          Range(kSize, 0, 1e6, size).In("pixels").Optional(),
          Number(kMaxRms, 0, 1e6, "keep shapes whose used points lie no farther away, by rms")
              .In("pixels")
              .Optional()};
}

}  // namespace

std::vector<Operation> MeasuringOperations() {
  constexpr const char* kFamily = "measuring";
  const auto all = [](const char* summary) {
    return Choice("select", {"all", "first", "last", "strongest"}, summary).Or("\"all\"");
  };
  const Argument part =
      BoxToLookIn("only contours in it, cut off where they leave it; without: in all the picture")
          .Optional();
  const char* const diameter = "keep those of a diameter, or mean of both, within";
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
       .run = FitLineIn,
       .prepare = MakeFit},
      {.name = "fit-circle",
       .family = kFamily,
       .summary = "the circle through edges around a centre",
       .output = Kind::kCircles,
       .arguments = RoundArguments(),
       .run = FitRound<FindCircle>,
       .prepare = MakeFit},
      {.name = "fit-ellipse",
       .family = kFamily,
       .summary = "the ellipse through edges around a centre",
       .output = Kind::kCircles,
       .arguments = RoundArguments(),
       .run = FitRound<FindEllipse>,
       .prepare = MakeFit},
      {.name = "fit-contour-lines",
       .family = kFamily,
       .summary = "a line through each contour in a turned rectangle",
       .output = Kind::kLines,
       .arguments = ContourArguments(BoxToLookIn("the contours in it, cut off where they leave it"),
                                     "keep lines of a length within"),
       .run = FitContours<FitLine>,
       .prepare = MakeFit},
      {.name = "fit-contour-circles",
       .family = kFamily,
       .summary = "a circle through each contour",
       .output = Kind::kCircles,
       .arguments = ContourArguments(part, diameter),
       .run = FitContours<FitCircle>,
       .prepare = MakeFit},
      {.name = "fit-contour-ellipses",
       .family = kFamily,
       .summary = "an ellipse through each contour",
       .output = Kind::kCircles,
       .arguments = ContourArguments(part, diameter),
       .run = FitContours<FitEllipse>,
       .prepare = MakeFit},
      {.name = "statistics",
       .family = kFamily,
       .summary = "what the grey values in a region are like, or in all the picture",
       .output = Kind::kRegions,
       .arguments =
           {BoxToLookIn("the pixels whose centres lie in it").Optional().Excludes(kRing),
            Ring(kRing, "those instead that lie between its circles").Optional().Excludes(kPolygon),
            Points(kPolygon, "those instead inside this polygon, boundary included")
                .Optional()
                .Excludes(kBox),
            Range(kPercentiles, 0, 100,
                  "low and high: the grey values that so many pixels are at or below")
                .In("per cent")
                .Or("[5, 95]")},
       .run = MeasureGreys},
  };
}

}  // namespace quillon::kit
