// A recipe: steps that turn an image into pictures, blobs, matches and defects, and measurements
// with limits that decide whether the image passes.
//
//   {
//     "name": "Count the coins",
//     "steps": [
//       {"name": "bright", "operation": "otsu", "input": "image"},
//       {"name": "coins", "operation": "blobs", "input": "bright", "min_area": 50}
//     ],
//     "measurements": [
//       {"name": "coins", "input": "coins", "value": "count", "min": 24, "max": 24}
//     ]
//   }
//
// A recipe is checked whole before anything is done with it, and all that is wrong is told at once.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/operations/operation.h"
#include "kit/recipe/measurement.h"

namespace quillon::kit::recipe {

// Something that has a name: the image, or a step's output.
struct Slot {
  std::string name;
  Kind kind;
  // Positions in contents of one frame mean the same pixels; 0 is the image's.
  int frame;
  // Whether it is known how long a pixel is there: by the recipe, or by the step that made it.
  bool hasScale = false;
};

constexpr int kImageSlot = 0, kColourSlot = 1;  // "image" and "color": every recipe has them

struct Step {
  std::string name;
  const Operation* operation = nullptr;
  Values values = {};
  std::vector<int> inputs = {};  // slots
  int output = 0;
  // Where they differ from image to image, such as the good board of each. Throws Failure.
  std::function<Values(const std::string& image)> valuesOf = {};
  // The slots of the things in whose own directions places are given: none, one, or two that cross.
  std::vector<int> follows = {};
};

struct Recipe {
  std::string name, note;
  std::vector<Slot> slots;
  std::vector<Step> steps;
  std::vector<Measurement> measurements;
  double mmPerPixel = 0;  // of the image; 0: not known
  std::string canonical;  // the same text for recipes that do the same
};

constexpr double kLeastScale = 1e-9, kMostScale = 1e6;  // millimetres per pixel

constexpr size_t kMostSteps = 200, kMostMeasurements = 200;

// One thing that is wrong: "step 'bright', field 'above': 256 is not ...".
using Problems = std::vector<std::string>;

// Checks a recipe and makes it ready, from nothing but its bytes: no file is opened, any bytes may
// be given. The recipe can be used when there are no problems.
Recipe ParseRecipe(std::string_view text, Problems& problems);

// The same, but throws Failure with all problems; `name` says in the message whose they are.
Recipe MakeRecipe(std::string_view text, const std::string& name = "recipe");

// The same from a file; throws Failure with the file's name and all problems.
Recipe ReadRecipe(const std::string& path);

}  // namespace quillon::kit::recipe
