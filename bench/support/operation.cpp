#include "support/operation.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <opencv2/imgproc.hpp>

namespace quillon::bench {
namespace {

template <class Pixel>
void FillNoise(CImage<Pixel>& image, Size size, uint32_t seed) {
  image.Create(size.width, size.height);
  uint32_t state = seed;
  for (int i = 0; i < image.imageSize; ++i) {
    state = state * 1664525u + 1013904223u;
    image.bits[i] = static_cast<uint8_t>(state >> 24);
  }
}

std::unique_ptr<Frame> MakeFrame(const Operation& operation, const Kernels& kernels, Size size) {
  auto frame = std::make_unique<Frame>(kernels);
  FillNoise(frame->source, size, 1);
  FillNoise(frame->other, size, 2);
  FillNoise(frame->colour, size, 3);
  if (operation.prepare) operation.prepare(*frame);
  return frame;
}

std::unique_ptr<PeerFrame> MakePeerFrame(const Operation& operation, const Frame& frame) {
  auto peer = std::make_unique<PeerFrame>();
  peer->source = ToMat(frame.source);
  peer->other = ToMat(frame.other);
  peer->colour = ToMat(frame.colour);
  if (operation.preparePeer) operation.preparePeer(*peer);
  return peer;
}

void Check(const Operation& operation, Size size) {
  if (!operation.check) return;
  const auto frame = MakeFrame(operation, BestKernels(), size);
  const auto peer = MakePeerFrame(operation, *frame);
  operation.ours(*frame);
  if (operation.peer) operation.peer(*peer);
  const std::string message = operation.check(*frame, *peer);
  if (message.empty()) return;
  std::fprintf(stderr, "%s at %d x %d: %s\n", operation.name.c_str(), size.width, size.height,
               message.c_str());
  std::exit(1);
}

std::string RowName(const Operation& operation, Size size, const char* column) {
  return operation.name + "/" + std::to_string(size.width) + "x" + std::to_string(size.height) +
         "/" + column;
}

template <class Body>
void Register(const std::string& name, Body body) {
  benchmark::RegisterBenchmark(name.c_str(), body)->Unit(benchmark::kMicrosecond);
}

void RunOurs(benchmark::State& state, const Operation& operation, const Kernels& kernels, Size size,
             bool fresh) {
  const auto frame = MakeFrame(operation, kernels, size);
  operation.ours(*frame);
  for (auto _ : state) {
    if (fresh) {
      frame->result.Destroy();
      frame->colourResult.Destroy();
    }
    operation.ours(*frame);
  }
}

void RunPlain(benchmark::State& state, const Operation& operation, Size size) {
  const auto frame = MakeFrame(operation, BestKernels(), size);
  for (auto _ : state) operation.plain(*frame);
}

void RunPeer(benchmark::State& state, const Operation& operation, Size size) {
  const auto peer = MakePeerFrame(operation, *MakeFrame(operation, BestKernels(), size));
  operation.peer(*peer);
  for (auto _ : state) operation.peer(*peer);
}

void RunMemcpy(benchmark::State& state, size_t bytes) {
  std::vector<char> from(bytes / 2, 1), to(bytes / 2, 2);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), from.size());
    benchmark::ClobberMemory();
  }
}

// OpenCV reads what it may use before main begins, so a run that holds it to a level times OpenCV's
// rows alone, in a column of this name.
const char* HeldColumn() {
  static const char* const column = std::getenv("QUILLON_BENCH_COLUMN");
  return column;
}

}  // namespace

