// The kit for JavaScript: the table of operations, recipes and their steps, the finder's teaching,
// files' bytes to pictures and back, drawn samples. Files that recipes name lie in the module's own
// file system, which is memory.
#include <chrono>
#include <memory>
#include <optional>

#include "bindings.h"
#include "kit/boards/board_inspector.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/recipe/inspector.h"
#include "kit/recipe/objects.h"
#include "kit/recipe/recipe.h"
#include "kit/recipe/results.h"
#include "kit/recipe/run_pages.h"
#include "kit/samples/dot_grid.h"
#include "kit/samples/sample_board.h"
#include "kit/samples/tray.h"
#include "kit/search/part_search.h"

namespace quillon::web {
namespace {

using kit::Json;
namespace recipe = kit::recipe;

kit::PictureView ViewOf(const void* image, bool isColour) {
  if (isColour) return {.colour = static_cast<const ColourImage*>(image)};
  return {.grey = static_cast<const GreyImage*>(image)};
}

// ---- the table ----------------------------------------------------------------------------------

const char* NameOf(kit::Argument::Type type) {
  using enum kit::Argument::Type;
  switch (type) {
    case kWhole:
      return "whole";
    case kOdd:
      return "odd";
    case kNumber:
      return "number";
    case kFlag:
      return "flag";
    case kChoice:
      return "choice";
    case kFile:
      return "file";
    case kFiles:
      return "files";
    case kRange:
      return "range";
    case kWholeRange:
      return "whole-range";
    case kWholes:
      return "wholes";
    case kPoints:
      return "points";
    case kRectangle:
      return "rectangle";
    case kBox:
      return "box";
    case kRing:
      return "ring";
  }
  return "";
}

const char* NameOf(kit::Argument::Holds holds) {
  using enum kit::Argument::Holds;
  return holds == kPicture ? "picture" : holds == kTemplate ? "template" : "parameters";
}

Json ToJson(const kit::Argument& argument) {
  Json json = {{"name", argument.name},
               {"type", NameOf(argument.type)},
               {"summary", argument.summary},
               {"expected", argument.Expected()},
               {"min", argument.min},
               {"max", argument.max},
               {"required", argument.IsRequired()}};
  if (!argument.choices.empty()) json["choices"] = argument.choices;
  if (argument.IsOfFiles()) json["holds"] = NameOf(argument.holds);
  if (argument.count) json["count"] = argument.count;
  if (argument.unit) json["unit"] = argument.unit;
  if (argument.excludes) json["excludes"] = argument.excludes;
  if (argument.HasDefault()) json["default"] = Json::parse(argument.otherwise);
  return json;
}

Json ToJson(const kit::Operation& operation) {
  Json inputs = Json::array(), arguments = Json::array(), exports = Json::array();
  for (size_t i = 0; i < operation.InputCount(); ++i) inputs.push_back(NameOf(operation.inputs[i]));
  for (const kit::Argument& argument : operation.arguments) arguments.push_back(ToJson(argument));
  for (const kit::Export& row : operation.exports) exports.push_back(row.name);
  return {{"name", operation.name},
          {"family", operation.family},
          {"summary", operation.summary},
          {"inputs", std::move(inputs)},
          {"output", NameOf(operation.output)},
          {"arguments", std::move(arguments)},
          {"exports", std::move(exports)},
          {"knowsScale", operation.knowsScale}};
}

// "px", "px2", "deg"; nothing for plain numbers.
Json UnitToJson(const recipe::Unit& unit) { return unit.IsPlain() ? Json("") : Json(NameOf(unit)); }

Json Table() {
  Json operations = Json::array(), quantities = Json::array(), whiches = Json::array(),
       betweens = Json::array();
  for (const kit::Operation& operation : kit::Operations()) operations.push_back(ToJson(operation));
  for (const kit::Quantity& quantity : kit::Quantities()) {
    Json inputs = Json::array();
    for (const kit::Kind kind : quantity.inputs) inputs.push_back(NameOf(kind));
    quantities.push_back({{"name", quantity.name},
                          {"summary", quantity.summary},
                          {"inputs", std::move(inputs)},
                          {"unit", UnitToJson(recipe::UnitOf(quantity))},
                          {"decimals", quantity.decimals}});
  }
  for (const recipe::Between& between : recipe::Betweens()) {
    betweens.push_back(
        {{"name", between.name}, {"summary", between.summary}, {"unit", UnitToJson(between.unit)}});
  }
  for (const recipe::NamedWhich& which : recipe::Whiches()) {
    whiches.push_back({{"name", which.name}, {"summary", which.summary}});
  }
  return {{"version", QUILLON_VERSION},          {"formats", kit::kReadFormats},
          {"operations", std::move(operations)}, {"quantities", std::move(quantities)},
          {"betweens", std::move(betweens)},     {"whiches", std::move(whiches)}};
}

// ---- recipes ------------------------------------------------------------------------------------

Json ThingsToJson(kit::Kind kind, const std::vector<kit::Thing>& things, const recipe::Step& step,
                  int frame) {
  const std::vector<kit::Column> columns = recipe::ObjectColumns({kind});
  Json rows = Json::array();
  size_t i = 0;
  for (const auto& row : recipe::ObjectRows({{&step, &things, frame}}, {kind})) {
    Json json = kit::RowToJson(columns, row, true);
    json.erase("step");
    json["corners"] = things[i++].corners;
    rows.push_back(std::move(json));
  }
  return rows;
}

// A recipe that is ready, and what it found in the last image.
class Inspection {
 public:
  Inspection(std::string_view text, const std::string& folder)
      : recipe_(recipe::MakeRecipe(text)), inspector_(recipe_, kit::Sources(folder)) {}

