#include "kit/operations/things.h"

#include <algorithm>

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
  if (kind != Kind::kMatches) {
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
  }
  return "";
}

std::string WithArticle(Kind kind) {
  return (IsPicture(kind) ? "a " : "") + std::string(NameOf(kind));
}

const std::vector<Quantity>& Quantities() {
  const std::vector<Kind> things = {Kind::kBlobs, Kind::kMatches, Kind::kDefects};
  const std::vector<Kind> turned = {Kind::kBlobs, Kind::kMatches};
  static const std::vector<Quantity> quantities = {
      {"count", "how many there are", nullptr, things, 0},
      {"area", "pixels", &Thing::area, {Kind::kBlobs, Kind::kDefects}, 0},
      {"x", "column of the centre; of an edge-based match, of the reference point", &Thing::x,
       things, 2},
      {"y", "row of it", &Thing::y, things, 2},
      {"width", "width of the turned rectangle, or of a defect's box", &Thing::width, things, 2},
      {"height", "height of it", &Thing::height, things, 2},
      {"angle", "degrees", &Thing::angle, turned, 2, true},
      {"scale", "size relative to the template", &Thing::scale, {Kind::kMatches}, 3},
      {"score", "likeness to the template, 1 for the same", &Thing::score, {Kind::kMatches}, 3},
      {"mean", "mean grey", &Thing::mean, {Kind::kPicture, Kind::kBlobs}, 1},
      {"missing", "pixels of missing material", &Thing::missing, {Kind::kDefects}, 0},
      {"extra", "pixels of extra material", &Thing::extra, {Kind::kDefects}, 0},
  };
  return quantities;
}

std::vector<Column> ThingColumns(const std::vector<Kind>& kinds) {
  std::vector<Column> columns;
  for (const Quantity& quantity : Quantities()) {
    if (!IsOfThing(quantity, kinds)) continue;
    columns.push_back({quantity.name, quantity.name, quantity.decimals});
  }
  for (const char* name : {"left", "top", "right", "bottom"}) {
    columns.push_back({name, name, 2, Shown::kNowhere});
  }
  return columns;
}

std::vector<Cell> ThingCells(const Thing& thing, Kind kind, const std::vector<Kind>& kinds) {
  std::vector<Cell> cells;
  for (const Quantity& quantity : Quantities()) {
    if (!IsOfThing(quantity, kinds)) continue;
    cells.push_back(IsOf(quantity, kind) ? CellOf(quantity, thing.*quantity.member) : Cell());
  }
  for (Cell& side : BoxOf(thing, kind)) cells.push_back(std::move(side));
  return cells;
}

}  // namespace quillon::kit
