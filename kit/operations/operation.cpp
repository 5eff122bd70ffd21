#include "kit/operations/operation.h"

#include <algorithm>

#include "kit/errors.h"
#include "kit/operations/places.h"

namespace quillon::kit {
namespace {

// The one error type, whatever went wrong below.
template <class Work>
auto Guarded(const Operation& operation, Work work) {
  try {
    return WithinMemory(operation.name, [&] { return CallExports(work); });
  } catch (const Failure&) {
    throw;
  } catch (const std::exception& error) {
    throw Failure(error.what());
  }
}

void RequirePicture(const Operation& operation, size_t input, PictureView view) {
  const Kind kind = operation.inputs[input];
  const bool isThere = kind == Kind::kColour
                           ? view.HasColour() || (operation.takesGrey && view.HasGrey())
                           : view.HasGrey();
  if (!isThere) throw Failure(WithArticle(kind) + " with pixels is needed");
}

// Where things were looked for, in the legend of a page.
constexpr const char* kRegion = "Region";

}  // namespace

const std::vector<Operation>& Operations() try {
  static const std::vector<Operation> operations = [] {
    std::vector<Operation> all;
    for (auto family :
         {ColorOperations, ThresholdOperations, ArithmeticOperations, GeometryOperations,
          FilterOperations, MorphologyOperations, CalibrationOperations, BlobOperations,
          MatchingOperations, BoardOperations, MeasuringOperations}) {
      for (Operation& operation : family()) all.push_back(std::move(operation));
    }
    return all;
  }();
  return operations;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the table of operations");
}

const Operation* FindOperation(std::string_view name) {
  const auto& all = Operations();
  const auto found =
      std::find_if(all.begin(), all.end(), [&](const Operation& row) { return row.name == name; });
  return found == all.end() ? nullptr : &*found;
}

Values ReadValues(const Operation& operation, const Json& given) try {
  std::string problems;
  const auto wrong = [&](const std::string& name, const std::string& what) {
    problems += (problems.empty() ? "" : "; ") + ("argument '" + name + "': ") + what;
  };
  const auto find = [&](const std::string& name) {
    const auto found = given.find(name);
    return found == given.end() ? nullptr : &*found;
  };
  Values values = ReadValues(operation.arguments, find, wrong);
  for (const auto& item : given.items()) {
    const bool isKnown = std::any_of(operation.arguments.begin(), operation.arguments.end(),
                                     [&](const Argument& row) { return item.key() == row.name; });
    if (!isKnown) wrong(item.key(), "has no meaning here");
  }
  if (!problems.empty()) throw Failure(std::string(operation.name) + ": " + problems);
  return values;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the values of arguments");
}

ReadyOperation::ReadyOperation(const Operation& operation, Values values, const Sources& sources)
    : operation_(&operation), values_(std::move(values)) {
  tool_ = Guarded(operation, [&] {
    return operation.prepare ? operation.prepare(values_, sources) : std::make_unique<Tool>();
  });
}

// Where an export does nothing, the result of the image before must not stay.
void ReadyOperation::RunWith(const Values& values, PictureView a, PictureView b,
                             Content& result) try {
  result.picture.Destroy();
  result.colour.Destroy();
  result.things.clear();
  RequirePicture(*operation_, 0, a);
  if (operation_->InputCount() == 2) RequirePicture(*operation_, 1, b);
  const bool isColour = operation_->inputs[0] == Kind::kColour && a.HasColour();
  RequirePlacesIn(*operation_, values, isColour ? a.colour->width : a.grey->width,
                  isColour ? a.colour->height : a.grey->height);
  Guarded(*operation_, [&] { operation_->run({values, a, b, result, tool_.get()}); });
  int place = 0;
  for (Thing& thing : result.things) {
    if (thing.number < 0) thing.number = place;
    ++place;
  }
  const bool isEmpty = (operation_->output == Kind::kPicture && !result.picture.bits) ||
                       (operation_->output == Kind::kColour && !result.colour.bits);
  if (isEmpty) {
    throw Failure("nothing came out; the picture may be too small");
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory(operation_->name);
}

void ReadyOperation::Run(PictureView a, PictureView b, Content& result) {
  regions_ = Guarded(*operation_, [&] { return OutlinesOf(*operation_, values_); });
  RunWith(values_, a, b, result);
}

// Where something comes out for none or several frames, results could not be told apart by their
// number: a thing without numbers keeps the place of one that was not found.
void ReadyOperation::RunAt(std::span<const std::optional<Frame>> frames, PictureView a,
                           PictureView b, Content& result) try {
  std::vector<Thing> found;
  regions_.clear();
  for (const std::optional<Frame>& frame : frames) {
    result.things.clear();
    if (frame) {
      const Values placed = PlacedIn(*operation_, values_, *frame);
      for (auto& outline : OutlinesOf(*operation_, placed)) regions_.push_back(std::move(outline));
      RunWith(placed, a, b, result);
    }
    if (result.things.empty()) result.things.push_back(NothingFound());
    for (Thing& thing : result.things) {
      thing.number = static_cast<int>(found.size());
      found.push_back(thing);
    }
  }
  result.things = std::move(found);
} catch (const std::bad_alloc&) {
  throw OutOfMemory(operation_->name);
}

Findings ReadyOperation::Tell(const Searched& searched) const {
  return Guarded(*operation_, [&] { return tool_->Tell(searched); });
}

Report ReadyOperation::Page(const std::string& picture) const {
  return Guarded(*operation_, [&] {
    Report report = tool_->Page(picture);
    if (!OutlinesOf(*operation_, values_).empty()) {
      report.layers.push_back({kRegion, Tone::kGreen});
    }
    return report;
  });
}

void ReadyOperation::Draw(const Searched& searched, int firstRow, Report& report) const {
  Guarded(*operation_, [&] {
    tool_->Draw(searched, firstRow, report);
    const auto layer = std::find_if(report.layers.begin(), report.layers.end(),
                                    [](const Layer& row) { return row.name == kRegion; });
    if (layer == report.layers.end()) return;
    const Mark mark = {static_cast<int>(layer - report.layers.begin())};
    for (const auto& outline : regions_) report.pictures.back().Polygon(mark, outline);
  });
}

void ReadyOperation::Aside(GreyImage& picture) const {
  Guarded(*operation_, [&] { tool_->Aside(picture); });
}

}  // namespace quillon::kit