  Json Inspect(kit::PictureView picture, const std::string& name) {
    return ToJson(picture.colour ? inspector_.Inspect(*picture.colour, name)
                                 : inspector_.Inspect(*picture.grey, name));
  }

  Json InspectFile(const std::string& path) { return ToJson(inspector_.Inspect(path)); }

  Json InspectBytes(std::span<const unsigned char> file, const std::string& name) {
    return ToJson(inspector_.InspectFile(file, name));
  }

  // Pages as `quillon run --out` writes them: one for each image that was inspected, then an index.
  void BeginPages(const std::string& folder) {
    pages_.emplace(recipe_, folder);
    records_.clear();
  }
  bool AddPage() {
    if (!pages_) throw kit::Failure("no pages were begun");
    const bool hasPictures = pages_->Write(records_.size(), last_, inspector_);
    records_.push_back(last_);
    return hasPictures;
  }
  void EndPages() {
    if (!pages_) throw kit::Failure("no pages were begun");
    pages_->WriteIndex(records_);
    pages_.reset();
  }

  const kit::Content& Of(int slot) const { return inspector_.Of(slot); }

 private:
  Json ToJson(recipe::ImageRecord record) {
    last_ = record;
    if (record.error.empty()) {
      record.objects = ObjectRows(AllFound(recipe_, inspector_), KindsOfThings(recipe_));
    }
    Json measurements = Json::array(), steps = Json::array();
    for (size_t i = 0; i < record.values.size(); ++i) {
      const recipe::Measurement& measurement = recipe_.measurements[i];
      const auto& value = record.values[i];
      measurements.push_back({{"name", measurement.name},
                              {"value", value ? Json(*value) : Json()},
                              {"shown", value ? recipe::Shown(measurement, value) : "none"},
                              {"passes", Passes(measurement, value)}});
    }
    for (size_t i = 0; i < recipe_.steps.size(); ++i) steps.push_back(StepToJson(i));
    // A line of results, as `quillon run` writes it with all objects.
    return {{"line", ToLine(recipe_, record, true)},
            {"verdict", NameOf(record.verdict)},
            {"error", record.error},
            {"measurements", std::move(measurements)},
            {"steps", std::move(steps)}};
  }

  Json StepToJson(size_t number) const {
    const recipe::Step& step = recipe_.steps[number];
    const kit::Content& content = inspector_.Of(step.output);
    const kit::Kind kind = step.operation->output;
    Json json = {{"name", step.name},
                 {"slot", step.output},
                 {"kind", NameOf(kind)},
                 {"milliseconds", inspector_.Milliseconds(number)}};
    const int frame = recipe_.slots[static_cast<size_t>(step.inputs[0])].frame;
    if (!IsPicture(kind)) {
      json["frame"] = frame;
      json["things"] = ThingsToJson(kind, content.things, step, frame);
    } else {
      json["frame"] = recipe_.slots[static_cast<size_t>(step.output)].frame;
    }
    Json details = Json::array();
    for (const kit::Detail& detail : inspector_.Details(number)) {
      details.push_back({{"heading", detail.heading}, {"value", detail.value}});
    }
    json["details"] = std::move(details);
    return json;
  }

