// Pixel arithmetic and geometric transforms.
#include <cmath>
#include <string>

#include "families.h"
#include "image_functions.h"

namespace quillon::python {
namespace {

std::string Text(Size size) {
  return "(" + std::to_string(size.height) + ", " + std::to_string(size.width) + ")";
}

using PairExport = void (*)(const GreyImage*, const GreyImage*, GreyImage*);

void DefinePair(py::module_& module, const char* name, PairExport export_, const char* text) {
  module.def(
      name,
      [export_](const Array& a, const Array& b, const Array& out) {
        const Source<unsigned char> first(a, "a"), second(b, "b");
        if (first.width() != second.width() || first.height() != second.height()) {
          Refuse("b", "an array of the shape of a, " + Text({first.width(), first.height()}) + ",",
                 "one of " + Text({second.width(), second.height()}));
        }
        auto result = NewResult<unsigned char>(first.width(), first.height());
        Unlocked([&] { export_(first.get(), second.get(), result.get()); });
        NeedPixels(*result);
        return Deliver(std::move(result), out);
      },
      py::arg("a"), py::arg("b"), py::kw_only(), py::arg("out") = py::none(), text);
}

struct NeedsBits {
  void operator()(Size, int bits) const {
    if (bits < 0) Refuse("bits", "a number of at least 0", std::to_string(bits));
  }
};

struct NeedsScales {
  static constexpr int kLongestSide = 32767;

  static void CheckSide(const char* name, int side, double scale) {
    const double scaled = std::trunc(side * scale + 0.5);
    if (!(std::isfinite(scale) && scale > 0 && scaled >= 1 && scaled <= kLongestSide)) {
      Refuse(name, "a factor that makes " + std::to_string(side) + " pixels 1 to 32767",
             std::to_string(scale));
    }
  }
  void operator()(Size size, double scaleX, double scaleY) const {
    CheckSide("scale_x", size.width, scaleX);
    CheckSide("scale_y", size.height, scaleY);
  }
};

struct NeedsAngle {
  void operator()(Size, double angle) const {
    if (!std::isfinite(angle)) Refuse("angle", "a finite number", std::to_string(angle));
  }
};

}  // namespace

void AddArithmetic(py::module_& module) {
  DefinePair(module, "add", IxImageAdd, "min(a + b, 255)");
  DefinePair(module, "subtract", IxImageSub, "max(a - b, 0)");
  DefinePair(module, "multiply", IxImageMul, "min(a * b, 255)");
  DefinePair(module, "divide", IxImageDiv,
             "a // b; where b is 0, 255 for pixels above 0 and 0 for others.");
  DefinePair(module, "bitwise_and", IxImageBirwiseAND, "a & b, bit by bit.");
  DefinePair(module, "bitwise_or", IxImageBirwiseOR, "a | b, bit by bit.");
  DefinePair(module, "bitwise_xor", IxImageBirwiseXOR, "a ^ b, bit by bit.");
  DefinePair(module, "equal", IxImageEqual, "255 where a = b, else 0.");
  DefinePair(module, "not_equal", IxImageNOTEqual, "0 where a = b, else 255.");

  DefineFilter(module, "shift_left", IxImageShiftLeft, "(pixel << bits) & 255", NeedsBits(),
               py::arg("bits"));
  DefineFilter(module, "shift_right", IxImageShiftRight, "pixel >> bits", NeedsBits(),
               py::arg("bits"));
  DefineFilter(module, "invert", IxImageInvert, "255 - pixel", TakesAll());
  DefineFilter(module, "gain_offset", IxImageGainOffset,
               "pixel * gain + offset, truncated, and clamped to 0 to 255.", TakesAll(),
               py::arg("gain"), py::arg("offset"));

  DefineFilter(
      module, "scale", IxImageScaling,
      R"(The image scaled, nearest pixel; the result has int(side * factor + 0.5) pixels a side.

Both sides of the result are 1 to 32767 pixels long.)",
      NeedsScales(), py::arg("scale_x"), py::arg("scale_y"));
  DefineFilter(module, "translate", IxImageTranslation,
               "The image moved by (dx, dy) at its size; uncovered pixels are 0.", TakesAll(),
               py::arg("dx"), py::arg("dy"));
  DefineFilter(module, "rotate", IxImageRotation,
               R"(The image turned about its center by `angle` degrees at its size, nearest pixel.

Positive angles turn clockwise as displayed; uncovered pixels are 0.)",
               NeedsAngle(), py::arg("angle"));
  DefineFilter(module, "rotate_bilinear", IxImageRotationBilinear,
               "rotate(), interpolating between the four pixels around.", NeedsAngle(),
               py::arg("angle"));
}

}  // namespace quillon::python
