// How the cost of calls grows: with the image's size, a window's radius, the number of blobs, and
// the angles and scales of a search. Calls the exports, as hosts do. Prints lines of
//   PLOT SERIES X NANOSECONDS
// of processor time a call, the shortest of many: other programs make calls longer, never shorter.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <string>

#include "quillon/quillon.h"

namespace {

using namespace quillon;

double ProcessorNanoseconds() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return 1e9 * static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec);
}

// Of at least three calls and as many as a twentieth of a second holds. Many short ones are taken
// together, so that reading the clock does not count.
double ShortestCall(const std::function<void()>& call) {
  call();
  const double first = ProcessorNanoseconds();
  call();
  const double about = ProcessorNanoseconds() - first;
  const int together = std::clamp(static_cast<int>(2e5 / std::max(about, 1.0)), 1, 1000);
  double shortest = 1e300;
  for (int i = 0; i < 3 || ProcessorNanoseconds() - first < 5e7; ++i) {
    const double start = ProcessorNanoseconds();
    for (int k = 0; k < together; ++k) call();
    shortest = std::min(shortest, (ProcessorNanoseconds() - start) / together);
  }
  return shortest;
}

void Print(const char* plot, const std::string& series, double x,
           const std::function<void()>& call) {
  std::printf("%s %s %.0f %.1f\n", plot, series.c_str(), x, ShortestCall(call));
  std::fflush(stdout);
}

void FillNoise(GreyImage& image, int width, int height, uint32_t seed) {
  image.Create(width, height);
  for (int i = 0; i < image.imageSize; ++i) {
    seed = seed * 1664525u + 1013904223u;
    image.bits[i] = static_cast<uint8_t>(seed >> 24);
  }
}

// Soft blotches over the whole range.
void FillTexture(GreyImage& image, int width, int height) {
  GreyImage noise;
  FillNoise(noise, width, height, 7);
  IxMeanSmoothing(&noise, &noise, 9);
  IxImageGainOffset(&noise, &image, 8, -900);
}

void OverSize() {
  struct Side {
    int width, height;
  };
  for (const Side side : {Side{16, 16},
                          {32, 32},
                          {64, 64},
                          {128, 128},
                          {256, 256},
                          {512, 512},
                          {1024, 1024},
                          {2048, 2048},
                          {4096, 4096},
                          {8192, 8192},
                          {16384, 8192}}) {
    GreyImage source, other, result;
    FillNoise(source, side.width, side.height, 1);
    FillNoise(other, side.width, side.height, 2);
    const double pixels = static_cast<double>(side.width) * side.height;
    const auto print = [&](const char* name, const std::function<void()>& call) {
      Print("size", name, pixels, call);
    };
    print("add", [&] { IxImageAdd(&source, &other, &result); });
    print("sobel", [&] { IxSobel(&source, &result); });
    print("gaussian_5", [&] { IxGaussianSmoothing5x5(&source, &result); });
    print("mean_15", [&] { IxMeanSmoothing(&source, &result, 15); });
    print("median_5x5", [&] { IxMedianFilter5x5(&source, &result); });
    print("dilate_r3", [&] { IxDilation(&source, &result, 3, 3); });
    print("rotate_30", [&] { IxImageRotation(&source, &result, 30); });
    print("rotate_90", [&] { IxImageRotation(&source, &result, 90); });
    print("memcpy",
          [&] { std::memcpy(result.bits, source.bits, static_cast<size_t>(source.imageSize)); });
  }
}

void OverRadius() {
  GreyImage source, result;
  FillNoise(source, 1920, 1080, 1);
  for (const int radius : {1, 2, 3, 4, 6, 8, 12, 16, 24, 32, 48, 64, 96, 128, 192, 256}) {
    const auto print = [&](const char* name, const std::function<void()>& call) {
      Print("radius", name, radius, call);
    };
    print("mean", [&] { IxMeanSmoothing(&source, &result, 2 * radius + 1); });
    print("dilate_square", [&] { IxDilation(&source, &result, radius, radius); });
    print("dilate_diamond", [&] { IxDilationDiamond(&source, &result, radius); });
    print("dilate_circle", [&] { IxDilationCircle(&source, &result, radius); });
  }
}

// Squares on a grid that fills a quarter of the image, whatever their number.
void OverBlobs() {
  constexpr int kWidth = 1920, kHeight = 1080;
  for (const int count : {1, 10, 100, 1000, 3000, 10'000, 30'000}) {
    GreyImage image;
    image.Create(kWidth, kHeight);
    const double cell = std::sqrt(double{kWidth} * kHeight / count);
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        const bool inside = std::fmod(x, cell) < cell / 2 && std::fmod(y, cell) < cell / 2;
        image.rows[y][x] = inside ? 255 : 0;
      }
    }
    const std::unique_ptr<RLERegion, void (*)(RLERegion*)> region(
        CreateRLERegion(), [](RLERegion* r) { DestroyRLERegion(r); });
    const int corners[] = {0, 0, kWidth, 0, kWidth, kHeight - 1, 0, kHeight - 1};
    IxPointToRegion(region.get(), corners, 4);
    const auto label = [&] { IxGrayBlobLabel(&image, region.get(), 255, 255); };
    Print("blobs", "label", count, label);
    Print("blobs", "label_and_features", count, [&] {
      label();
      IxComputeAllBlobFeature(region.get());
    });
  }
}

// A template cut from the picture that it is looked for in.
void OverPoses() {
  constexpr int kSide = 64, kLeft = 803, kTop = 437;
  GreyImage scene, pattern;
  FillTexture(scene, 1280, 1024);
  pattern.Create(kSide, kSide);
  for (int y = 0; y < kSide; ++y) {
    std::memcpy(pattern.rows[y], scene.rows[kTop + y] + kLeft, kSide);
  }
  const std::unique_ptr<NccTool, void (*)(NccTool*)> tool(IxCreateNCCTool(),
                                                          [](NccTool* t) { IxDestroyNCCModel(t); });
  IxCreateNCCMatchModel(&pattern, tool.get(), false);
  const auto find = [&](double degrees, double scale) {
    IxFindNCCMatchModel(&scene, tool.get(), 0.8, degrees, -degrees, 1 + scale, 1 - scale,
                        degrees > 0, 1);
  };
  for (const int degrees : {0, 2, 5, 10, 20, 45, 90, 180}) {
    Print("angles", "template_64", degrees, [&] { find(degrees, 0); });
  }
  for (const int percent : {0, 2, 5, 10, 20, 40}) {
    Print("scales", "template_64", percent, [&] { find(0, percent / 100.0); });
    Print("scales", "template_64_10_degrees", percent, [&] { find(10, percent / 100.0); });
  }
}

}  // namespace

int main() {
  OverSize();
  OverRadius();
  OverBlobs();
  OverPoses();
}
