// Two pictures by a rule, or one by a function of its grey value.
#include "kit/errors.h"
#include "kit/operations/operation.h"
#include "kit/text/text.h"

namespace quillon::kit {
namespace {

constexpr const char* kArithmetic = "arithmetic";

template <auto function>
Operation OfTwo(const char* name, const char* export_, const char* summary) {
  return {.name = name,
          .family = kArithmetic,
          .summary = summary,
          .inputs = {Kind::kPicture, Kind::kPicture},
          .exports = {{export_}},
          .run = [](const Call& call) {
            const GreyImage &a = *call.a.grey, &b = *call.b.grey;
            if (a.width != b.width || a.height != b.height) {
              throw Failure("the pictures have different sizes, " + SizeText(a.width, a.height) +
                            " and " + SizeText(b.width, b.height));
            }
            function(&a, &b, &call.result.picture);
          }};
}

}  // namespace

std::vector<Operation> ArithmeticOperations() {
  const Argument bits = Whole("bits", 0, 8, "how often");
  return {
      OfTwo<IxImageAdd>("add", "IxImageAdd", "the sum, at most 255"),
      OfTwo<IxImageSub>("subtract", "IxImageSub", "the first less the second, at least 0"),
      OfTwo<IxImageMul>("multiply", "IxImageMul", "the product, at most 255"),
      OfTwo<IxImageDiv>("divide", "IxImageDiv", "the first over the second, truncated"),
      OfTwo<IxImageBirwiseAND>("bitwise-and", "IxImageBirwiseAND", "bits in both"),
      OfTwo<IxImageBirwiseOR>("bitwise-or", "IxImageBirwiseOR", "bits in either"),
      OfTwo<IxImageBirwiseXOR>("bitwise-xor", "IxImageBirwiseXOR", "bits in one only"),
      OfTwo<IxImageEqual>("equal", "IxImageEqual", "white where both are the same"),
      OfTwo<IxImageNOTEqual>("not-equal", "IxImageNOTEqual", "white where they differ"),
      {.name = "shift-left",
       .family = kArithmetic,
       .summary = "the grey value doubled, the low 8 bits of it",
       .arguments = {bits},
       .exports = {{"IxImageShiftLeft"}},
       .run =
           [](const Call& call) {
             IxImageShiftLeft(call.a.grey, &call.result.picture, call.values.Whole("bits"));
           }},
      {.name = "shift-right",
       .family = kArithmetic,
       .summary = "the grey value halved",
       .arguments = {bits},
       .exports = {{"IxImageShiftRight"}},
       .run =
           [](const Call& call) {
             IxImageShiftRight(call.a.grey, &call.result.picture, call.values.Whole("bits"));
           }},
      {.name = "invert",
       .family = kArithmetic,
       .summary = "255 less the grey value",
       .exports = {{"IxImageInvert"}},
       .run = [](const Call& call) { IxImageInvert(call.a.grey, &call.result.picture); }},
      {.name = "gain-offset",
       .family = kArithmetic,
       .summary = "the grey value times a gain, plus an offset",
       .arguments = {Number("gain", -1000, 1000, "the factor").Or("1"),
                     Number("offset", -255'000, 255'000, "added to the product").Or("0")},
       .exports = {{"IxImageGainOffset"}},
       .run =
           [](const Call& call) {
             IxImageGainOffset(call.a.grey, &call.result.picture, call.values.Number("gain"),
                               call.values.Number("offset"));
           }},
  };
}

}  // namespace quillon::kit
