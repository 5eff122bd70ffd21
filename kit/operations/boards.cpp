// Boards against a good one.
#include "kit/errors.h"
#include "kit/operations/operation.h"
#include "kit/operations/queries.h"

namespace quillon::kit {
namespace {

struct BoardTool : Tool {
  std::vector<Detail> Details() const override {
    return {{"tolerance", "Tolerance at edges, pixels", double(inspector->Tolerance())}};
  }
  std::unique_ptr<BoardInspector> inspector;
};

std::unique_ptr<Tool> LoadBoards(const Values& values, const Sources& sources) {
  auto tool = std::make_unique<BoardTool>();
  tool->inspector = TeachBoards(values.List<std::string>("good"), values, sources);
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
  BoardInspector& inspector = *static_cast<BoardTool&>(*call.tool).inspector;
  for (const Defect& defect : inspector.Inspect(*call.a.grey).defects) {
    call.result.things.push_back(ThingOf(defect));
  }
}

}  // namespace

std::unique_ptr<BoardInspector> TeachBoards(const std::vector<std::string>& good,
                                            const Values& values, const Sources& sources) {
  InspectionRules rules = {.brightMaterial = values.Flag("bright"),
                           .minArea = values.Whole("min_area"),
                           .margin = values.Whole("margin")};
  if (values.Has("tolerance")) rules.tolerance = values.Whole("tolerance");
  auto inspector = std::make_unique<BoardInspector>(rules);
  for (const std::string& name : good) {
    GreyImage image;
    sources.Read(name, image);
    try {
      if (&name == &good.front()) {
        inspector->Teach(image);
      } else {
        inspector->AddGood(image);
      }
    } catch (const Failure& failure) {
      throw Failure("'" + sources.Shown(name) + "' " + failure.what());
    }
  }
  return inspector;
}

std::vector<Operation> BoardOperations() {
  return {
      {.name = "inspect",
       .family = "boards",
       .summary = "missing and extra material, boxed, against a good board",
       .output = Kind::kDefects,
       .arguments =
           {Files("good", "pictures of good boards: one, and others to learn from"),
            Flag("bright", "material is brighter than its ground, not darker").Or("false"),
            Whole("tolerance", 1, InspectionRules::kMostTolerance,
                  "how far edges may wander; without: learned, 3 pixels from one good board")
                .In("pixels")
                .Optional(),
            Whole("min_area", 1, 1'000'000, "that differ and make a defect").In("pixels").Or("14"),
            Whole("margin", 0, 1000, "that boxes leave around a defect").In("pixels").Or("8")},
       .run = Inspect,
       .prepare = LoadBoards},
  };
}

}  // namespace quillon::kit
