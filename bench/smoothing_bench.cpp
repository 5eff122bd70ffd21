// Smoothing and convolution beside OpenCV.
#include <algorithm>
#include <numeric>
#include <opencv2/imgproc.hpp>

#include "families.h"
#include "filters/convolution.h"
#include "filters/smoothing.h"
#include "support/operation.h"

namespace quillon::bench {
namespace {

// OpenCV's Gaussian of 7 columns has other weights, so the pixels are checked against exact sums.
std::string IsBinomialMean(const Frame& frame, int size) {
  const cv::Mat weights = size == 3   ? (cv::Mat_<float>(3, 1) << 1, 2, 1)
                          : size == 5 ? (cv::Mat_<float>(5, 1) << 1, 4, 6, 4, 1)
                                      : (cv::Mat_<float>(7, 1) << 1, 6, 15, 20, 15, 6, 1);
  const double n = 1 << 2 * (size - 1);
  cv::Mat sums;
  cv::sepFilter2D(ToMat(frame.source), sums, CV_32F, weights, weights);
  const cv::Mat ours = ToMat(frame.result);
  for (int y = size / 2; y < ours.rows - size / 2; ++y) {
    for (int x = size / 2; x < ours.cols - size / 2; ++x) {
      const auto exact = static_cast<uint8_t>((sums.at<float>(y, x) + n / 2) / n);
      if (ours.at<uint8_t>(y, x) != exact) return "pixels differ";
    }
  }
  return "";
}

void AddGaussian(int size) {
  Add({.name = "gaussian_" + std::to_string(size),
       .ours = [=](Frame& f) { GaussianSmoothing(f.kernels, f.source, f.result, size); },
       .peer =
           [=](PeerFrame& f) {
             cv::GaussianBlur(f.source, f.result, {size, size}, 0);
           },
       .check = [=](const Frame& f, const PeerFrame&) { return IsBinomialMean(f, size); }});
}

void AddMean(int size) {
  Add({.name = "mean_" + std::to_string(size),
       .ours = [=](Frame& f) { MeanSmoothing(f.kernels, f.source, f.result, size); },
       .peer =
           [=](PeerFrame& f) {
             cv::blur(f.source, f.result, {size, size});
           },
       .check = PixelsWithin(0, size / 2)});
}

using Weights = std::vector<int>;

// Kernels without a zero, one for each way that convolution has. Signs and values vary, so that no
// other symmetry helps, nor a common divisor.
Weights SmallWeights(int size) {
  Weights weights;
  for (int i = 0; i < size * size; ++i) weights.push_back(i % 5 == 2 ? -2 : 1 + i % 3);
  return weights;
}
Weights SeparableWeights(int size) {
  Weights weights;
  for (int i = 0; i < size; ++i) {
    for (int j = 0; j < size; ++j) weights.push_back((3 + 5 * (i % 4)) * (2 + 7 * (j % 3)));
  }
  return weights;
}
Weights WordWeights(int size) {
  Weights weights;
  for (int i = 0; i < size * size; ++i) weights.push_back(i % 4 == 1 ? -90 - i : 150 + 7 * i);
  return weights;
}
Weights LongWeights(int size) {
  Weights weights = WordWeights(size);
  for (int i = 0; i < size * size; ++i) weights[i] = weights[i] * 12345 + i % 3;
  return weights;
}

// OpenCV's kernels are real numbers; it rounds where we truncate.
void AddConvolution(const std::string& kind, int size, const Weights& weights) {
  const double sum = std::max(std::accumulate(weights.begin(), weights.end(), 0.0), 1.0);
  Add({.name = "convolution_" + std::to_string(size) + "_" + kind,
       .ours = [=](Frame& f) { Convolve(f.kernels, f.source, f.result, weights.data(), size); },
       .peer =
           [=](PeerFrame& f) {
             const cv::Mat kernel(size, size, CV_32S, const_cast<int*>(weights.data()));
             cv::Mat scaled;
             kernel.convertTo(scaled, CV_32F, 1 / sum);
             cv::filter2D(f.source, f.result, -1, scaled);
           },
       .check = PixelsWithin(1, size / 2)});
}

}  // namespace

void AddSmoothingOperations() {
  for (int size : {3, 5, 7}) AddGaussian(size);
  for (int size : {3, 5, 7, 15, 31, 127, 301}) AddMean(size);
  for (int size : {3, 5, 7}) {
    AddConvolution("small", size, SmallWeights(size));
    AddConvolution("separable", size, SeparableWeights(size));
    AddConvolution("words", size, WordWeights(size));
    AddConvolution("long", size, LongWeights(size));
  }
}

}  // namespace quillon::bench
