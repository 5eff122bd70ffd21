#include "kit/recipe/objects.h"

#include <set>

#include "kit/errors.h"

namespace quillon::kit::recipe {

std::vector<Found> AllFound(const Recipe& recipe, const Inspector& inspector) try {
  std::vector<Found> found;
  for (size_t i = 0; i < inspector.StepsDone().value_or(0); ++i) {
    const Step& step = recipe.steps[i];
    if (IsPicture(step.operation->output)) continue;
    const int frame = recipe.slots[static_cast<size_t>(step.inputs[0])].frame;
    found.push_back({&step, &inspector.Of(step.output).things, frame});
  }
  return found;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a table of things");
}

std::vector<Kind> KindsOfThings(const Recipe& recipe) try {
  std::set<Kind> kinds;
  for (const Step& step : recipe.steps) {
    if (!IsPicture(step.operation->output)) kinds.insert(step.operation->output);
  }
  return {kinds.begin(), kinds.end()};
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a table of things");
}

std::vector<Column> ObjectColumns(const std::vector<Kind>& kinds) try {
  std::vector<Column> columns = {{"step", "step"}, {"n", "n"}};
  for (Column& column : ThingColumns(kinds)) columns.push_back(std::move(column));
  return columns;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a table of things");
}

std::vector<std::vector<Cell>> ObjectRows(const std::vector<Found>& found,
                                          const std::vector<Kind>& kinds, size_t most) try {
  std::vector<std::vector<Cell>> rows;
  for (const auto& [step, things, frame] : found) {
    const Kind kind = step->operation->output;
    for (const Thing& thing : *things) {
      if (rows.size() == most) return rows;
      std::vector<Cell>& row = rows.emplace_back();
      row.insert(row.end(), {step->name, int64_t{thing.number}});
      for (Cell& cell : ThingCells(thing, kind, kinds)) row.push_back(std::move(cell));
    }
  }
  return rows;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a table of things");
}

}  // namespace quillon::kit::recipe
