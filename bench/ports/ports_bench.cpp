// Row operations at the lowest level of the processor that this is built for, on 1920 x 1080 pixels
// of noise, by the names that the benchmark beside OpenCV has: what scripts/bench --ports compares
// between processors.
//
//   quillon_ports_bench              every row's name and microseconds: the shortest of many calls
//   quillon_ports_bench NAME CALLS   that row so often, for one who counts instructions
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "arith/arithmetic.h"
#include "arith/rotation.h"
#include "arith/scaling.h"
#include "arith/translation.h"
#include "color/colour_convert.h"
#include "core/grey.h"
#include "filters/convolution.h"
#include "filters/gradient.h"
#include "filters/median.h"
#include "filters/smoothing.h"
#include "morph/morph.h"
#include "point/threshold.h"
#include "pyramid/pyramid.h"
#include "simd/kernels.h"

namespace {

using namespace quillon;

constexpr int kWidth = 1920, kHeight = 1080;

struct Images {
  const Kernels& kernels = *AvailableKernels().front();
  GreyImage source, other, result;
  ColourImage colour;

  Images() {
    FillNoise(source, 1);
    FillNoise(other, 2);
    FillNoise(colour, 3);
  }

  template <class Pixel>
  static void FillNoise(CImage<Pixel>& image, uint32_t seed) {
    image.Create(kWidth, kHeight);
    for (int i = 0; i < image.imageSize; ++i) {
      seed = seed * 1664525u + 1013904223u;
      image.bits[i] = static_cast<uint8_t>(seed >> 24);
    }
  }
};

struct Row {
  std::string name;
  std::function<void(Images&)> call;
};

// The weights of the benchmark beside OpenCV: one set for each way that convolution has.
std::vector<int> Weights(const std::string& kind, int size) {
  std::vector<int> weights;
  for (int i = 0; i < size * size; ++i) {
    const int word = i % 4 == 1 ? -90 - i : 150 + 7 * i;
    weights.push_back(kind == "small"       ? (i % 5 == 2 ? -2 : 1 + i % 3)
                      : kind == "separable" ? (3 + 5 * (i / size % 4)) * (2 + 7 * (i % size % 3))
                      : kind == "words"     ? word
                                            : word * 12345 + i % 3);
  }
  return weights;
}

std::vector<Row> AllRows() {
  std::vector<Row> rows = {
      {"color_to_grey", [](Images& f) { ColorToGrey(f.kernels, f.colour, f.result); }},
      {"colour_channel", [](Images& f) { CopyChannel(f.kernels, f.colour, f.result, 1); }},
      {"threshold", [](Images& f) { ApplyThreshold(f.kernels, f.other, 100); }},
      {"double_threshold", [](Images& f) { ApplyDoubleThreshold(f.kernels, f.other, 50, 200); }},
      {"shift_left", [](Images& f) { ShiftPixelsLeft(f.kernels, f.source, f.result, 2); }},
      {"shift_right", [](Images& f) { ShiftPixelsRight(f.kernels, f.source, f.result, 2); }},
      {"invert", [](Images& f) { InvertPixels(f.kernels, f.source, f.result); }},
      {"gain_offset",
       [](Images& f) { ApplyGainOffset(f.kernels, f.source, f.result, 1.37, -21.5); }},
      {"translate", [](Images& f) { TranslateImage(f.source, f.result, 13, -7); }},
      {"sobel", [](Images& f) { Sobel(f.kernels, f.source, f.result); }},
      {"prewitt", [](Images& f) { Prewitt(f.kernels, f.source, f.result); }},
      {"robert", [](Images& f) { Robert(f.kernels, f.source, f.result); }},
      {"laplacian", [](Images& f) { Laplacian(f.kernels, f.source, f.result); }},
      {"laplacian_sharpen", [](Images& f) { LaplacianSharpen(f.kernels, f.source, f.result); }},
      {"median3x3_noise", [](Images& f) { Median3x3(f.kernels, f.source, f.result); }},
      {"median5x5_noise", [](Images& f) { Median5x5(f.kernels, f.source, f.result); }},
      {"pyramid_16", [](Images& f) { ReduceImageBy16(f.kernels, f.source, f.result); }},
  };
  const std::pair<const char*, PairRule> pairs[] = {
      {"add", PairRule::kAdd},    {"sub", PairRule::kSubtract}, {"mul", PairRule::kMultiply},
      {"div", PairRule::kDivide}, {"and", PairRule::kAnd},      {"equal", PairRule::kEqual}};
  for (const auto& [name, rule] : pairs) {
    rows.push_back({name, [rule = rule](Images& f) {
                      CombinePixels(f.kernels, rule, f.source, f.other, f.result);
                    }});
  }
  for (const char* scale : {"0.5", "0.7", "1.3", "2"}) {
    rows.push_back({std::string("scale_") + scale, [=](Images& f) {
                      ScaleImage(f.kernels, f.source, f.result, std::atof(scale), std::atof(scale));
                    }});
  }
  for (const int angle : {1, 30, 90}) {
    for (const Sampling sampling : {Sampling::kNearest, Sampling::kBilinear}) {
      const char* kind = sampling == Sampling::kNearest ? "rotate_" : "rotate_bilinear_";
      rows.push_back({kind + std::to_string(angle), [=](Images& f) {
                        RotateImage(f.kernels, sampling, f.source, f.result, angle);
                      }});
    }
  }
  for (const int size : {3, 5, 7}) {
    rows.push_back({"gaussian_" + std::to_string(size),
                    [=](Images& f) { GaussianSmoothing(f.kernels, f.source, f.result, size); }});
    for (const char* kind : {"small", "separable", "words", "long"}) {
      rows.push_back({"convolution_" + std::to_string(size) + "_" + kind,
                      [size, weights = Weights(kind, size)](Images& f) {
                        Convolve(f.kernels, f.source, f.result, weights.data(), size);
                      }});
    }
  }
  for (const int size : {3, 5, 7, 15, 31, 127}) {
    rows.push_back({"mean_" + std::to_string(size),
                    [=](Images& f) { MeanSmoothing(f.kernels, f.source, f.result, size); }});
  }
  for (const int radius : {1, 3, 10, 25}) {
    rows.push_back({"dilate_rect_r" + std::to_string(radius), [=](Images& f) {
                      Dilate(f.kernels, f.source, f.result, Rectangle(radius, radius));
                    }});
  }
  for (const int passes : {1, 5, 20}) {
    rows.push_back({"dilate_diamond_" + std::to_string(passes),
                    [=](Images& f) { Dilate(f.kernels, f.source, f.result, Diamond(passes)); }});
  }
  rows.push_back(
      {"dilate_circle_5", [](Images& f) { Dilate(f.kernels, f.source, f.result, Circle(5)); }});
  rows.push_back(
      {"open_rect_r3", [](Images& f) { Open(f.kernels, f.source, f.result, Rectangle(3, 3)); }});
  return rows;
}

// Other programs on the machine make calls longer, never shorter. The first calls are left to those
// who compile a module while it runs.
double ShortestMicroseconds(const Row& row, Images& images) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::milliseconds(400);
  double shortest = 1e300;
  for (int i = 0; i < 30 || (i < 1000 && Clock::now() < end); ++i) {
    const auto start = Clock::now();
    row.call(images);
    const std::chrono::duration<double, std::micro> taken = Clock::now() - start;
    shortest = std::min(shortest, taken.count());
  }
  return shortest;
}

}  // namespace

int main(int argc, char** argv) {
  Images images;
  bool found = false;
  for (const Row& row : AllRows()) {
    if (argc == 1) std::printf("%s %.1f\n", row.name.c_str(), ShortestMicroseconds(row, images));
    if (argc != 3 || row.name != argv[1]) continue;
    found = true;
    for (int calls = std::atoi(argv[2]); calls > 0; --calls) row.call(images);
  }
  return argc == 1 || found ? 0 : 2;
}
