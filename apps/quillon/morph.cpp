// quillon morph OP: dilation, erosion and what is composed of them.
//
// Dilations, erosions, openings and closings run in place, where diamonds and circles give true
// openings and the last rows keep the picture; gradients and top-hats into a second picture, where
// no image is left behind.
#include <array>
#include <iterator>
#include <memory>
#include <vector>

#include "commands.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "options.h"
#include "quillon/quillon.h"

namespace quillon::app {
namespace {

using Box = void (*)(GreyImage*, GreyImage*, int horizontalPasses, int verticalPasses);
using Star = void (*)(GreyImage*, GreyImage*, int passes);

struct Shape {
  const char* option;
  const char* arguments;
  const char* element;
};
constexpr Shape kShapes[] = {{"--rect", "H V", "(2H + 1) x (2V + 1) pixels"},
                             {"--diamond", "N", "a diamond of radius N"},
                             {"--circle", "N", "an octagon of radius N"}};

struct Morph {
  const char* name;
  const char* summary;
  bool isInPlace;
  Box box;
  Star diamond, circle;
  const char* exports[std::size(kShapes)];
};

// An export that leaves its source alone takes a pointer to const: the table wants one type.
template <auto function>
constexpr Box kBox = [](GreyImage* source, GreyImage* result, int horizontal, int vertical) {
  function(source, result, horizontal, vertical);
};
template <auto function>
constexpr Star kStar =
    [](GreyImage* source, GreyImage* result, int passes) { function(source, result, passes); };

const Morph kMorphs[] = {
    {"dilate",
     "the largest value under the element",
     true,
     kBox<IxDilation>,
     kStar<IxDilationDiamond>,
     kStar<IxDilationCircle>,
     {"IxDilation", "IxDilationDiamond", "IxDilationCircle"}},
    {"erode",
     "the smallest value under the element",
     true,
     kBox<IxErosion>,
     kStar<IxErosionDiamond>,
     kStar<IxErosionCircle>,
     {"IxErosion", "IxErosionDiamond", "IxErosionCircle"}},
    {"open",
     "erosion, then dilation: removes what is smaller and bright",
     true,
     kBox<IxOpening>,
     kStar<IxOpeningDiamond>,
     kStar<IxOpeningCircle>,
     {"IxOpening", "IxOpeningDiamond", "IxOpeningCircle"}},
    {"close",
     "dilation, then erosion: removes what is smaller and dark",
     true,
     kBox<IxClosing>,
     kStar<IxClosingDiamond>,
     kStar<IxClosingCircle>,
     {"IxClosing", "IxClosingDiamond", "IxClosingCircle"}},
    {"gradient",
     "dilation minus erosion: outlines",
     false,
     kBox<IxMorphGradient>,
     kStar<IxMorphGradientDiamond>,
     kStar<IxMorphGradientCircle>,
     {"IxMorphGradient", "IxMorphGradientDiamond", "IxMorphGradientCircle"}},
    {"white-top-hat",
     "the picture minus its opening: what is smaller and bright",
     false,
     kBox<IxMorphWhiteTopHat>,
     kStar<IxMorphWhiteTopHatDiamond>,
     kStar<IxMorphWhiteTopHatCircle>,
     {"IxMorphWhiteTopHat", "IxMorphWhiteTopHatDiamond", "IxMorphWhiteTopHatCircle"}},
    {"black-top-hat",
     "the closing minus the picture: what is smaller and dark",
     false,
     kBox<IxMorphBlackTopHat>,
     kStar<IxMorphBlackTopHatDiamond>,
     kStar<IxMorphBlackTopHatCircle>,
     {"IxMorphBlackTopHat", "IxMorphBlackTopHatDiamond", "IxMorphBlackTopHatCircle"}},
};

struct Options {
  std::string in, out;
  std::vector<int> rect;
  int diamond = 0, circle = 0;
};

void RunMorph(const Morph& morph, const Options& options, bool isDiamond) {
  GreyImage image, other;
  ReadImage(options.in, image);
  GreyImage& result = morph.isInPlace ? image : other;
  if (!options.rect.empty()) {
    morph.box(&image, &result, options.rect[0], options.rect[1]);
  } else if (isDiamond) {
    morph.diamond(&image, &result, options.diamond);
  } else {
    morph.circle(&image, &result, options.circle);
  }
  if (!result.bits) throw Failure(options.in + ": the picture is less than 3 pixels wide or high");
  WriteImage(options.out, result);
}

void AddMorphs(Command app) {
  const Command command = app.Add("morph", "Dilation, erosion and what is composed of them");
  command.NeedsSubcommand();
  for (const Morph& morph : kMorphs) {
    auto options = std::make_shared<Options>();
    const Command named = command.Add(morph.name, morph.summary);
    AddPictureToRead(named, "IN", options->in);
    AddPictureToWrite(named, "OUT", options->out);
    const Command element = named.AddChoice("element");
    constexpr int kMostPasses = 1'000'000;
    element.AddOption(kShapes[0].option, options->rect, kShapes[0].element)
        .Values(2)
        .ShownAs(kShapes[0].arguments)
        .Within(0, kMostPasses);
    const Option diamond =
        element.AddOption(kShapes[1].option, options->diamond, kShapes[1].element);
    diamond.ShownAs(kShapes[1].arguments).Within(0, kMostPasses);
    element.AddOption(kShapes[2].option, options->circle, kShapes[2].element)
        .ShownAs(kShapes[2].arguments)
        .Within(0, kMostPasses);
    named.Runs([&morph, options, diamond] { RunMorph(morph, *options, diamond.IsGiven()); });
  }
}

// One line for each operation and shape; the commands' texts are put together once.
const auto kCommands = [] {
  std::array<std::string, std::size(kMorphs) * std::size(kShapes)> commands;
  size_t i = 0;
  for (const Morph& morph : kMorphs) {
    for (const Shape& shape : kShapes) {
      commands[i++] =
          std::string("morph ") + morph.name + " IN OUT " + shape.option + " " + shape.arguments;
    }
  }
  return commands;
}();

const auto kOperations = [] {
  std::array<Operation, std::size(kMorphs) * std::size(kShapes)> operations;
  size_t i = 0;
  for (const Morph& morph : kMorphs) {
    for (size_t shape = 0; shape < std::size(kShapes); ++shape, ++i) {
      operations[i] = {morph.exports[shape], kCommands[i].c_str(), morph.summary};
    }
  }
  return operations;
}();

}  // namespace

const Family kMorphology = {"morphology", AddMorphs, kOperations};

}  // namespace quillon::app
