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
  return cv::norm(ToMat(frame.source), peer.result, cv::NORM_INF) == 0 ? "" : "pixels differ";
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
  // Neighbours of a photograph are alike; those of noise are not, which is kind to a histogram.
  for (const bool photograph : {true, false}) {
    Add({.name = photograph ? "otsu_photo" : "otsu_noise",
         .bytesPerPixel = 3,
         .prepare =
             [=](Frame& f) {
               if (photograph) DrawPhotograph(f.source);
             },
         .ours =
             [](Frame& f) {
               CopyPixels(f.source, f.result);
               ApplyThreshold(f.kernels, f.result, ComputeOtsuThreshold(f.kernels, f.result));
             },
         .peer = [](PeerFrame& f) { cv::threshold(f.source, f.result, 0, 255, cv::THRESH_OTSU); },
         .check = PixelsWithin(0)});
  }
}

}  // namespace quillon::bench