  recipe::Recipe recipe_;
  recipe::Inspector inspector_;
  recipe::ImageRecord last_;
  std::optional<recipe::Pages> pages_;
  std::vector<recipe::ImageRecord> records_;  // of the pages
};

// ---- operations alone ---------------------------------------------------------------------------

Json Run(const char* name, const char* values, kit::PictureView a, kit::PictureView b,
         kit::Content& result) {
  const kit::Operation* operation = kit::FindOperation(name);
  if (!operation) throw kit::Failure("there is no operation '" + std::string(name) + "'");
  kit::ReadyOperation ready(*operation, kit::ReadValues(*operation, Json::parse(values)));
  ready.Run(a, b, result);
  if (IsPicture(operation->output)) return {{"kind", NameOf(operation->output)}};
  const recipe::Step step = {.name = name, .operation = operation};
  return {{"kind", NameOf(operation->output)},
          {"things", ThingsToJson(operation->output, result.things, step, 0)}};
}

// ---- teaching -----------------------------------------------------------------------------------

constexpr size_t kMostPoints = 4000;  // that are told

// Strongest first where edges, so that the first ones are those to show.
Json PointsOf(const finder::ModelLevel& level) {
  Json points = Json::array();
  for (const finder::ModelPoint& point : level.points) {
    if (points.size() == kMostPoints) break;
    points.push_back({point.u, point.v});
  }
  return points;
}

Json ToJson(const finder::Model& model) {
  return {{"by", kit::NameOf(model.way)},
          {"width", model.width},
          {"height", model.height},
          {"points", PointsOf(model.level[0])},
          {"pointCount", model.level[0].points.size()},
          {"likeness", model.likeness},
          {"symmetry", model.symmetry},
          {"doubts", kit::DoubtsOf(model)}};
}

}  // namespace

// ---- what JavaScript calls ----------------------------------------------------------------------

QUILLON_WEB const Reply* KitTable() { return Answer(Table); }

// All that is wrong with a recipe.
QUILLON_WEB const Reply* KitCheck(const char* text) {
  return Answer([&] {
    recipe::Problems problems;
    recipe::ParseRecipe(text, problems);
    return Json(problems);
  });
}

// {"inspection": address}
QUILLON_WEB const Reply* KitOpen(const char* text, const char* folder) {
  return Answer([&] {
    return Json{{"inspection", reinterpret_cast<uintptr_t>(new Inspection(text, folder))}};
  });
}
QUILLON_WEB void KitClose(Inspection* inspection) { delete inspection; }

QUILLON_WEB const Reply* KitInspect(Inspection* inspection, const void* image, bool isColour,
                                    const char* name) {
  return Answer([&] { return inspection->Inspect(ViewOf(image, isColour), name); });
}
QUILLON_WEB const Reply* KitInspectFile(Inspection* inspection, const char* path) {
  return Answer([&] { return inspection->InspectFile(path); });
}

// The bytes of an image file; one that is none has its verdict too.
QUILLON_WEB const Reply* KitInspectBytes(Inspection* inspection, const unsigned char* bytes,
                                         size_t size, const char* name) {
  return Answer([&] { return inspection->InspectBytes({bytes, size}, name); });
}

QUILLON_WEB const Reply* KitBeginPages(Inspection* inspection, const char* folder) {
  return Answer([&] {
    inspection->BeginPages(folder);
    return Json::object();
  });
}
// The page of the image that was inspected last.
QUILLON_WEB const Reply* KitAddPage(Inspection* inspection) {
  return Answer([&] { return Json{{"hasPictures", inspection->AddPage()}}; });
}
QUILLON_WEB const Reply* KitEndPages(Inspection* inspection) {
  return Answer([&] {
    inspection->EndPages();
    return Json::object();
  });
}

// The picture of a slot, which the next image changes; null where there is none.
QUILLON_WEB const void* KitPicture(const Inspection* inspection, int slot, bool isColour) {
  const kit::Content& content = inspection->Of(slot);
  if (isColour) return content.colour.bits ? &content.colour : nullptr;
  return content.picture.bits ? &content.picture : nullptr;
}

// One operation; the picture it makes goes to the image of its kind.
QUILLON_WEB const Reply* KitRun(const char* name, const char* values, const void* a, bool isColourA,
                                const void* b, bool isColourB, GreyImage* grey,
                                ColourImage* colour) {
  return Answer([&] {
    kit::Content result;
    Json json = Run(name, values, ViewOf(a, isColourA), ViewOf(b, isColourB), result);
    if (result.picture.bits) grey->CopyFrom(&result.picture);
    if (result.colour.bits) colour->CopyFrom(&result.colour);
    return json;
  });
}

// What the file says in grey and, where it has any, in colour.
QUILLON_WEB const Reply* KitDecode(const unsigned char* bytes, size_t size, const char* name,
                                   int depth, GreyImage* grey, ColourImage* colour) {
  return Answer([&] {
    Json notes = Json::array();
    const kit::Reading reading = {.depth = depth,
                                  .note = [&](const std::string& note) { notes.push_back(note); }};
    DecodeImage({bytes, size}, name, *grey, *colour, reading);
    return Json{{"notes", std::move(notes)}};
  });
}

QUILLON_WEB const Reply* KitEncodePng(const void* image, bool isColour) {
  return Answer([&] {
    const kit::PictureView view = ViewOf(image, isColour);
    return isColour ? kit::EncodePng(*view.colour) : kit::EncodePng(*view.grey);
  });
}

// {"part": address ...}: what the finder thinks of a template. The mask may be null.
QUILLON_WEB const Reply* KitTeach(const GreyImage* pattern, const GreyImage* mask, const char* name,
                                  const char* by) {
  return Answer([&] {
    kit::PartModel model = kit::TeachPart(name, *pattern, kit::WayNamed(by), {mask});
    Json json = ToJson(*model);
    json["part"] = reinterpret_cast<uintptr_t>(model.release());
    return json;
  });
}
QUILLON_WEB const Reply* KitSavePart(const finder::Model* part, const char* path) {
  return Answer([&] {
    kit::WritePart(path, *part);
    return Json::object();
  });
}
QUILLON_WEB void KitForgetPart(const finder::Model* part) { delete part; }

// A drawn picture: "tray", "bracket", "board", "tested board" or "dot grid". Tells what is on it.
QUILLON_WEB const Reply* KitSample(const char* name, unsigned seed, int width, int height,
                                   GreyImage* grey, ColourImage* colour) {
  return Answer([&]() -> Json {
    const std::string sample = name;
    Json truth = Json::array();
    if (sample == "tray") {
      std::vector<kit::DrawnPart> parts;
      kit::DrawTray(seed, width, height, *colour, parts);
      for (const kit::DrawnPart& part : parts) {
        truth.push_back({{"kind", part.kind}, {"area", part.area}, {"x", part.x}, {"y", part.y}});
      }
    } else if (sample == "bracket") {
      kit::DrawBracket(*colour);
    } else if (sample == "board") {
      kit::SampleBoard(1, width, height)
          .DrawGood(*grey, {}, seed == 0 ? 0 : 0.4 * (seed % 3) - 0.4);
    } else if (sample == "tested board") {
      constexpr int kDefects = 6;
      const kit::BoardPose pose = {.x = 2.0 + seed, .y = -1.0, .degrees = 0.4};
      for (const kit::DrawnDefect& defect :
           kit::SampleBoard(1, width, height).DrawTested(kDefects, *grey, pose)) {
        truth.push_back({{"kind", defect.name}, {"left", defect.left}, {"top", defect.top}});
      }
    } else if (sample == "dot grid") {
      std::vector<kit::Point> centres;
      kit::DrawDotGrid(width, height, *grey, centres);
      for (const kit::Point& centre : centres) truth.push_back({centre.x, centre.y});
    } else {
      throw kit::Failure("there is no sample '" + sample + "'");
    }
    return truth;
  });
}

}  // namespace quillon::web
