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
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kit/operations/argument.h"
#include "kit/operations/sources.h"
#include "kit/operations/things.h"
#include "kit/operations/tool.h"
#include "quillon/quillon.h"

namespace quillon::kit {

// What an operation makes: a picture, a colour picture, or things.
struct Content {
  GreyImage picture;
  ColourImage colour;
  std::vector<Thing> things;
};

constexpr const char* kScaleDetail = "mmPerPixel";

// The directions of a thing, which places may be given in: (0, 0) is its centre, x runs in the
// direction of its angle, and a pixel is as large as its scale.
struct Frame {
  Pose pose;
  double scale;
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
  bool takesGrey = false;    // a grey picture too, where a colour picture is the input
  bool movesPixels = false;  // positions in the output are not those of the input
  // It tells how many millimetres a pixel of its output is long, as the detail kScaleDetail.
  bool knowsScale = false;
  // A picture that a command can write besides what it found: the option, and what it does.
  struct {
    const char *option = nullptr, *summary = nullptr;
  } aside = {};
  const char* advice = nullptr;  // the last words of its help
  // Where a language has a class of its own for the operation made ready: that class's name.
  const char* className = nullptr;

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
  // The same once for each frame, with all places brought to where it lies; of operations that find
  // things and have places. The things of all frames are numbered in turn. Where nothing is found
  // for a frame, or there is none, stands a thing without numbers.
  void RunAt(std::span<const std::optional<Frame>> frames, PictureView a, PictureView b,
             Content& result);

  std::vector<Detail> Details() const { return tool_->Details(); }
  const Values& GivenValues() const { return values_; }
  // More of the last picture than the result holds: tool.h. Throw Failure.
  Findings Tell(const Searched& searched) const;
  Report Page(const std::string& picture) const;
  void Draw(const Searched& searched, int firstRow, Report& report) const;
  void Aside(GreyImage& picture) const;

 private:
  void RunWith(const Values& values, PictureView a, PictureView b, Content& result);

  const Operation* operation_;
  Values values_;
  std::unique_ptr<Tool> tool_;                    // a plain one where the operation keeps nothing
  std::vector<std::vector<Point>> regions_ = {};  // outlines of where the last run looked
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
std::vector<Operation> MeasuringOperations();

}  // namespace quillon::kit
