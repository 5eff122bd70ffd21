// Where pixels go: scaled, moved, turned, cut out, reduced.
#include <cstdlib>

#include "kit/errors.h"
#include "kit/images/pixels.h"
#include "kit/operations/operation.h"
#include "kit/text/text.h"

namespace quillon::kit {
namespace {

constexpr const char* kGeometry = "geometry";
constexpr int kLongestSide = 32767;

void Scale(const Call& call) {
  CallExports([&] {
    IxImageScaling(call.a.grey, &call.result.picture, call.values.Number("x"),
                   call.values.Number("y"));
  });
  if (!call.result.picture.bits) {
    throw Failure("a scaled side would not have 1 to " + std::to_string(kLongestSide) + " pixels");
  }
}

// Refuses a move that leaves nothing of the picture: a black one would come out.
void Translate(const Call& call) {
  const GreyImage& image = *call.a.grey;
  const int dx = call.values.Whole("dx"), dy = call.values.Whole("dy");
  if (std::abs(dx) >= image.width || std::abs(dy) >= image.height) {
    throw Failure("moved by " + std::to_string(dx) + ", " + std::to_string(dy) +
                  " nothing is left of the picture of " + SizeText(image.width, image.height));
  }
  IxImageTranslation(&image, &call.result.picture, dx, dy);
}

template <auto function>
void Rotate(const Call& call) {
  function(call.a.grey, &call.result.picture, call.values.Number("angle"));
}

void Crop(const Call& call) {
  const int place[] = {call.values.Whole("left"), call.values.Whole("top"),
                       call.values.Whole("width"), call.values.Whole("height")};
  CutOut(*call.a.grey, place, "the part to crop", call.result.picture);
}

}  // namespace

std::vector<Operation> GeometryOperations() {
  const auto shift = [](const char* name, const char* summary) {
    return Whole(name, -kLongestSide, kLongestSide, summary).In("pixels").Or("0");
  };
  const Argument angle = Number("angle", -360, 360, "clockwise").In("degrees");
  return {
      {.name = "scale",
       .family = kGeometry,
       .summary = "another size, by the nearest pixel",
       .arguments = {Number("x", 0.01, 100, "factor of the width").Or("1"),
                     Number("y", 0.01, 100, "factor of the height").Or("1")},
       .exports = {{"IxImageScaling"}},
       .run = Scale,
       .movesPixels = true},
      {.name = "translate",
       .family = kGeometry,
       .summary = "moved by whole pixels; uncovered pixels become black",
       .arguments = {shift("dx", "to the right"), shift("dy", "down")},
       .exports = {{"IxImageTranslation"}},
       .run = Translate,
       .movesPixels = true},
      {.name = "rotate",
       .family = kGeometry,
       .summary = "turned about the centre, by the nearest pixel; uncovered pixels become black",
       .arguments = {angle},
       .exports = {{"IxImageRotation"}},
       .run = Rotate<IxImageRotation>,
       .movesPixels = true},
      {.name = "rotate-bilinear",
       .family = kGeometry,
       .summary = "turned about the centre, four pixels blended; uncovered pixels become black",
       .arguments = {angle},
       .exports = {{"IxImageRotationBilinear"}},
       .run = Rotate<IxImageRotationBilinear>,
       .movesPixels = true},
      {.name = "crop",
       .family = kGeometry,
       .summary = "an upright part of the picture",
       .arguments = {Whole("left", 0, kLongestSide - 1, "its first column"),
                     Whole("top", 0, kLongestSide - 1, "its first row"),
                     Whole("width", 1, kLongestSide, "its columns"),
                     Whole("height", 1, kLongestSide, "its rows")},
       .run = Crop,
       .movesPixels = true},
      {.name = "pyramid",
       .family = kGeometry,
       .summary = "reduced by 16 each way; a pixel is half of the mean of its 16 x 16 block",
       .exports = {{"IxImgPyramid"}},
       .run = [](const Call& call) { IxImgPyramid(call.a.grey, &call.result.picture); },
       .movesPixels = true},
  };
}

}  // namespace quillon::kit
