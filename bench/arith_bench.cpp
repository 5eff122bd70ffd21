// Pixel arithmetic and geometric transforms beside OpenCV.
#include <opencv2/imgproc.hpp>

#include "arith/arithmetic.h"
#include "families.h"
#include "support/operation.h"

namespace quillon::bench {
namespace {

using PeerPair = void (*)(const cv::Mat& a, const cv::Mat& b, cv::Mat& result);

void AddPair(const char* name, PairRule rule, PeerPair peer, int tolerance = 0) {
  Add({.name = name,
       .bytesPerPixel = 3,
       .ours = [=](Frame& f) { CombinePixels(f.kernels, rule, f.source, f.other, f.result); },
       .peer = [=](PeerFrame& f) { peer(f.source, f.other, f.result); },
       .check = PixelsWithin(tolerance)});
}

// OpenCV has no shift of pixels: what an engineer writes there instead.
void AddShifts() {
  Add({.name = "shift_left",
       .ours = [](Frame& f) { ShiftPixelsLeft(f.kernels, f.source, f.result, 2); },
       .preparePeer =
           [](PeerFrame& f) {
             cv::Mat table(1, 256, CV_8U);
             for (int i = 0; i < 256; ++i) table.data[i] = static_cast<uint8_t>(i << 2);
             f.state = std::make_shared<cv::Mat>(table);
           },
       .peer =
           [](PeerFrame& f) { cv::LUT(f.source, *static_cast<cv::Mat*>(f.state.get()), f.result); },
       .check = PixelsWithin(0)});
  Add({.name = "shift_right",
       .ours = [](Frame& f) { ShiftPixelsRight(f.kernels, f.source, f.result, 2); },
       .peer = [](PeerFrame& f) { f.source.convertTo(f.result, CV_8U, 0.25, -0.375); },
       .check = PixelsWithin(0)});
}

}  // namespace

void AddArithmetic() {
  // OpenCV rounds quotients, and its division by 0 gives 0.
  constexpr int kQuotients = 255;
  AddPair("add", PairRule::kAdd, [](auto& a, auto& b, auto& r) { cv::add(a, b, r); });
  AddPair("sub", PairRule::kSubtract, [](auto& a, auto& b, auto& r) { cv::subtract(a, b, r); });
  AddPair("mul", PairRule::kMultiply, [](auto& a, auto& b, auto& r) { cv::multiply(a, b, r); });
  AddPair(
      "div", PairRule::kDivide, [](auto& a, auto& b, auto& r) { cv::divide(a, b, r); }, kQuotients);
  AddPair("and", PairRule::kAnd, [](auto& a, auto& b, auto& r) { cv::bitwise_and(a, b, r); });
  AddPair("or", PairRule::kOr, [](auto& a, auto& b, auto& r) { cv::bitwise_or(a, b, r); });
  AddPair("xor", PairRule::kXor, [](auto& a, auto& b, auto& r) { cv::bitwise_xor(a, b, r); });
  AddPair("equal", PairRule::kEqual,
          [](auto& a, auto& b, auto& r) { cv::compare(a, b, r, cv::CMP_EQ); });
  AddPair("not_equal", PairRule::kNotEqual,
          [](auto& a, auto& b, auto& r) { cv::compare(a, b, r, cv::CMP_NE); });
  AddShifts();
  Add({.name = "invert",
       .ours = [](Frame& f) { InvertPixels(f.kernels, f.source, f.result); },
       .peer = [](PeerFrame& f) { cv::bitwise_not(f.source, f.result); },
       .check = PixelsWithin(0)});
  Add({.name = "gain_offset",
       .ours = [](Frame& f) { ApplyGainOffset(f.kernels, f.source, f.result, 1.37, -21.5); },
       .peer = [](PeerFrame& f) { f.source.convertTo(f.result, CV_8U, 1.37, -21.5); },
       .check = PixelsWithin(1)});
}

}  // namespace quillon::bench
