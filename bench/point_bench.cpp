// Colour to grey and thresholds beside OpenCV.
#include <opencv2/imgproc.hpp>

#include "core/grey.h"
#include "families.h"
#include "point/threshold.h"
#include "support/operation.h"

namespace quillon::bench {
namespace {

// Thresholds work in place: after the first call the image is binary, which costs the same.
std::string SameAsSource(const Frame& frame, const PeerFrame& peer) {
  return cv::countNonZero(ToMat(frame.source) != peer.result) == 0 ? "" : "pixels differ";
}

}  // namespace

void AddPointOperations() {
  Add({.name = "color_to_grey",
       .bytesPerPixel = 4,
       .ours = [](Frame& f) { ColorToGrey(f.kernels, f.colour, f.result); },
       .peer = [](PeerFrame& f) { cv::cvtColor(f.colour, f.result, cv::COLOR_BGR2GRAY); },
       .check = PixelsWithin(4)});
  Add({.name = "threshold",
       .ours = [](Frame& f) { ApplyThreshold(f.kernels, f.source, 100); },
       .peer = [](PeerFrame& f) { cv::threshold(f.source, f.result, 100, 255, cv::THRESH_BINARY); },
       .check = SameAsSource});
  Add({.name = "double_threshold",
       .ours = [](Frame& f) { ApplyDoubleThreshold(f.kernels, f.source, 50, 200); },
       .peer = [](PeerFrame& f) { cv::inRange(f.source, 51, 199, f.result); },
       .check = SameAsSource});
  Add({.name = "otsu",
       .bytesPerPixel = 3,
       .ours =
           [](Frame& f) { ApplyThreshold(f.kernels, f.source, ComputeOtsuThreshold(f.source)); },
       .peer = [](PeerFrame& f) { cv::threshold(f.source, f.result, 0, 255, cv::THRESH_OTSU); }});
}

}  // namespace quillon::bench
