// Pixel arithmetic and geometric transforms beside OpenCV.
#include <opencv2/imgproc.hpp>

#include "arith/arithmetic.h"
#include "arith/rotation.h"
#include "arith/scaling.h"
#include "arith/translation.h"
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

// OpenCV turns in fixed point and blends the image's edge with black: some pixels differ.
std::function<std::string(const Frame&, const PeerFrame&)> NearlyAllWithin(int tolerance) {
  return [=](const Frame& frame, const PeerFrame& peer) -> std::string {
    const cv::Mat ours = ToMat(frame.result);
    if (ours.size() != peer.result.size()) return "sizes differ";
    cv::Mat difference;
    cv::absdiff(ours, peer.result, difference);
    const double share =
        cv::countNonZero(difference > tolerance) / static_cast<double>(ours.total());
    return share < 0.02 ? "" : "pixels differ: a share of " + std::to_string(share);
  };
}

// OpenCV maps corners on corners, which takes other pixels for most scales: checked by the rule.
std::function<std::string(const Frame&, const PeerFrame&)> PixelsAtScale(double scale) {
  return [=](const Frame& frame, const PeerFrame& peer) -> std::string {
    const cv::Mat ours = ToMat(frame.result), source = ToMat(frame.source);
    if (ours.size() != peer.result.size()) return "sizes differ";
    for (int y = 0; y < ours.rows; ++y) {
      const int row = std::min(static_cast<int>((y + 0.5) / scale), source.rows - 1);
      for (int x = 0; x < ours.cols; ++x) {
        const int column = std::min(static_cast<int>((x + 0.5) / scale), source.cols - 1);
        if (ours.at<uint8_t>(y, x) != source.at<uint8_t>(row, column)) return "pixels differ";
      }
    }
    return "";
  };
}

void AddScaling(const char* name, double scale) {
  Add({.name = name,
       .bytesPerPixel = scale < 1 ? 2 * scale : 1 + scale * scale,
       .ours = [=](Frame& f) { ScaleImage(f.kernels, f.source, f.result, scale, scale); },
       .peer =
           [=](PeerFrame& f) {
             cv::resize(f.source, f.result, {}, scale, scale, cv::INTER_NEAREST);
           },
       .check = PixelsAtScale(scale)});
}

void AddRotation(const std::string& name, Sampling sampling, double angle) {
  const bool nearest = sampling == Sampling::kNearest;
  Add({.name = name,
       .ours = [=](Frame& f) { RotateImage(f.kernels, sampling, f.source, f.result, angle); },
       .peer =
           [=](PeerFrame& f) {
             const cv::Point2d centre((f.source.cols - 1) / 2.0, (f.source.rows - 1) / 2.0);
             cv::warpAffine(f.source, f.result, cv::getRotationMatrix2D(centre, -angle, 1),
                            f.source.size(), nearest ? cv::INTER_NEAREST : cv::INTER_LINEAR);
           },
       .check = NearlyAllWithin(nearest ? 0 : 12)});
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

  AddScaling("scale_0.5", 0.5);
  AddScaling("scale_0.7", 0.7);
  AddScaling("scale_1.3", 1.3);
  AddScaling("scale_2", 2);
  Add({.name = "translate",
       .ours = [](Frame& f) { TranslateImage(f.source, f.result, 13, -7); },
       .peer =
           [](PeerFrame& f) {
             const int width = f.source.cols - 13, height = f.source.rows - 7;
             f.result.create(f.source.size(), CV_8U);
             f.result.setTo(0);
             f.source({0, 7, width, height}).copyTo(f.result({13, 0, width, height}));
           },
       .check = PixelsWithin(0)});
  for (const int angle : {1, 30, 90}) {
    AddRotation("rotate_" + std::to_string(angle), Sampling::kNearest, angle);
    AddRotation("rotate_bilinear_" + std::to_string(angle), Sampling::kBilinear, angle);
  }
}

}  // namespace quillon::bench
