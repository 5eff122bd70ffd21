// Morphology by rectangles, diamonds and circles.
#include <string>

#include "families.h"
#include "image_functions.h"

namespace quillon::python {
namespace {

struct NeedsThree {
  template <class... Passes>
  void operator()(Size size, Passes...) const {
    if (size.width >= 3 && size.height >= 3) return;
    Refuse("image", "an array of at least 3 x 3 pixels",
           "one of " + std::to_string(size.height) + " x " + std::to_string(size.width));
  }
};

struct NeedsThreeAndAnother : NeedsThree {
  static constexpr bool kNeverInPlace = true;
};

// One operation by its three elements.
struct Operation {
  const char* name;
  const char* summary;
  const char* remark;
};

template <class Check, class Rectangle, class Other>
void Define(py::module_& module, const Operation& operation, const Check& check,
            Rectangle rectangle, Other diamond, Other circle) {
  const auto define = [&](const char* element, auto export_, const char* shape,
                          const auto&... names) {
    const std::string name = std::string(operation.name) + element;
    const std::string text =
        std::string(operation.summary) + " under " + shape + "\n\n" + operation.remark;
    DefineFilter(module, name.c_str(), export_, text.c_str(), check, names...);
  };
  define("", rectangle, "2 * horizontal_passes + 1 by 2 * vertical_passes + 1 pixels.",
         py::arg("horizontal_passes"), py::arg("vertical_passes"));
  define("_diamond", diamond, "the offsets with |dx| + |dy| <= passes.", py::arg("passes"));
  define("_circle", circle, "an octagon: crosses and squares in turns.", py::arg("passes"));
}

}  // namespace

void AddMorphology(py::module_& module) {
  constexpr NeedsThree kThree;
  constexpr NeedsThreeAndAnother kAnother;
  constexpr const char* kFirst =
      "Counts below 1 make no pass, but the first one (horizontal, or a cross) is made all the "
      "same.\nWith `out=image` it is not.";
  constexpr const char* kInPlace =
      "Diamonds and circles: with `out=image` alone. Into another array only the second of the two "
      "is\nmade.";
  constexpr const char* kDifference =
      "In the last width % 8 columns a difference that is not above 0 is not stored: the first "
      "operand\nstays.";
  Define(module, {"dilation", "The largest value", kFirst}, kThree, IxDilation, IxDilationDiamond,
         IxDilationCircle);
  Define(module, {"erosion", "The smallest value", kFirst}, kThree, IxErosion, IxErosionDiamond,
         IxErosionCircle);
  Define(module, {"opening", "Erosion, then dilation,", kInPlace}, kThree, IxOpening,
         IxOpeningDiamond, IxOpeningCircle);
  Define(module, {"closing", "Dilation, then erosion,", kInPlace}, kThree, IxClosing,
         IxClosingDiamond, IxClosingCircle);
  Define(module, {"morph_gradient", "Dilation less erosion", kDifference}, kAnother,
         IxMorphGradient, IxMorphGradientDiamond, IxMorphGradientCircle);
  Define(module, {"white_top_hat", "The image less its opening", kDifference}, kAnother,
         IxMorphWhiteTopHat, IxMorphWhiteTopHatDiamond, IxMorphWhiteTopHatCircle);
  Define(module, {"black_top_hat", "The closing less the image", kDifference}, kAnother,
         IxMorphBlackTopHat, IxMorphBlackTopHatDiamond, IxMorphBlackTopHatCircle);
}

}  // namespace quillon::python
