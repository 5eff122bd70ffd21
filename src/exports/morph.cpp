// Exports: morphology.
#include "morph/morph.h"
#include "exports/guards.h"

namespace quillon {
namespace {

template <class Operation, class Source>
void Run(const Operation& operation, Source* source, GreyImage* result, const Element& element) {
  if (HasPixels(source) && result) operation(BestKernels(), *source, *result, element);
}

}  // namespace

void IxDilation(const GreyImage* source, GreyImage* result, int horizontalPasses,
                int verticalPasses) {
  Run(Dilate, source, result, Rectangle(horizontalPasses, verticalPasses));
}

void IxErosion(const GreyImage* source, GreyImage* result, int horizontalPasses,
               int verticalPasses) {
  Run(Erode, source, result, Rectangle(horizontalPasses, verticalPasses));
}

void IxOpening(const GreyImage* source, GreyImage* result, int horizontalPasses,
               int verticalPasses) {
  Run(Open, source, result, Rectangle(horizontalPasses, verticalPasses));
}

void IxClosing(const GreyImage* source, GreyImage* result, int horizontalPasses,
               int verticalPasses) {
  Run(Close, source, result, Rectangle(horizontalPasses, verticalPasses));
}

void IxMorphGradient(GreyImage* source, GreyImage* result, int horizontalPasses,
                     int verticalPasses) {
  Run(Gradient, source, result, Rectangle(horizontalPasses, verticalPasses));
}

void IxMorphWhiteTopHat(GreyImage* source, GreyImage* result, int horizontalPasses,
                        int verticalPasses) {
  Run(WhiteTopHat, source, result, Rectangle(horizontalPasses, verticalPasses));
}

void IxMorphBlackTopHat(const GreyImage* source, GreyImage* result, int horizontalPasses,
                        int verticalPasses) {
  Run(BlackTopHat, source, result, Rectangle(horizontalPasses, verticalPasses));
}

void IxDilationDiamond(const GreyImage* source, GreyImage* result, int passes) {
  Run(Dilate, source, result, Diamond(passes));
}

void IxErosionDiamond(const GreyImage* source, GreyImage* result, int passes) {
  Run(Erode, source, result, Diamond(passes));
}

void IxOpeningDiamond(const GreyImage* source, GreyImage* result, int passes) {
  Run(Open, source, result, Diamond(passes));
}

void IxClosingDiamond(const GreyImage* source, GreyImage* result, int passes) {
  Run(Close, source, result, Diamond(passes));
}

void IxMorphGradientDiamond(GreyImage* source, GreyImage* result, int passes) {
  Run(Gradient, source, result, Diamond(passes));
}

void IxMorphWhiteTopHatDiamond(GreyImage* source, GreyImage* result, int passes) {
  Run(WhiteTopHat, source, result, Diamond(passes));
}

void IxMorphBlackTopHatDiamond(const GreyImage* source, GreyImage* result, int passes) {
  Run(BlackTopHat, source, result, Diamond(passes));
}

void IxDilationCircle(const GreyImage* source, GreyImage* result, int passes) {
  Run(Dilate, source, result, Circle(passes));
}

void IxErosionCircle(const GreyImage* source, GreyImage* result, int passes) {
  Run(Erode, source, result, Circle(passes));
}

void IxOpeningCircle(const GreyImage* source, GreyImage* result, int passes) {
  Run(Open, source, result, Circle(passes));
}

void IxClosingCircle(const GreyImage* source, GreyImage* result, int passes) {
  Run(Close, source, result, Circle(passes));
}

void IxMorphGradientCircle(GreyImage* source, GreyImage* result, int passes) {
  Run(Gradient, source, result, Circle(passes));
}

void IxMorphWhiteTopHatCircle(GreyImage* source, GreyImage* result, int passes) {
  Run(WhiteTopHat, source, result, Circle(passes));
}

void IxMorphBlackTopHatCircle(const GreyImage* source, GreyImage* result, int passes) {
  Run(BlackTopHat, source, result, Circle(passes));
}

}  // namespace quillon
