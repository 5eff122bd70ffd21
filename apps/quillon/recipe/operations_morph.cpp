// Dilation, erosion and what is composed of them, by rectangles, diamonds and circles.
//
// Dilations, erosions, openings and closings run in place, where diamonds and circles give true
// openings and the last rows keep the picture. Gradients and top-hats run into a second picture,
// where no image is left behind; two of them change their source, which is a copy therefore.
#include "errors.h"
#include "operation.h"

namespace quillon::app::recipe {
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

// One row for each shape of the element.
template <class Way, auto box, auto diamond, auto circle>
void Add(std::vector<RecipeOperation>& rows, std::array<const char*, 3> names,
         const char* summary) {
  constexpr std::array<Kind, 2> kPicture = {Kind::kPicture, Kind::kNone};
  constexpr double kMost = 32767;
  const Argument radius = Whole("radius", 0, kMost, "of the element");
  rows.push_back({names[0],
                  "morphology",
                  summary,
                  kPicture,
                  Kind::kPicture,
                  {Whole("horizontal", 0, kMost, "the element is 2 horizontal + 1 wide"),
                   Whole("vertical", 0, kMost, "and 2 vertical + 1 high")},
                  RunBox<Way, box>});
  rows.push_back(
      {names[1], "morphology", summary, kPicture, Kind::kPicture, {radius}, RunStar<Way, diamond>});
  rows.push_back(
      {names[2], "morphology", summary, kPicture, Kind::kPicture, {radius}, RunStar<Way, circle>});
}

}  // namespace

std::vector<RecipeOperation> MorphologyOperations() {
  std::vector<RecipeOperation> rows;
  Add<InPlace, IxDilation, IxDilationDiamond, IxDilationCircle>(
      rows, {"dilate", "dilate-diamond", "dilate-circle"}, "the largest value under the element");
  Add<InPlace, IxErosion, IxErosionDiamond, IxErosionCircle>(
      rows, {"erode", "erode-diamond", "erode-circle"}, "the smallest value under the element");
  Add<InPlace, IxOpening, IxOpeningDiamond, IxOpeningCircle>(
      rows, {"open", "open-diamond", "open-circle"},
      "erosion, then dilation: removes what is smaller and bright");
  Add<InPlace, IxClosing, IxClosingDiamond, IxClosingCircle>(
      rows, {"close", "close-diamond", "close-circle"},
      "dilation, then erosion: removes what is smaller and dark");
  Add<FromCopy, IxMorphGradient, IxMorphGradientDiamond, IxMorphGradientCircle>(
      rows, {"gradient", "gradient-diamond", "gradient-circle"},
      "dilation minus erosion: outlines");
  Add<FromCopy, IxMorphWhiteTopHat, IxMorphWhiteTopHatDiamond, IxMorphWhiteTopHatCircle>(
      rows, {"white-top-hat", "white-top-hat-diamond", "white-top-hat-circle"},
      "the picture minus its opening: what is smaller and bright");
  Add<FromCopy, IxMorphBlackTopHat, IxMorphBlackTopHatDiamond, IxMorphBlackTopHatCircle>(
      rows, {"black-top-hat", "black-top-hat-diamond", "black-top-hat-circle"},
      "the closing minus the picture: what is smaller and dark");
  return rows;
}

}  // namespace quillon::app::recipe