void Add(const Operation& operation) {
  for (const Size size : operation.sizes) {
    if (HeldColumn()) {
      if (!operation.peer) continue;
      Register(RowName(operation, size, HeldColumn()),
               [=](benchmark::State& state) { RunPeer(state, operation, size); });
      continue;
    }
    const auto checked = std::make_shared<bool>(false);
    const auto checkOnce = [=] {
      if (!*checked) Check(operation, size);
      *checked = true;
    };
    for (const Kernels* kernels : AvailableKernels()) {
      Register(RowName(operation, size, kernels->level), [=](benchmark::State& state) {
        checkOnce();
        RunOurs(state, operation, *kernels, size, /*fresh=*/false);
      });
    }
    Register(RowName(operation, size, "fresh"), [=](benchmark::State& state) {
      RunOurs(state, operation, BestKernels(), size, /*fresh=*/true);
    });
    if (operation.plain) {
      Register(RowName(operation, size, "plain"),
               [=](benchmark::State& state) { RunPlain(state, operation, size); });
    }
    if (operation.peer) {
      Register(RowName(operation, size, "opencv"),
               [=](benchmark::State& state) { RunPeer(state, operation, size); });
    }
    const auto bytes = static_cast<size_t>(operation.bytesPerPixel * size.width * size.height);
    Register(RowName(operation, size, "memcpy"),
             [=](benchmark::State& state) { RunMemcpy(state, bytes); });
  }
}

std::function<std::string(const Frame&, const PeerFrame&)> PixelsWithin(int tolerance, int border) {
  return [=](const Frame& frame, const PeerFrame& peer) -> std::string {
    const cv::Mat ours = ToMat(frame.result);
    if (ours.size() != peer.result.size()) return "sizes differ";
    const cv::Rect inner(border, border, ours.cols - 2 * border, ours.rows - 2 * border);
    cv::Mat difference;
    cv::absdiff(ours(inner), peer.result(inner), difference);
    double worst = 0;
    cv::minMaxLoc(difference, nullptr, &worst);
    return worst <= tolerance ? "" : "pixels differ by up to " + std::to_string(worst);
  };
}

void DrawPhotograph(GreyImage& image) {
  cv::RNG random(5);
  cv::Mat mat(image.height, image.width, CV_8UC1);
  for (int y = 0; y < mat.rows; ++y) {
    for (int x = 0; x < mat.cols; ++x) {
      mat.at<uint8_t>(y, x) = static_cast<uint8_t>(60 + 50 * x / mat.cols + 30 * y / mat.rows);
    }
  }
  for (int i = 0; i < 200; ++i) {
    const cv::Point centre(random.uniform(0, mat.cols), random.uniform(0, mat.rows));
    cv::circle(mat, centre, random.uniform(5, 60), cv::Scalar(random.uniform(20, 240)), cv::FILLED);
  }
  cv::GaussianBlur(mat, mat, cv::Size(5, 5), 1.2);
  cv::Mat noise(mat.size(), CV_8SC1);
  random.fill(noise, cv::RNG::NORMAL, 0, 2);
  cv::add(mat, noise, mat, cv::noArray(), CV_8U);
  FromMat(mat, image);
}

void CopyPixels(const GreyImage& from, GreyImage& to) {
  if (!to.bits || to.width != from.width || to.height != from.height) {
    to.Create(from.width, from.height);
  }
  std::memcpy(to.bits, from.bits, static_cast<size_t>(from.imageSize));
}

cv::Mat ToMat(const GreyImage& image) {
  cv::Mat mat(image.height, image.width, CV_8UC1);
  for (int y = 0; y < image.height; ++y) {
    std::memcpy(mat.ptr(y), image.rows[y], static_cast<size_t>(image.width));
  }
  return mat;
}

cv::Mat ToMat(const ColourImage& image) {
  cv::Mat mat(image.height, image.width, CV_8UC3);
  for (int y = 0; y < image.height; ++y) {
    std::memcpy(mat.ptr(y), image.rows[y], 3 * static_cast<size_t>(image.width));
  }
  return mat;
}

void FromMat(const cv::Mat& mat, GreyImage& image) {
  image.Create(mat.cols, mat.rows);
  for (int y = 0; y < mat.rows; ++y) {
    std::memcpy(image.rows[y], mat.ptr(y), static_cast<size_t>(mat.cols));
  }
}

void FromMat(const cv::Mat& mat, ColourImage& image) {
  image.Create(mat.cols, mat.rows);
  for (int y = 0; y < mat.rows; ++y) {
    std::memcpy(image.rows[y], mat.ptr(y), 3 * static_cast<size_t>(mat.cols));
  }
}

}  // namespace quillon::bench
