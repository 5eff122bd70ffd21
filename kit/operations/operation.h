// The operations: the one table that all fronts read. A command, a step of a recipe, its schema, a
// function of a module, and the documentation of each are made from a row; nothing above this room
// names an operation but its tests and documents.
//
//   const Operation* mean = FindOperation("mean");
//   ReadyOperation ready(*mean, ReadValues(*mean, {{"size", 9}}));
//   Content smooth;
//   ready.Run({.grey = &image}, {}, smooth);    // smooth.picture
#pragma once

#include <array>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "kit/operations/argument.h"
#include "kit/operations/sources.h"
#include "quillon/quillon.h"

namespace quillon::kit {

enum class Kind { kNone, kPicture, kColour, kBlobs, kMatches, kDefects };

// "picture", "colour picture", "blobs", "matches", "defects"
const char* NameOf(Kind kind);
// "a picture", "blobs"
std::string WithArticle(Kind kind);
inline bool IsPicture(Kind kind) { return kind == Kind::kPicture || kind == Kind::kColour; }

// A blob, a match or a defect, with what can be measured of it; 0 where that does not apply.
struct Thing {
  double area = 0, x = 0, y = 0, width = 0, height = 0, angle = 0, scale = 0, score = 0, mean = 0;
  int left = 0, top = 0, right = 0, bottom = 0;  // the outermost pixels of a blob or a defect
  std::array<double, 8> corners = {};            // of the turned rectangle, x and y in turn
  double missing = 0, extra = 0;                 // pixels of a defect
};

// What an operation makes: a picture, a colour picture, or things.
struct Content {
  GreyImage picture;
  ColourImage colour;
  std::vector<Thing> things;
};

// Something that an operation can tell besides its result.
struct Detail {
  const char* key;
  const char* heading;
  double value;
};

// What an operation keeps from image to image: a taught template, parameters, scratch memory.
struct Tool {
  virtual ~Tool() = default;
  // Of the last image.
  virtual std::vector<Detail> Details() const { return {}; }
};

struct Call {
  const Values& values;
  PictureView a, b;  // the second where there are two
  Content& result;
  Tool* tool;
};

// An exported function that an operation calls.
struct Export {
  const char* name;               // "IxSobel"
  const char* summary = nullptr;  // that of the operation where there is none
};

struct Operation {
  const char* name;     // words with hyphens between; underscores where a language wants them
  const char* family;   // the heading under which lists show it
  const char* summary;  // one line
  std::array<Kind, 2> inputs = {Kind::kPicture,
                                Kind::kNone};  // the second is kNone where it is one
  Kind output = Kind::kPicture;
  std::vector<Argument> arguments = {};
  std::vector<Export> exports = {};
  // Makes the result's picture, colour or things; leaves the inputs alone. Throws Failure.
  void (*run)(const Call& call) = nullptr;
  // Makes the tool, once for each thread.
  std::unique_ptr<Tool> (*prepare)(const Values& values, const Sources& sources) = nullptr;
  bool movesPixels = false;  // positions in the output are not those of the input

  size_t InputCount() const { return inputs[1] == Kind::kNone ? 1 : 2; }
};

const std::vector<Operation>& Operations();

// Null where there is none of this name.
const Operation* FindOperation(std::string_view name);

// The values for an operation from an object of those that are given. Throws Failure with all that
// is wrong.
Values ReadValues(const Operation& operation, const Json& given);

// An operation with its values, ready for one picture after the other: one object for each thread.
class ReadyOperation {
 public:
  // Teaches templates and loads parameters. Throws Failure.
  ReadyOperation(const Operation& operation, Values values, const Sources& sources = {});

  // What `result` held before is released. Throws Failure when nothing comes out.
  void Run(PictureView a, PictureView b, Content& result);

  std::vector<Detail> Details() const;
  const Values& GivenValues() const { return values_; }

 private:
  const Operation* operation_;
  Values values_;
  std::unique_ptr<Tool> tool_;
};

// The parts of the table, a family each.
std::vector<Operation> ColorOperations();
std::vector<Operation> ThresholdOperations();
std::vector<Operation> ArithmeticOperations();
std::vector<Operation> GeometryOperations();
std::vector<Operation> FilterOperations();
std::vector<Operation> MorphologyOperations();
std::vector<Operation> CalibrationOperations();
std::vector<Operation> BlobOperations();
std::vector<Operation> MatchingOperations();
std::vector<Operation> BoardOperations();

}  // namespace quillon::kit
