// What a step of a recipe can do. Everything that knows the operations - the check of a recipe, its
// schema, the documentation and the inspection itself - reads them from the one table.
#pragma once

#include <array>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "kit/operations/argument.h"
#include "quillon/quillon.h"

namespace quillon::kit {

enum class Kind { kNone, kPicture, kColour, kBlobs, kMatches };

// "picture", "colour picture", "blobs", "matches"
const char* NameOf(Kind kind);
// "a picture", "blobs"
std::string WithArticle(Kind kind);

// A blob or a match, with what can be measured of it; 0 where that does not apply.
struct Thing {
  double area = 0, x = 0, y = 0, width = 0, height = 0, angle = 0, scale = 0, score = 0, mean = 0;
  int left = 0, top = 0, right = 0, bottom = 0;  // a blob's outermost pixels
  std::array<double, 8> corners = {};            // of the turned rectangle, x and y in turn
};

// The content of one name of a recipe, for one image.
struct Content {
  GreyImage picture;
  ColourImage colour;
  std::vector<Thing> things;
};

// What a step keeps from image to image: a taught template, parameters, scratch memory.
struct Tool {
  virtual ~Tool() = default;
};

struct Call {
  const Values& values;
  Content& a;  // the first input
  Content& b;  // the second, where there are two
  Content& result;
  Tool* tool;
};

struct RecipeOperation {
  const char* name;
  const char* family;
  const char* summary;
  std::array<Kind, 2> inputs;  // the second is kNone where there is one
  Kind output;
  std::vector<Argument> arguments;
  // Reads the result's picture, colour or things; leaves the inputs alone. Throws Failure.
  void (*run)(const Call& call);
  // Makes the step's tool, once for each thread. File names are relative to the folder of the
  // recipe.
  std::unique_ptr<Tool> (*prepare)(const Values& values, const std::string& folder) = nullptr;
  bool movesPixels = false;  // positions in the output are not those of the input

  size_t InputCount() const { return inputs[1] == Kind::kNone ? 1 : 2; }
};

const std::vector<RecipeOperation>& Operations();

// Null where there is none of this name.
const RecipeOperation* FindOperation(const std::string& name);

// The parts of the table, a family each.
std::vector<RecipeOperation> PointOperations();
std::vector<RecipeOperation> FilterOperations();
std::vector<RecipeOperation> MorphologyOperations();
std::vector<RecipeOperation> ObjectOperations();
std::vector<RecipeOperation> CalibrationOperations();

// A file name of a recipe as a path.
std::string InFolder(const std::string& folder, const std::string& name);

}  // namespace quillon::kit
