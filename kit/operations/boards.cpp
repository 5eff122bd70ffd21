// Boards against a good one.
#include "kit/boards/board_inspector.h"
#include "kit/errors.h"
#include "kit/operations/operation.h"

namespace quillon::kit {
namespace {

struct BoardTool : Tool {
  explicit BoardTool(const InspectionRules& rules) : inspector(rules) {}

  std::vector<Detail> Details() const override {
    return {{"tolerance", kTolerance, double(inspector.Tolerance())}};
  }
  Findings Tell(const Searched& searched) const override;
  Report Page(const std::string& picture) const override;
  void Draw(const Searched& searched, int firstRow, Report& report) const override;

  std::string name;  // the first good board's file
  GreyImage good;    // and its picture
  BoardInspector inspector;
  std::vector<Defect> defects;  // of the last board

 private:
  static constexpr const char* kTolerance = "Tolerance at edges, pixels";
  enum Layers { kMissingBox, kExtraBox, kMissingPixels, kExtraPixels, kNumber };
  static void DrawBox(const Defect& defect, int row, int dx, int dy, Picture& picture);
};

std::unique_ptr<Tool> LoadBoards(const Values& values, const Sources& sources) {
  InspectionRules rules = {.brightMaterial = values.Flag("bright"),
                           .minArea = values.Whole("min_area"),
                           .margin = values.Whole("margin")};
  if (values.Has("tolerance")) rules.tolerance = values.Whole("tolerance");
  auto tool = std::make_unique<BoardTool>(rules);
  for (const auto& name : values.List<std::string>("good")) {
    const bool isFirst = tool->name.empty();
    GreyImage another;
    GreyImage& good = isFirst ? tool->good : another;
    sources.Read(name, good);
    if (isFirst) tool->name = sources.Shown(name);
    try {
      if (isFirst) {
        tool->inspector.Teach(good);
      } else {
        tool->inspector.AddGood(good);
      }
    } catch (const OutOfMemory&) {
      throw;
    } catch (const Failure& failure) {
      throw Failure("'" + sources.Shown(name) + "' " + failure.what());
    }
  }
  return tool;
}

Thing ThingOf(const Defect& defect) {
  const double left = defect.left - 0.5, top = defect.top - 0.5;
  const double right = defect.right + 0.5, bottom = defect.bottom + 0.5;
  return {.area = double(defect.missing + defect.extra),
          .x = (left + right) / 2,
          .y = (top + bottom) / 2,
          .width = right - left,
          .height = bottom - top,
          .left = defect.left,
          .top = defect.top,
          .right = defect.right,
          .bottom = defect.bottom,
          .corners = {left, top, right, top, right, bottom, left, bottom},
          .missing = double(defect.missing),
          .extra = double(defect.extra)};
}

void Inspect(const Call& call) {
  auto& tool = static_cast<BoardTool&>(*call.tool);
  tool.defects = tool.inspector.Inspect(*call.a.grey).defects;
  for (const Defect& defect : tool.defects) call.result.things.push_back(ThingOf(defect));
}

Findings BoardTool::Tell(const Searched& searched) const {
  Findings findings{.key = NameOf(searched.kind),
                    .facts = {{"good", "Good board", name},
                              {"tolerance", kTolerance, int64_t{inspector.Tolerance()}}},
                    .columns = {{"n", "n"},
                                {"kind", "kind"},
                                {"x", "x", 1},
                                {"y", "y", 1},
                                {"left", "left"},
                                {"top", "top"},
                                {"right", "right"},
                                {"bottom", "bottom"},
                                {"missing", "missing"},
                                {"extra", "extra"}},
                    .rows = {}};
  int64_t n = 0;
  for (const Defect& d : defects) {
    findings.rows.push_back({n++, Name(d.Kind()), (d.left + d.right) / 2.0,
                             (d.top + d.bottom) / 2.0, int64_t{d.left}, int64_t{d.top},
                             int64_t{d.right}, int64_t{d.bottom}, int64_t{d.missing},
                             int64_t{d.extra}});
  }
  return findings;
}

Report BoardTool::Page(const std::string&) const {
  Report report{.title = "Boards against " + name,
                .layers = {{"Missing", Tone::kMagenta},
                           {"Extra", Tone::kCyan},
                           {"Missing pixels", Tone::kMagenta},
                           {"Extra pixels", Tone::kCyan},
                           {"Number", Tone::kWhite}},
                .pictures = {}};
  report.pictures.emplace_back("Good: " + name, good);
  return report;
}

// Draws the defects over the tested board, and their boxes over the good one too.
void BoardTool::Draw(const Searched& searched, int firstRow, Report& report) const {
  report.pictures.emplace_back(searched.name, *searched.picture.grey);
  Picture &before = report.pictures.front(), &picture = report.pictures.back();
  for (size_t i = 0; i < defects.size(); ++i) {
    const Defect& d = defects[i];
    const int row = firstRow + static_cast<int>(i);
    DrawBox(d, row, d.shiftX, d.shiftY, before);
    picture.Dots({kMissingPixels, row}, inspector.Pixels(d, Difference::kMissing));
    picture.Dots({kExtraPixels, row}, inspector.Pixels(d, Difference::kExtra));
    DrawBox(d, row, 0, 0, picture);
    picture.Label({kNumber, row}, {d.left + 0.0, d.top + 0.0}, std::to_string(i));
  }
}

void BoardTool::DrawBox(const Defect& d, int row, int dx, int dy, Picture& picture) {
  const int layer = d.Kind() == Difference::kMissing ? kMissingBox : kExtraBox;
  picture.Box({layer, row}, d.left - dx, d.top - dy, d.right - dx, d.bottom - dy);
}

}  // namespace

std::vector<Operation> BoardOperations() {
  static const std::string minArea = std::to_string(InspectionRules().minArea),
                           margin = std::to_string(InspectionRules().margin);
  return {
      {.name = "inspect",
       .family = "boards",
       .summary = "missing and extra material, boxed, against a good board",
       .output = Kind::kDefects,
       .arguments =
           {Files("good", "pictures of good boards: one, and others to learn from").ByPlace(),
            Flag("bright", "material is brighter than its ground, not darker").Or("false"),
            Whole("tolerance", 1, InspectionRules::kMostTolerance,
                  "how far edges may wander; without: learned, 3 pixels from one good board")
                .In("pixels")
                .Optional(),
            Whole("min_area", 1, 1'000'000, "that differ and make a defect")
                .In("pixels")
                .Or(minArea.c_str()),
            Whole("margin", 0, 1000, "that boxes leave around a defect")
                .In("pixels")
                .Or(margin.c_str())},
       .run = Inspect,
       .prepare = LoadBoards,
       .className = "BoardInspector"},
  };
}

}  // namespace quillon::kit
