// Morphology, into another image and in place. Several operations write their source: both images
// count.
#include "golden/golden.h"
#include "morph/morph_reference.h"
#include "quillon/quillon.h"

namespace quillon::test::golden {
namespace {

using RectangleExport = std::function<void(GreyImage*, GreyImage*, int, int)>;
using StarExport = std::function<void(GreyImage*, GreyImage*, int)>;

Operation Both(const std::string& name, reference::Operation operation,
               const std::function<void(GreyImage*, GreyImage*)>& exported,
               const Element& element) {
  const auto run = [](const Picture& picture, Digest& digest, const auto& apply) {
    for (bool isInPlace : {false, true}) {
      GreyImage source, result;
      source.CopyFrom(&picture.grey);
      FillStale(result, picture.grey.width, picture.grey.height);
      apply(source, isInPlace ? source : result);
      digest.AddPixels(source);
      if (!isInPlace) digest.AddPixels(result);
    }
  };
  return {name,
          [=](const Picture& picture, Digest& digest) {
            run(picture, digest,
                [&](GreyImage& source, GreyImage& result) { exported(&source, &result); });
          },
          [=](const Picture& picture, Digest& digest) {
            run(picture, digest, [&](GreyImage& source, GreyImage& result) {
              if (source.width < 3 || source.height < 3) return;  // nothing happens
              reference::Apply(operation, source, result, element);
            });
          }};
}

struct Shapes {
  const char* name;
  reference::Operation operation;
  RectangleExport rectangle;
  StarExport diamond, circle;
};

}  // namespace

void AddMorphology(std::vector<Operation>& all) {
  using reference::Operation;
  const Shapes kShapes[] = {
      {"IxDilation", Operation::kDilate, IxDilation, IxDilationDiamond, IxDilationCircle},
      {"IxErosion", Operation::kErode, IxErosion, IxErosionDiamond, IxErosionCircle},
      {"IxOpening", Operation::kOpen, IxOpening, IxOpeningDiamond, IxOpeningCircle},
      {"IxClosing", Operation::kClose, IxClosing, IxClosingDiamond, IxClosingCircle},
      {"IxMorphGradient", Operation::kGradient, IxMorphGradient, IxMorphGradientDiamond,
       IxMorphGradientCircle},
      {"IxMorphWhiteTopHat", Operation::kWhiteTopHat, IxMorphWhiteTopHat, IxMorphWhiteTopHatDiamond,
       IxMorphWhiteTopHatCircle},
      {"IxMorphBlackTopHat", Operation::kBlackTopHat, IxMorphBlackTopHat, IxMorphBlackTopHatDiamond,
       IxMorphBlackTopHatCircle}};
  for (const Shapes& shapes : kShapes) {
    const std::string name = shapes.name;
    constexpr int kRectangles[][2] = {{1, 1}, {3, 0}, {0, 2}, {9, 6}};
    for (const auto& [horizontal, vertical] : kRectangles) {
      const int h = horizontal, v = vertical;
      const auto at = "(" + std::to_string(h) + "," + std::to_string(v) + ")";
      all.push_back(Both(
          name + at, shapes.operation,
          [=, call = shapes.rectangle](GreyImage* from, GreyImage* to) { call(from, to, h, v); },
          Element{.shape = Shape::kRectangle, .horizontalPasses = h, .verticalPasses = v}));
    }
    for (int n : {1, 4, 15}) {
      const auto at = "(" + std::to_string(n) + ")";
      all.push_back(Both(
          name + "Diamond" + at, shapes.operation,
          [=, call = shapes.diamond](GreyImage* from, GreyImage* to) { call(from, to, n); },
          Element{.shape = Shape::kDiamond, .passes = n}));
      all.push_back(Both(
          name + "Circle" + at, shapes.operation,
          [=, call = shapes.circle](GreyImage* from, GreyImage* to) { call(from, to, n); },
          Element{.shape = Shape::kCircle, .passes = n}));
    }
  }
}

}  // namespace quillon::test::golden
