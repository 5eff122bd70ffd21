// Grey morphology: dilation and erosion by rectangles, diamonds and circles, and what is composed
// of them. Each is one sweep over the image, whatever the element's size.
//
// Source and result may be the same image. An image less than 3 pixels wide or high has no pixel
// that a pass could set: nothing happens.
#pragma once

#include "quillon/image.h"

namespace quillon {

struct Kernels;

enum class Extreme { kMaximum, kMinimum };

enum class Shape { kRectangle, kDiamond, kCircle };

// How often the elementary passes of a shape are made. Counts below 1 make none, but for the first
// (horizontal) pass into another image, which is always made.
struct Element {
  Shape shape;
  int horizontalPasses = 0, verticalPasses = 0;  // rectangles
  int passes = 0;                                // diamonds and circles
};

constexpr Element Rectangle(int horizontalPasses, int verticalPasses) {
  return {Shape::kRectangle, horizontalPasses, verticalPasses, 0};
}
constexpr Element Diamond(int passes) { return {Shape::kDiamond, 0, 0, passes}; }
constexpr Element Circle(int passes) { return {Shape::kCircle, 0, 0, passes}; }

void Dilate(const Kernels& kernels, const GreyImage& source, GreyImage& result,
            const Element& element);
void Erode(const Kernels& kernels, const GreyImage& source, GreyImage& result,
           const Element& element);

// Diamonds and circles into another image: Open only dilates, Close only erodes.
void Open(const Kernels& kernels, const GreyImage& source, GreyImage& result,
          const Element& element);
void Close(const Kernels& kernels, const GreyImage& source, GreyImage& result,
           const Element& element);

// These two leave their result in the source as well.
void Gradient(const Kernels& kernels, GreyImage& source, GreyImage& result, const Element& element);
void WhiteTopHat(const Kernels& kernels, GreyImage& source, GreyImage& result,
                 const Element& element);
void BlackTopHat(const Kernels& kernels, const GreyImage& source, GreyImage& result,
                 const Element& element);

}  // namespace quillon
