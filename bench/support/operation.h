// One row of the benchmark's table: an operation of the library, and the same work by OpenCV.
//
//   Add({.name = "sobel",
//        .bytesPerPixel = 2,
//        .ours = [](Frame& f) { Sobel(f.kernels, f.source, f.result); },
//        .peer = [](PeerFrame& f) { ... },
//        .check = PixelsWithin(1)});
//
// Every operation runs at three sizes: at each instruction-set level with its destination kept from
// call to call, at the best level with a fresh destination a call ("fresh"), by OpenCV on one
// thread ("opencv"), and as a memcpy of the bytes it touches ("memcpy"). Results are checked once,
// before anything is timed; a failed check ends the program.
#pragma once

#include <functional>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "quillon/image.h"
#include "simd/kernels.h"

namespace quillon::bench {

struct Size {
  int width, height;
};
inline const std::vector<Size> kSizes = {{640, 480}, {1920, 1080}, {4096, 3072}};

// What the library's side works on. source, other and colour hold noise unless `prepare` changes
// them.
struct Frame {
  explicit Frame(const Kernels& level) : kernels(level) {}

  const Kernels& kernels;
  GreyImage source, other;
  ColourImage colour;
  GreyImage result;
  ColourImage colourResult;
  std::shared_ptr<void> state;  // whatever else an operation prepares
};

// The same images, top row first, for OpenCV.
struct PeerFrame {
  cv::Mat source, other, colour;
  cv::Mat result;
  std::shared_ptr<void> state;
};

struct Operation {
  std::string name;
  double bytesPerPixel = 2;  // read and written, for the memcpy beside it
  std::function<void(Frame&)> prepare = {};
  std::function<void(Frame&)> ours;
  // The same work written plainly, where its speed says something (column "plain").
  std::function<void(Frame&)> plain = {};
  std::function<void(PeerFrame&)> preparePeer = {};
  std::function<void(PeerFrame&)> peer = {};
  // A message when the two results do not agree.
  std::function<std::string(const Frame&, const PeerFrame&)> check = {};
  std::vector<Size> sizes = kSizes;
};

void Add(const Operation& operation);

// Checks of Frame::result against PeerFrame::result.
// Every pixel at least `border` from the edge differs by at most `tolerance`.
std::function<std::string(const Frame&, const PeerFrame&)> PixelsWithin(int tolerance,
                                                                        int border = 0);

// Replaces the pixels by what a camera might see: smooth shading, soft-edged shapes, a little
// noise.
void DrawPhotograph(GreyImage& image);

// The pixels of one image into another of the same size; for operations that work in place.
void CopyPixels(const GreyImage& from, GreyImage& to);

cv::Mat ToMat(const GreyImage& image);
cv::Mat ToMat(const ColourImage& image);
void FromMat(const cv::Mat& mat, GreyImage& image);
void FromMat(const cv::Mat& mat, ColourImage& image);

}  // namespace quillon::bench
