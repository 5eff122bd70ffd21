// How long the finder takes: beside a pyramid of matchTemplate, and with what it grows.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "accuracy/find_figures.h"
#include "support/template_search.h"

namespace quillon::accuracy {
namespace {

using finder::FindOptions;

// The least of a few runs, in milliseconds of processor time.
template <class Run>
double LeastTime(const Run& run) {
  double least = 1e9;
  const double begin = CpuSeconds();
  for (int i = 0; i < 20 && (i < 3 || CpuSeconds() - begin < 0.4); ++i) {
    const double start = CpuSeconds();
    run();
    least = std::min(least, CpuSeconds() - start);
  }
  return 1000 * least;
}

struct TimeRow {
  const char* name;
  finder::Way way;
  int side, instances;
  double range;
  int width, height;
  double scaleLow, scaleHigh;
  int peerLevels;  // of the pyramid of matchTemplate; 0: no peer
};

// Teaches the pattern of a drawn scene and finds as many parts as it has.
struct TimedScene {
  TimedScene(const Settings& settings, finder::Way way, const test::SceneSpec& spec)
      : truths(test::MakeScene(spec, pattern, scene)) {
    finder::TeachOptions teaching;
    teaching.way = way;
    finder::Model model;
    finder::Teach(*settings.kernels, PictureOf(pattern), teaching, model);
    FindOptions options;
    options.angleLow = spec.angleMin;
    options.angleHigh = spec.angleMax;
    options.scaleLow = spec.scaleMin;
    options.scaleHigh = spec.scaleMax;
    options.minScore = 0.6;
    options.maxCount = spec.instances;
    finder::Results results;
    time = LeastTime(
        [&] { finder::Find(*settings.kernels, model, PictureOf(scene), options, results); });
    Compare(truths, results, figures);
  }
  GreyImage pattern, scene;
  std::vector<test::Truth> truths;
  Figures figures;
  double time = 0;  // milliseconds
};

void PrintTimeRow(const Settings& settings, const TimeRow& row) {
  const test::SceneSpec spec = {.templateWidth = row.side,
                                .templateHeight = row.side,
                                .width = row.width,
                                .height = row.height,
                                .instances = row.instances,
                                .angleMin = -row.range,
                                .angleMax = row.range,
                                .scaleMin = row.scaleLow,
                                .scaleMax = row.scaleHigh,
                                .seed = 77};
  const TimedScene timed(settings, row.way, spec);
  std::printf("| %s | %d of %d | %.2f ms |", row.name, timed.figures.found, timed.figures.truths,
              timed.time);
  if (row.peerLevels > 0) {
    const auto toMat = [](const GreyImage& image) {
      cv::Mat mat(image.height, image.width, CV_8UC1);
      for (int y = 0; y < image.height; ++y) {
        std::memcpy(mat.ptr(y), image.rows[y], static_cast<size_t>(image.width));
      }
      return mat;
    };
    std::vector<double> angles = {0};
    if (row.range > 0) {
      angles.clear();
      // About a pixel of the coarsest level at the template's corner.
      const double step = 57.3 * (1 << row.peerLevels) / (0.7 * row.side);
      for (double a = -row.range; a <= row.range; a += step) angles.push_back(a);
    }
    const bench::TemplateSearch search(toMat(timed.pattern), row.peerLevels, angles);
    const cv::Mat image = toMat(timed.scene);
    const double peer = LeastTime([&] { search.Find(image); });
    std::printf(" %.2f ms, %.1f x", peer, peer / timed.time);
  }
  std::printf(" |\n");
  std::fflush(stdout);
}

// A photograph, enlarged and repeated mirrored until it fills 1280 x 1024.
cv::Mat FillScreen(const cv::Mat& photo) {
  cv::Mat filled;
  cv::copyMakeBorder(photo, filled, 0, std::max(0, 1024 - photo.rows), 0,
                     std::max(0, 1280 - photo.cols), cv::BORDER_REFLECT_101);
  return filled({0, 0, 1280, 1024}).clone();
}

}  // namespace

void PrintTimes(const Settings& settings) {
  using finder::Way;
  cv::setNumThreads(1);
  std::printf(
      "| 1280 x 1024 where nothing else is said | found | time | matchTemplate's pyramid |\n"
      "|---|---|---|---|\n");
  constexpr TimeRow kRows[] = {
      {"grey, 64 x 64, no angles", Way::kGrey, 64, 1, 0, 1280, 1024, 1, 1, 3},
      {"grey, 64 x 64, 20 deg", Way::kGrey, 64, 1, 20, 1280, 1024, 1, 1, 3},
      {"grey, 128 x 128, 20 deg", Way::kGrey, 128, 1, 20, 1280, 1024, 1, 1, 4},
      {"grey, 64 x 64, any angle, 20 parts", Way::kGrey, 64, 20, 180, 1280, 1024, 1, 1, 0},
      {"edges, 96 x 96, 20 deg", Way::kEdges, 96, 1, 20, 1280, 1024, 1, 1, 0},
      {"edges, 96 x 96, any angle", Way::kEdges, 96, 1, 180, 1280, 1024, 1, 1, 0}};
  for (const TimeRow& row : kRows) PrintTimeRow(settings, row);
  // Photographs: the median of one scene each.
  for (const double range : {20.0, 180.0}) {
    if (settings.photos.empty()) break;
    std::vector<double> times;
    cv::RNG random(settings.seed);
    int found = 0;
    for (const cv::Mat& photo : settings.photos) {
      const Scene scene =
          PhotographedScene(FillScreen(photo), 96, random.uniform(-range, range), random);
      finder::Model model;
      finder::Teach(*settings.kernels, PictureOf(scene.pattern), {}, model);
      FindOptions options;
      options.angleLow = -range;
      options.angleHigh = range;
      options.minScore = 0.6;
      options.maxCount = 1;
      Tally tally;
      finder::Results results;
      times.push_back(LeastTime([&] {
        finder::Find(*settings.kernels, model, PictureOf(scene.image), options, results);
      }));
      FindOne(settings, scene, model, options, tally);
      found += tally.found;
    }
    std::printf(
        "| edges, 96 x 96, photographs, %.0f deg | %d of %zu | median %.2f, worst %.2f ms | |\n",
        range, found, times.size(), Median(times), Largest(times));
  }
}

// One thing grows, the rest stays: a template of 96 x 96 at any angle in 1280 x 1024.
void PrintCosts(const Settings& settings) {
  const auto print = [&](const char* what, double value, test::SceneSpec spec) {
    spec.templateWidth = spec.templateHeight = 96;
    spec.seed = 77;
    std::printf("| %s | %.2f |", what, value);
    for (const finder::Way way : {finder::Way::kEdges, finder::Way::kGrey}) {
      const TimedScene timed(settings, way, spec);
      std::printf(" %.2f ms, %d of %d |", timed.time, timed.figures.found, timed.figures.truths);
    }
    std::printf("\n");
    std::fflush(stdout);
  };
  const test::SceneSpec usual = {
      .width = 1280, .height = 1024, .instances = 1, .angleMin = -180, .angleMax = 180};
  std::printf("| what grows | to | by edges | by grey |\n|---|---|---|---|\n");
  for (const int height : {256, 512, 768, 1024, 1536, 2048}) {
    test::SceneSpec spec = usual;
    spec.height = height;
    spec.width = height * 5 / 4;
    print("picture, megapixels", 1e-6 * spec.width * spec.height, spec);
  }
  for (const int range : {0, 10, 40, 90, 180, 360}) {
    test::SceneSpec spec = usual;
    spec.angleMin = -range / 2.0;
    spec.angleMax = range / 2.0;
    print("range of angles, degrees", range, spec);
  }
  for (const double most : {1.0, 1.1, 1.25, 1.5, 2.0}) {
    test::SceneSpec spec = usual;
    spec.scaleMin = std::max(0.5, 1 / most);
    spec.scaleMax = most;
    print("largest to smallest size", spec.scaleMax / spec.scaleMin, spec);
  }
  for (const int count : {1, 2, 5, 10, 20, 40}) {
    test::SceneSpec spec = usual;
    spec.instances = count;
    print("parts", count, spec);
  }
}

}  // namespace quillon::accuracy
