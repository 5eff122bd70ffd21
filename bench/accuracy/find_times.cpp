// How long the finder takes, beside a pyramid of matchTemplate.
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

void PrintTimeRow(const TimeRow& row) {
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
  GreyImage pattern, scene;
  const std::vector<test::Truth> truths = test::MakeScene(spec, pattern, scene);
  finder::TeachOptions teaching;
  teaching.way = row.way;
  finder::Model model;
  finder::Teach(BestFinderKernels(), PictureOf(pattern), teaching, model);
  FindOptions options;
  options.angleLow = -row.range;
  options.angleHigh = row.range;
  options.scaleLow = row.scaleLow;
  options.scaleHigh = row.scaleHigh;
  options.minScore = 0.6;
  options.maxCount = row.instances;
  finder::Results results;
  const double time = LeastTime(
      [&] { finder::Find(BestFinderKernels(), model, PictureOf(scene), options, results); });
  Figures figures;
  Compare(truths, results, figures);
  std::printf("| %s | %d of %d | %.2f ms |", row.name, figures.found, figures.truths, time);
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
    const bench::TemplateSearch search(toMat(pattern), row.peerLevels, angles);
    const cv::Mat image = toMat(scene);
    const double peer = LeastTime([&] { search.Find(image); });
    std::printf(" %.2f ms, %.1f x", peer, peer / time);
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
      {"edges, 96 x 96, any angle", Way::kEdges, 96, 1, 180, 1280, 1024, 1, 1, 0},
      {"edges, 320 x 256 pixels", Way::kEdges, 96, 1, 180, 320, 256, 1, 1, 0},
      {"edges, 640 x 512 pixels", Way::kEdges, 96, 1, 180, 640, 512, 1, 1, 0},
      {"edges, 2560 x 2048 pixels", Way::kEdges, 96, 1, 180, 2560, 2048, 1, 1, 0},
      {"edges, 5 deg", Way::kEdges, 96, 1, 5, 1280, 1024, 1, 1, 0},
      {"edges, 60 deg", Way::kEdges, 96, 1, 60, 1280, 1024, 1, 1, 0},
      {"edges, any angle, scale 0.9 to 1.1", Way::kEdges, 96, 1, 180, 1280, 1024, 0.9, 1.1, 0},
      {"edges, any angle, scale 0.5 to 2", Way::kEdges, 96, 1, 180, 1280, 1024, 0.5, 2, 0},
      {"edges, any angle, 5 parts", Way::kEdges, 96, 5, 180, 1280, 1024, 1, 1, 0},
      {"edges, any angle, 20 parts", Way::kEdges, 96, 20, 180, 1280, 1024, 1, 1, 0}};
  for (const TimeRow& row : kRows) PrintTimeRow(row);
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
      finder::Teach(BestFinderKernels(), PictureOf(scene.pattern), {}, model);
      FindOptions options;
      options.angleLow = -range;
      options.angleHigh = range;
      options.minScore = 0.6;
      options.maxCount = 1;
      Tally tally;
      finder::Results results;
      times.push_back(LeastTime([&] {
        finder::Find(BestFinderKernels(), model, PictureOf(scene.image), options, results);
      }));
      FindOne(settings, scene, model, options, tally);
      found += tally.found;
    }
    std::printf(
        "| edges, 96 x 96, photographs, %.0f deg | %d of %zu | median %.2f, worst %.2f ms | |\n",
        range, found, times.size(), Median(times), Largest(times));
  }
}

}  // namespace quillon::accuracy
