// Morphology beside OpenCV. Borders differ: the last rows are compared away from the edges only.
#include <opencv2/imgproc.hpp>

#include "families.h"
#include "morph/morph.h"
#include "support/operation.h"

namespace quillon::bench {
namespace {

cv::Mat Square(int radius) {
  return cv::getStructuringElement(cv::MORPH_RECT, cv::Size(2 * radius + 1, 2 * radius + 1));
}

void AddRectangle(int radius) {
  const cv::Mat element = Square(radius);
  const std::string name = "_rect_r" + std::to_string(radius);
  Add({.name = "dilate" + name,
       .ours = [=](Frame& f) { Dilate(f.kernels, f.source, f.result, Rectangle(radius, radius)); },
       .peer = [=](PeerFrame& f) { cv::dilate(f.source, f.result, element); },
       .check = PixelsWithin(0, radius + 2)});
}

void AddComposite(const std::string& name, int radius, int peerOperation,
                  void (*ours)(const Kernels&, const GreyImage&, GreyImage&, const Element&)) {
  const cv::Mat element = Square(radius);
  Add({.name = name + "_rect_r" + std::to_string(radius),
       .ours = [=](Frame& f) { ours(f.kernels, f.source, f.result, Rectangle(radius, radius)); },
       .peer = [=](PeerFrame& f) { cv::morphologyEx(f.source, f.result, peerOperation, element); },
       .check = PixelsWithin(0, 2 * radius + 8)});
}

// Gradient and white top-hat overwrite their source: from the second call on they work on a result.
// Min and max take the same time on any pixels.
void AddOverwriting(const std::string& name, int radius, int peerOperation,
                    void (*ours)(const Kernels&, GreyImage&, GreyImage&, const Element&)) {
  const cv::Mat element = Square(radius);
  Add({.name = name + "_rect_r" + std::to_string(radius),
       .bytesPerPixel = 3,
       .ours = [=](Frame& f) { ours(f.kernels, f.source, f.result, Rectangle(radius, radius)); },
       .peer = [=](PeerFrame& f) { cv::morphologyEx(f.source, f.result, peerOperation, element); },
       .check = PixelsWithin(0, 2 * radius + 8)});
}

// The peer makes the passes one by one: its own large diamond would be slower.
void AddStar(const std::string& name, const Element& element) {
  const cv::Mat cross = cv::getStructuringElement(cv::MORPH_CROSS, cv::Size(3, 3));
  const cv::Mat square = Square(1);
  Add({.name = name + std::to_string(element.passes),
       .ours = [=](Frame& f) { Dilate(f.kernels, f.source, f.result, element); },
       .peer =
           [=](PeerFrame& f) {
             cv::dilate(f.source, f.result, cross);
             for (int i = 1; i < element.passes; ++i) {
               const bool isSquare = element.shape == Shape::kCircle && i % 2 == 1;
               cv::dilate(f.result, f.result, isSquare ? square : cross);
             }
           },
       .check = PixelsWithin(0, element.passes + 2)});
}

}  // namespace

void AddMorphOperations() {
  for (int radius : {1, 3, 10, 25}) AddRectangle(radius);
  for (int passes : {1, 5, 20}) AddStar("dilate_diamond_", Diamond(passes));
  AddStar("dilate_circle_", Circle(5));
  AddComposite("open", 3, cv::MORPH_OPEN, Open);
  AddComposite("close", 10, cv::MORPH_CLOSE, Close);
  AddComposite("black_top_hat", 10, cv::MORPH_BLACKHAT, BlackTopHat);
  AddOverwriting("gradient", 1, cv::MORPH_GRADIENT, Gradient);
  AddOverwriting("white_top_hat", 10, cv::MORPH_TOPHAT, WhiteTopHat);
}

}  // namespace quillon::bench
