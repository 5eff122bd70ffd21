#include "kit/operations/things.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "kit/errors.h"

namespace quillon::kit {
namespace {

bool IsOf(const Quantity& quantity, Kind kind) {
  return std::find(quantity.inputs.begin(), quantity.inputs.end(), kind) != quantity.inputs.end();
}

// Whether it is measured of a thing of one of these kinds; counts are of all things together.
bool IsOfThing(const Quantity& quantity, const std::vector<Kind>& kinds) {
  return quantity.member &&
         std::any_of(kinds.begin(), kinds.end(), [&](Kind kind) { return IsOf(quantity, kind); });
}

// Left, top, right and bottom: the outermost pixels, or the corners of a turned rectangle.
std::array<Cell, 4> BoxOf(const Thing& thing, Kind kind) {
  if (!IsThere(thing)) return {};
  if (HasPixelsOfItsOwn(kind)) {
    return {int64_t{thing.left}, int64_t{thing.top}, int64_t{thing.right}, int64_t{thing.bottom}};
  }
  const auto& [x0, y0, x1, y1, x2, y2, x3, y3] = thing.corners;
  return {std::min({x0, x1, x2, x3}), std::min({y0, y1, y2, y3}), std::max({x0, x1, x2, x3}),
          std::max({y0, y1, y2, y3})};
}

Cell CellOf(const Quantity& quantity, double value) {
  if (quantity.decimals == 0) return static_cast<int64_t>(value);
  return value;
}

}  // namespace

const char* NameOf(Kind kind) {
  switch (kind) {
    case Kind::kNone:
      return "nothing";
    case Kind::kPicture:
      return "picture";
    case Kind::kColour:
      return "colour picture";
    case Kind::kBlobs:
      return "blobs";
    case Kind::kMatches:
      return "matches";
    case Kind::kDefects:
      return "defects";
    case Kind::kEdges:
      return "edges";
    case Kind::kPairs:
      return "pairs";
    case Kind::kLines:
      return "lines";
    case Kind::kCircles:
      return "circles";
    case Kind::kShapes:
      return "shapes";
    case Kind::kRegions:
      return "regions";
  }
  return "";
}

Thing NothingFound() {
  constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();
  Thing thing;
  thing.x = thing.y = kNothing;
  thing.corners.fill(kNothing);
  return thing;
}

bool IsThere(const Thing& thing) { return std::isfinite(thing.x); }

std::string WithArticle(Kind kind) try {
  return (IsPicture(kind) ? "a " : "") + std::string(NameOf(kind));
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a name");
}

const std::vector<Quantity>& Quantities() try {
  constexpr Kind kBlobs = Kind::kBlobs, kMatches = Kind::kMatches, kDefects = Kind::kDefects,
                 kEdges = Kind::kEdges, kPairs = Kind::kPairs, kLines = Kind::kLines,
                 kCircles = Kind::kCircles, kShapes = Kind::kShapes, kRegions = Kind::kRegions;
  const std::vector<Kind> things = {kBlobs, kMatches, kDefects, kEdges,  kPairs,
                                    kLines, kCircles, kShapes,  kRegions};
  const std::vector<Kind> turned = {kBlobs, kMatches, kEdges,  kPairs,
                                    kLines, kCircles, kShapes, kRegions};
  const std::vector<Kind> fitted = {kLines, kCircles}, grey = {kShapes, kRegions},
                          shapes = {kShapes}, regions = {kRegions};
  static const std::vector<Quantity> quantities = {
      {"count", "how many there are", nullptr, things, 0},
      {"area", "pixels", &Thing::area, {kBlobs, kDefects, kShapes, kRegions}, 0},
      {"x",
       "column of the centre; of an edge-based match, of the reference point; of an edge or a "
       "line, of its middle",
       &Thing::x, things, 2},
      {"y", "row of it", &Thing::y, things, 2},
      {"width",
       "width of the turned rectangle, or of a defect's box; of a pair, from edge to edge; the "
       "larger diameter",
       &Thing::width,
       {kBlobs, kMatches, kDefects, kPairs, kCircles, kShapes, kRegions},
       2},
      {"height",
       "height of it; the smaller diameter",
       &Thing::height,
       {kBlobs, kMatches, kDefects, kCircles, kShapes, kRegions},
       2},
      {"angle",
       "degrees, clockwise; of an edge or a pair, the direction in which it was looked for; of a "
       "line, its own, from -90 up to 90; of an ellipse, that of its width",
       &Thing::angle, turned, 2, true},
      {"scale", "size relative to the template", &Thing::scale, {kMatches}, 3},
      {"score", "likeness to the template, 1 for the same", &Thing::score, {kMatches}, 3},
      {"mean", "mean grey", &Thing::mean, {Kind::kPicture, kBlobs, kShapes, kRegions}, 1},
      {"missing", "pixels of missing material", &Thing::missing, {kDefects}, 0},
      {"extra", "pixels of extra material", &Thing::extra, {kDefects}, 0},
      {"position",
       "from the side of the rectangle where its width begins; of a pair, of its middle",
       &Thing::position,
       {kEdges, kPairs},
       2},
      {"strength",
       "grey values of the step, below 0 where it falls; of a pair, of the weaker one, unsigned",
       &Thing::strength,
       {kEdges, kPairs},
       1,
       true},
      {"diameter", "of a circle; the mean of an ellipse's two", &Thing::diameter, {kCircles}, 2},
      {"length", "that the edge points reach along the line", &Thing::length, {kLines}, 2},
      {"rms", "root mean square of the edge points' distances from the shape", &Thing::rms, fitted,
       3},
      {"worst", "the greatest of these distances", &Thing::worst, fitted, 3},
      {"form",
       "from the innermost edge point that was used to the outermost, about the shape of least "
       "squares: straightness of a line, roundness of a circle",
       &Thing::form, fitted, 3},
      {"used", "edge points that the shape was fitted to", &Thing::used, fitted, 0},
      {"refused", "edge points that were refused", &Thing::refused, fitted, 0},
      {"median", "the grey value that half of the pixels are at or below", &Thing::median, grey, 0},
      {"deviation", "standard deviation of the grey values", &Thing::deviation, grey, 2},
      {"darkest", "the least grey value", &Thing::darkest, regions, 0},
      {"brightest", "the greatest one", &Thing::brightest, regions, 0},
      {"low", "the lower of the percentiles", &Thing::low, regions, 0},
      {"high", "the upper one", &Thing::high, regions, 0},
      {"contrast", "mean grey less that of the ground around", &Thing::contrast, shapes, 1, true},
      {"hull", "area of the convex hull", &Thing::hull, shapes, 1},
      {"convexity", "area over that of the hull", &Thing::convexity, shapes, 3},
      {"circularity", "from the moments, 1 for a disc", &Thing::circularity, shapes, 3},
      {"elongation", "longer over shorter axis of the ellipse of the same moments",
       &Thing::elongation, shapes, 3},
      {"axis", "degrees, clockwise, of the longer of these axes, from -90 up to 90", &Thing::axis,
       shapes, 2, true},
      {"mxx", "central moment of the columns", &Thing::mxx, shapes, 2},
      {"mxy", "central moment of columns and rows", &Thing::mxy, shapes, 2, true},
      {"myy", "central moment of the rows", &Thing::myy, shapes, 2},
  };
  return quantities;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the list of quantities");
}

std::vector<Column> ThingColumns(const std::vector<Kind>& kinds) try {
  std::vector<Column> columns;
  for (const Quantity& quantity : Quantities()) {
    if (!IsOfThing(quantity, kinds)) continue;
    columns.push_back({quantity.name, quantity.name, quantity.decimals});
  }
  for (const char* name : {"left", "top", "right", "bottom"}) {
    columns.push_back({name, name, 2, Shown::kNowhere});
  }
  return columns;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a table of things");
}

std::vector<Cell> ThingCells(const Thing& thing, Kind kind, const std::vector<Kind>& kinds) try {
  std::vector<Cell> cells;
  for (const Quantity& quantity : Quantities()) {
    if (!IsOfThing(quantity, kinds)) continue;
    cells.push_back(
        IsOf(quantity, kind) && IsThere(thing) ? CellOf(quantity, thing.*quantity.member) : Cell());
  }
  for (Cell& side : BoxOf(thing, kind)) cells.push_back(std::move(side));
  return cells;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a table of things");
}

}  // namespace quillon::kit
