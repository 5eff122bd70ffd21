#include "kit/recipe/objects.h"

#include <algorithm>
#include <set>

namespace quillon::kit::recipe {
namespace {

bool IsOf(const Quantity& quantity, Kind kind) {
  return std::find(quantity.inputs.begin(), quantity.inputs.end(), kind) != quantity.inputs.end();
}

// What is measured of a thing of one of these kinds; counts are of all things together.
std::vector<const Quantity*> QuantitiesOf(const std::vector<Kind>& kinds) {
  std::vector<const Quantity*> quantities;
  for (const Quantity& quantity : Quantities()) {
    const bool isMeasured =
        std::any_of(kinds.begin(), kinds.end(), [&](Kind kind) { return IsOf(quantity, kind); });
    if (quantity.member && isMeasured) quantities.push_back(&quantity);
  }
  return quantities;
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

std::vector<Found> AllFound(const Recipe& recipe, const Inspector& inspector) {
  std::vector<Found> found;
  for (const Step& step : recipe.steps) {
    if (IsPicture(step.operation->output)) continue;
    const int frame = recipe.slots[static_cast<size_t>(step.inputs[0])].frame;
    found.push_back({&step, &inspector.Of(step.output).things, frame});
  }
  return found;
}

std::vector<Kind> KindsOfThings(const Recipe& recipe) {
  std::set<Kind> kinds;
  for (const Step& step : recipe.steps) {
    if (!IsPicture(step.operation->output)) kinds.insert(step.operation->output);
  }
  return {kinds.begin(), kinds.end()};
}

std::vector<Column> ObjectColumns(const std::vector<Kind>& kinds) {
  std::vector<Column> columns = {{"step", "step"}, {"n", "n"}};
  for (const Quantity* quantity : QuantitiesOf(kinds)) {
    columns.push_back({quantity->name, quantity->name, quantity->decimals});
  }
  for (const char* name : {"left", "top", "right", "bottom"}) {
    columns.push_back({name, name, 2, quillon::kit::Shown::kNowhere});
  }
  return columns;
}

std::vector<std::vector<Cell>> ObjectRows(const std::vector<Found>& found,
                                          const std::vector<Kind>& kinds, size_t most) {
  const std::vector<const Quantity*> quantities = QuantitiesOf(kinds);
  std::vector<std::vector<Cell>> rows;
  for (const auto& [step, things, frame] : found) {
    const Kind kind = step->operation->output;
    int64_t n = 0;
    for (const Thing& thing : *things) {
      if (rows.size() == most) return rows;
      std::vector<Cell>& row = rows.emplace_back();
      row.insert(row.end(), {step->name, ++n});
      for (const Quantity* quantity : quantities) {
        row.push_back(IsOf(*quantity, kind) ? CellOf(*quantity, thing.*quantity->member) : Cell());
      }
      for (Cell& side : BoxOf(thing, kind)) row.push_back(std::move(side));
    }
  }
  return rows;
}

}  // namespace quillon::kit::recipe
