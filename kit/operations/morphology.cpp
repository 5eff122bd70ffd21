// Dilation, erosion and what is composed of them, by rectangles, diamonds and circles.
//
// Dilations, erosions, openings and closings run in place, where diamonds and circles give true
// openings and the last rows keep the picture. Gradients and top-hats run into a second picture,
// where no image is left behind; two of them change their source, which is a copy therefore.
#include "kit/errors.h"
#include "kit/operations/operation.h"

namespace quillon::kit {
namespace {

struct InPlace {
  template <class Function>
  static void Run(const Call& call, Function function) {
    call.result.picture.CopyFrom(&call.a.picture);
    function(&call.result.picture, &call.result.picture);
  }
};

struct FromCopy {
  template <class Function>
  static void Run(const Call& call, Function function) {
    GreyImage source;
    source.CopyFrom(&call.a.picture);
    function(&source, &call.result.picture);
  }
};

template <class Way, auto function>
void RunBox(const Call& call) {
  Way::Run(call, [&](GreyImage* source, GreyImage* result) {
    function(source, result, call.values.Whole("horizontal"), call.values.Whole("vertical"));
  });
}

template <class Way, auto function>
void RunStar(const Call& call) {
  Way::Run(call, [&](GreyImage* source, GreyImage* result) {
    function(source, result, call.values.Whole("radius"));
  });
}

// One operation by a box, a diamond and a circle.
struct ByEachShape {
  const char* summary;
  std::array<const char*, 3> names;
  std::array<void (*)(const Call&), 3> runs;
};

template <class Way, auto box, auto diamond, auto circle>
constexpr std::array<void (*)(const Call&), 3> kRuns = {RunBox<Way, box>, RunStar<Way, diamond>,
                                                        RunStar<Way, circle>};

constexpr ByEachShape kOperations[] = {
    {"the largest value under the element",
     {"dilate", "dilate-diamond", "dilate-circle"},
     kRuns<InPlace, IxDilation, IxDilationDiamond, IxDilationCircle>},
    {"the smallest value under the element",
     {"erode", "erode-diamond", "erode-circle"},
     kRuns<InPlace, IxErosion, IxErosionDiamond, IxErosionCircle>},
    {"erosion, then dilation: removes what is smaller and bright",
     {"open", "open-diamond", "open-circle"},
     kRuns<InPlace, IxOpening, IxOpeningDiamond, IxOpeningCircle>},
    {"dilation, then erosion: removes what is smaller and dark",
     {"close", "close-diamond", "close-circle"},
     kRuns<InPlace, IxClosing, IxClosingDiamond, IxClosingCircle>},
    {"dilation minus erosion: outlines",
     {"gradient", "gradient-diamond", "gradient-circle"},
     kRuns<FromCopy, IxMorphGradient, IxMorphGradientDiamond, IxMorphGradientCircle>},
    {"the picture minus its opening: what is smaller and bright",
     {"white-top-hat", "white-top-hat-diamond", "white-top-hat-circle"},
     kRuns<FromCopy, IxMorphWhiteTopHat, IxMorphWhiteTopHatDiamond, IxMorphWhiteTopHatCircle>},
    {"the closing minus the picture: what is smaller and dark",
     {"black-top-hat", "black-top-hat-diamond", "black-top-hat-circle"},
     kRuns<FromCopy, IxMorphBlackTopHat, IxMorphBlackTopHatDiamond, IxMorphBlackTopHatCircle>},
};

}  // namespace

std::vector<RecipeOperation> MorphologyOperations() {
  constexpr double kMost = 32767;
  const std::vector<Argument> sides = {
      Whole("horizontal", 0, kMost, "the element is 2 horizontal + 1 wide"),
      Whole("vertical", 0, kMost, "and 2 vertical + 1 high")};
  const std::vector<Argument> radius = {Whole("radius", 0, kMost, "of the element")};
  std::vector<RecipeOperation> rows;
  for (const ByEachShape& each : kOperations) {
    for (size_t shape = 0; shape < each.names.size(); ++shape) {
      rows.push_back({.name = each.names[shape],
                      .family = "morphology",
                      .summary = each.summary,
                      .inputs = {Kind::kPicture, Kind::kNone},
                      .output = Kind::kPicture,
                      .arguments = shape == 0 ? sides : radius,
                      .run = each.runs[shape]});
    }
  }
  return rows;
}

}  // namespace quillon::kit
