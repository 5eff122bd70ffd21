// Dilation, erosion and what is composed of them, by rectangles, diamonds and circles.
//
// Dilations, erosions, openings and closings run in place, where diamonds and circles give true
// openings and the last rows keep the picture. Gradients and top-hats run into a second picture,
// where no image is left behind; two of them change their source, which is a copy therefore.
#include "kit/errors.h"
#include "kit/images/pixels.h"
#include "kit/operations/operation.h"
#include "kit/text/text.h"

namespace quillon::kit {
namespace {

using Run = void (*)(const Call& call);

// The exports leave smaller pictures as they are.
void RequireThree(const GreyImage& image) {
  if (image.width >= 3 && image.height >= 3) return;
  throw Failure("the picture has " + SizeText(image.width, image.height) +
                " pixels, at least 3 x 3 are needed");
}

struct InPlace {
  template <class Function>
  static void Apply(const Call& call, Function function) {
    RequireThree(*call.a.grey);
    CopyPicture(*call.a.grey, call.result.picture);
    function(&call.result.picture, &call.result.picture);
  }
};

struct FromCopy {
  template <class Function>
  static void Apply(const Call& call, Function function) {
    RequireThree(*call.a.grey);
    GreyImage source;
    CopyPicture(*call.a.grey, source);
    function(&source, &call.result.picture);
  }
};

template <class Way, auto function>
void ByRectangle(const Call& call) {
  Way::Apply(call, [&](GreyImage* source, GreyImage* result) {
    function(source, result, call.values.Whole("horizontal"), call.values.Whole("vertical"));
  });
}

template <class Way, auto function>
void ByRadius(const Call& call) {
  Way::Apply(call, [&](GreyImage* source, GreyImage* result) {
    function(source, result, call.values.Whole("radius"));
  });
}

// One operation by a rectangle, a diamond and a circle.
struct ByEachShape {
  const char* summary;
  std::array<const char*, 3> names, exports;
  std::array<Run, 3> runs;
};

template <class Way, auto rectangle, auto diamond, auto circle>
constexpr std::array<Run, 3> kRuns = {ByRectangle<Way, rectangle>, ByRadius<Way, diamond>,
                                      ByRadius<Way, circle>};

constexpr ByEachShape kOperations[] = {
    {"the largest value under the element",
     {"dilation", "dilation-diamond", "dilation-circle"},
     {"IxDilation", "IxDilationDiamond", "IxDilationCircle"},
     kRuns<InPlace, IxDilation, IxDilationDiamond, IxDilationCircle>},
    {"the smallest value under the element",
     {"erosion", "erosion-diamond", "erosion-circle"},
     {"IxErosion", "IxErosionDiamond", "IxErosionCircle"},
     kRuns<InPlace, IxErosion, IxErosionDiamond, IxErosionCircle>},
    {"erosion, then dilation: removes what is smaller and bright",
     {"opening", "opening-diamond", "opening-circle"},
     {"IxOpening", "IxOpeningDiamond", "IxOpeningCircle"},
     kRuns<InPlace, IxOpening, IxOpeningDiamond, IxOpeningCircle>},
    {"dilation, then erosion: removes what is smaller and dark",
     {"closing", "closing-diamond", "closing-circle"},
     {"IxClosing", "IxClosingDiamond", "IxClosingCircle"},
     kRuns<InPlace, IxClosing, IxClosingDiamond, IxClosingCircle>},
    {"dilation minus erosion: outlines",
     {"morph-gradient", "morph-gradient-diamond", "morph-gradient-circle"},
     {"IxMorphGradient", "IxMorphGradientDiamond", "IxMorphGradientCircle"},
     kRuns<FromCopy, IxMorphGradient, IxMorphGradientDiamond, IxMorphGradientCircle>},
    {"the picture minus its opening: what is smaller and bright",
     {"white-top-hat", "white-top-hat-diamond", "white-top-hat-circle"},
     {"IxMorphWhiteTopHat", "IxMorphWhiteTopHatDiamond", "IxMorphWhiteTopHatCircle"},
     kRuns<FromCopy, IxMorphWhiteTopHat, IxMorphWhiteTopHatDiamond, IxMorphWhiteTopHatCircle>},
    {"the closing minus the picture: what is smaller and dark",
     {"black-top-hat", "black-top-hat-diamond", "black-top-hat-circle"},
     {"IxMorphBlackTopHat", "IxMorphBlackTopHatDiamond", "IxMorphBlackTopHatCircle"},
     kRuns<FromCopy, IxMorphBlackTopHat, IxMorphBlackTopHatDiamond, IxMorphBlackTopHatCircle>},
};

}  // namespace

std::vector<Operation> MorphologyOperations() {
  constexpr double kMost = 32767;
  const std::vector<Argument> sides = {
      Whole("horizontal", 0, kMost, "the element is 2 horizontal + 1 wide").In("pixels"),
      Whole("vertical", 0, kMost, "and 2 vertical + 1 high").In("pixels")};
  const std::vector<Argument> radius = {Whole("radius", 0, kMost, "of the element").In("pixels")};
  std::vector<Operation> rows;
  for (const ByEachShape& each : kOperations) {
    for (size_t shape = 0; shape < each.names.size(); ++shape) {
      rows.push_back({.name = each.names[shape],
                      .family = "morphology",
                      .summary = each.summary,
                      .arguments = shape == 0 ? sides : radius,
                      .exports = {{each.exports[shape]}},
                      .run = each.runs[shape]});
    }
  }
  return rows;
}

}  // namespace quillon::kit
