// Black and white pictures.
#include "kit/images/pixels.h"
#include "kit/operations/operation.h"

namespace quillon::kit {
namespace {

// The exports work in place, so on a copy of the picture.
GreyImage* Start(const Call& call) {
  CopyPicture(*call.a.grey, call.result.picture);
  return &call.result.picture;
}

}  // namespace

std::vector<Operation> ThresholdOperations() {
  constexpr const char* kFamily = "thresholds";
  return {
      {.name = "threshold",
       .family = kFamily,
       .summary = "white above a level, black elsewhere",
       .arguments = {Whole("above", 0, 255, "the level")},
       .exports = {{"IxThreshold"}},
       .run = [](const Call& call) { IxThreshold(Start(call), call.values.Whole("above")); }},
      {.name = "double-threshold",
       .family = kFamily,
       .summary = "white strictly between two levels, black elsewhere",
       .arguments = {WholeRange("between", 0, 255, "the levels, which are black themselves")},
       .exports = {{"IxDoubleThreshold"}},
       .run =
           [](const Call& call) {
             const auto between = call.values.List<int>("between");
             IxDoubleThreshold(Start(call), between[0], between[1]);
           }},
      {.name = "otsu",
       .family = kFamily,
       .summary = "white above the level that separates dark from bright best",
       .exports = {{"IxOtsuThreshold"}},
       .run = [](const Call& call) { IxOtsuThreshold(Start(call)); }},
  };
}

}  // namespace quillon::kit
