#include "accuracy/find_figures.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace quillon::accuracy {
namespace {

double TurnBetween(double a, double b) { return std::abs(std::remainder(a - b, 360.0)); }

}  // namespace

finder::Picture PictureOf(const cv::Mat& mat) {
  return {mat.data, mat.cols, mat.rows, static_cast<ptrdiff_t>(mat.step)};
}

finder::Picture PictureOf(const GreyImage& image) {
  return {image.rows[0], image.width, image.height, -static_cast<ptrdiff_t>(image.stride)};
}

double CpuSeconds() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double Mean(const std::vector<double>& values) {
  double sum = 0;
  for (const double value : values) sum += value;
  return values.empty() ? 0 : sum / static_cast<double>(values.size());
}
double Largest(const std::vector<double>& values) {
  return values.empty() ? 0 : *std::max_element(values.begin(), values.end());
}

void Tally::Print() const {
  std::printf(" %.0f %%, %.2f px, %.2f deg |", 100.0 * found / std::max(trials, 1),
              Median(distances), Median(turns));
  std::fflush(stdout);
}

void FindOne(const Settings& settings, const Scene& scene, const finder::Model& model,
             const finder::FindOptions& options, Tally& tally) {
  finder::Results results;
  const double start = CpuSeconds();
  finder::Find(BestFinderKernels(), model, PictureOf(scene.image), options, results);
  tally.times.push_back(1000 * (CpuSeconds() - start));
  ++tally.trials;
  // The scene's place is that of pixel (side / 2, side / 2).
  const double half = (scene.pattern.cols / 2) - (scene.pattern.cols - 1) / 2.0;
  const double angle = scene.degrees * CV_PI / 180;
  const double x = scene.place.x - half * (std::cos(angle) - std::sin(angle));
  const double y = scene.place.y - half * (std::sin(angle) + std::cos(angle));
  constexpr double kNear = 4;  // pixels and degrees; farther is not found
  if (!results.empty()) {
    const double distance = std::hypot(results[0].x - x, results[0].y - y);
    const double turn = TurnBetween(results[0].degrees, scene.degrees);
    if (distance <= kNear && turn <= kNear) {
      ++tally.found;
      tally.distances.push_back(distance);
      tally.turns.push_back(turn);
      return;
    }
  }
  if (settings.isVerbose) {
    const double truth = finder::Score(BestFinderKernels(), model, PictureOf(scene.image),
                                       {x, y, scene.degrees, 1}, options.polarity);
    std::printf("\n  missed %d: side %d at %.1f %.1f %.1f, score %.3f; ", tally.trials,
                scene.pattern.cols, x, y, scene.degrees, truth);
    if (!results.empty()) {
      std::printf("found %.1f %.1f %.1f, score %.3f", results[0].x, results[0].y,
                  results[0].degrees, results[0].score);
    }
    std::printf(" likeness %.2f doubts %u symmetry %d", model.likeness, model.doubts,
                model.symmetry);
    std::printf(" levels %d points %zu", model.levels, model.level[model.levels - 1].points.size());
  }
}

void Compare(const std::vector<test::Truth>& truths, const finder::Results& results,
             Figures& figures) {
  std::vector<bool> met(truths.size());
  figures.truths += static_cast<int>(truths.size());
  for (const finder::Match& match : results) {
    size_t nearest = truths.size();
    double least = 2;
    for (size_t j = 0; j < truths.size(); ++j) {
      const double distance = std::hypot(truths[j].x - match.x, truths[j].y - match.y);
      if (distance < least && !met[j]) least = distance, nearest = j;
    }
    if (nearest == truths.size()) {
      ++figures.wrong;
      continue;
    }
    met[nearest] = true;
    ++figures.found;
    figures.distances.push_back(least);
    figures.turns.push_back(TurnBetween(match.degrees, truths[nearest].angle));
    figures.sizes.push_back(truths[nearest].scale);
    figures.scales.push_back(std::abs(match.scale - truths[nearest].scale));
  }
}

void PrintFigures(const Figures& f) {
  std::printf(" %d | %d | %d | %.3f, %.3f px | %.3f, %.3f deg | %.4f | %.1f ms |", f.truths,
              f.found, f.wrong, Mean(f.distances), Largest(f.distances), Mean(f.turns),
              Largest(f.turns), Mean(f.scales), Median(f.times));
  if (!f.overBound.empty()) std::printf(" %.2f", std::sqrt(Mean(f.overBound)));
  if (!f.turnOverBound.empty()) std::printf(", %.2f", std::sqrt(Mean(f.turnOverBound)));
  std::printf(" |\n");
  std::fflush(stdout);
}

}  // namespace quillon::accuracy
