// Gradient and median filters beside OpenCV.
#include <opencv2/imgproc.hpp>

#include "families.h"
#include "filters/gradient.h"
#include "filters/median.h"
#include "support/operation.h"

namespace quillon::bench {
namespace {

// Border and tail columns follow other rules than OpenCV's.
constexpr int kMargin = 8;

// |gx| / 4 + |gy| / 4, rounded each: within 1 of the truncated quarter of the sum.
void AddMagnitudes(const cv::Mat& gx, const cv::Mat& gy, cv::Mat& result) {
  static cv::Mat x, y;
  cv::convertScaleAbs(gx, x, 0.25);
  cv::convertScaleAbs(gy, y, 0.25);
  cv::add(x, y, result);
}

struct Derivatives {
  cv::Mat gx, gy;
};

Derivatives& MakeDerivatives(PeerFrame& f) {
  if (!f.state) f.state = std::make_shared<Derivatives>();
  return *static_cast<Derivatives*>(f.state.get());
}

void PeerSobel(PeerFrame& f) {
  Derivatives& d = MakeDerivatives(f);
  cv::spatialGradient(f.source, d.gx, d.gy);
  AddMagnitudes(d.gx, d.gy, f.result);
}

void PeerPrewitt(PeerFrame& f) {
  static const cv::Mat smooth = (cv::Mat_<float>(1, 3) << 1, 1, 1);
  static const cv::Mat slope = (cv::Mat_<float>(1, 3) << -1, 0, 1);
  Derivatives& d = MakeDerivatives(f);
  cv::sepFilter2D(f.source, d.gx, CV_16S, slope, smooth);
  cv::sepFilter2D(f.source, d.gy, CV_16S, smooth, slope);
  AddMagnitudes(d.gx, d.gy, f.result);
}

void PeerRobert(PeerFrame& f) {
  const cv::Mat& m = f.source;
  const cv::Rect here(0, 0, m.cols - 1, m.rows - 1);
  const cv::Point east(1, 0), south(0, 1);
  f.result.create(m.size(), m.type());
  cv::Mat inner = f.result(here);
  Derivatives& d = MakeDerivatives(f);
  cv::absdiff(m(here), m(here + east + south), d.gx);
  cv::absdiff(m(here + east), m(here + south), d.gy);
  cv::add(d.gx, d.gy, inner);
  cv::add(inner, inner, inner);
}

auto PeerCentreAgainstNeighbours(float centre) {
  cv::Mat kernel(3, 3, CV_32F, cv::Scalar(-1));
  kernel.at<float>(1, 1) = centre;
  return [=](PeerFrame& f) { cv::filter2D(f.source, f.result, CV_8U, kernel); };
}

// What stands for a photograph: shaded areas with edges, and a little noise.
void MakePhotograph(Frame& f) {
  cv::Mat photo(f.source.height, f.source.width, CV_8UC1);
  cv::RNG random(7);
  for (int y = 0; y < photo.rows; ++y) {
    for (int x = 0; x < photo.cols; ++x)
      photo.at<uchar>(y, x) = cv::saturate_cast<uchar>(40 + x / 16);
  }
  for (int i = 0; i < 200; ++i) {
    const cv::Point centre(random.uniform(0, photo.cols), random.uniform(0, photo.rows));
    cv::circle(photo, centre, random.uniform(5, 90), cv::Scalar(random.uniform(0, 256)), -1);
  }
  cv::GaussianBlur(photo, photo, {}, 1.2);
  cv::Mat noise(photo.size(), CV_8SC1);
  random.fill(noise, cv::RNG::NORMAL, 0, 3);
  cv::add(photo, noise, photo, cv::noArray(), CV_8U);
  FromMat(photo, f.source);
}

void AddMedian(const std::string& name,
               void (*filter)(const Kernels&, const GreyImage&, GreyImage&), int size) {
  for (const bool photograph : {false, true}) {
    Add({.name = name + (photograph ? "_photo" : "_noise"),
         .prepare = photograph ? MakePhotograph : std::function<void(Frame&)>(),
         .ours = [=](Frame& f) { filter(f.kernels, f.source, f.result); },
         .peer = [=](PeerFrame& f) { cv::medianBlur(f.source, f.result, size); },
         .check = PixelsWithin(0, kMargin)});
  }
}

}  // namespace

void AddNeighbourhoodFilters() {
  Add({.name = "sobel",
       .ours = [](Frame& f) { Sobel(f.kernels, f.source, f.result); },
       .peer = PeerSobel,
       .check = PixelsWithin(1, kMargin)});
  Add({.name = "prewitt",
       .ours = [](Frame& f) { Prewitt(f.kernels, f.source, f.result); },
       .peer = PeerPrewitt,
       .check = PixelsWithin(1, kMargin)});
  Add({.name = "robert",
       .ours = [](Frame& f) { Robert(f.kernels, f.source, f.result); },
       .peer = PeerRobert,
       .check = PixelsWithin(0, kMargin)});
  Add({.name = "laplacian",
       .ours = [](Frame& f) { Laplacian(f.kernels, f.source, f.result); },
       .peer = PeerCentreAgainstNeighbours(8),
       .check = PixelsWithin(0, kMargin)});
  Add({.name = "laplacian_sharpen",
       .ours = [](Frame& f) { LaplacianSharpen(f.kernels, f.source, f.result); },
       .peer = PeerCentreAgainstNeighbours(9),
       .check = PixelsWithin(0, kMargin)});
  AddMedian("median3x3", Median3x3, 3);
  AddMedian("median5x5", Median5x5, 5);
}

}  // namespace quillon::bench
