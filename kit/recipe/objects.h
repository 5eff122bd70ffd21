// What the steps of a recipe found in one image, thing by thing: for the pages of a run, and for
// its results where they are asked for.
#pragma once

#include <vector>

#include "kit/recipe/inspector.h"
#include "kit/report/findings.h"

namespace quillon::kit::recipe {

// The things that one step found, and the frame that their positions are in.
struct Found {
  const Step* step;
  const std::vector<Thing>* things;
  int frame;
};

// What the inspector found in the image that it inspected last, in the order of the steps that were
// done.
std::vector<Found> AllFound(const Recipe& recipe, const Inspector& inspector);

// The kinds of things that a recipe's steps make.
std::vector<Kind> KindsOfThings(const Recipe& recipe);

// The step, the number of the thing, which is the same in every front, all that can be measured of
// things of these kinds, and the columns and rows that the thing reaches.
std::vector<Column> ObjectColumns(const std::vector<Kind>& kinds);

// A row for each thing, `most` of them; nothing where a column does not apply.
std::vector<std::vector<Cell>> ObjectRows(const std::vector<Found>& found,
                                          const std::vector<Kind>& kinds, size_t most = SIZE_MAX);

}  // namespace quillon::kit::recipe
