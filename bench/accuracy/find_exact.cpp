// The finder on scenes whose places are known exactly: by grey values, and over sizes.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "accuracy/find_figures.h"
#include "support/synthetic_rows.h"

namespace quillon::accuracy {
namespace {

using finder::FindOptions;
using finder::Match;

// The least deviation that any unbiased estimate can have of a pose of a known template in white
// noise, with gain and offset unknown (H. Cramer, C. R. Rao): in pixels of the length of the error,
// and in degrees of the angle. `noise` is in grey values of the template.
struct Bound {
  double position = 0, turn = 0;
};

Bound BoundOf(const GreyImage& pattern, const test::SceneSpec& spec, double noise) {
  const auto at = [&](int x, int y) -> double { return pattern.rows[y][x]; };
  // By four pixels: a difference of two is too small for fine patterns.
  const auto slope = [](double a, double b, double c, double d) {
    return (8 * (c - b) - (d - a)) / 12;
  };
  const bool turns = spec.angleMax > spec.angleMin, scales = spec.scaleMax > spec.scaleMin;
  cv::Mat information = cv::Mat::zeros(6, 6, CV_64F);
  for (int y = 2; y < pattern.height - 2; ++y) {
    for (int x = 2; x < pattern.width - 2; ++x) {
      const double u = x - (pattern.width - 1) / 2.0, v = y - (pattern.height - 1) / 2.0;
      const double gx = slope(at(x - 2, y), at(x - 1, y), at(x + 1, y), at(x + 2, y));
      const double gy = slope(at(x, y - 2), at(x, y - 1), at(x, y + 1), at(x, y + 2));
      const cv::Matx<double, 6, 1> terms(gx, gy, 1, at(x, y), turns ? u * gy - v * gx : 0,
                                         scales ? u * gx + v * gy : 0);
      information += cv::Mat(terms * terms.t());
    }
  }
  for (int i = 0; i < 6; ++i) {
    if (information.at<double>(i, i) == 0) information.at<double>(i, i) = 1;  // does not vary
  }
  const cv::Mat least = information.inv() * (noise * noise);
  return {std::sqrt(least.at<double>(0, 0) + least.at<double>(1, 1)),
          std::sqrt(least.at<double>(4, 4)) * 180 / CV_PI};
}

void RunSynthetic(const Settings& settings, const test::SceneSpec& spec, finder::Way way,
                  double minScore, Figures& figures) {
  GreyImage pattern, scene;
  const std::vector<test::Truth> truths = test::MakeScene(spec, pattern, scene);
  finder::Model model;
  finder::TeachOptions teaching;
  teaching.way = way;
  finder::Results results;
  if (finder::Teach(BestFinderKernels(), PictureOf(pattern), teaching, model) ==
      finder::Status::kOk) {
    FindOptions options;
    options.angleLow = spec.angleMin;
    options.angleHigh = spec.angleMax;
    options.scaleLow = spec.scaleMin;
    options.scaleHigh = spec.scaleMax;
    options.minScore = minScore;
    const double start = CpuSeconds();
    finder::Find(BestFinderKernels(), model, PictureOf(scene), options, results);
    figures.times.push_back(1000 * (CpuSeconds() - start));
  }
  const int before = figures.found;
  Compare(truths, results, figures);
  if (spec.noise > 0) {
    // A larger part has more pixels: the turn is told better, the place as well.
    const Bound bound = BoundOf(pattern, spec, spec.noise / spec.gain);
    const auto first = static_cast<size_t>(before);
    for (size_t i = first; i < figures.distances.size(); ++i) {
      figures.overBound.push_back(std::pow(figures.distances[i] / bound.position, 2));
      if (bound.turn > 0 && spec.angleMax > spec.angleMin) {
        figures.turnOverBound.push_back(
            std::pow(figures.turns[i] * figures.sizes[i] / bound.turn, 2));
      }
    }
  }
  if (settings.isVerbose && figures.found - before < static_cast<int>(truths.size())) {
    for (const test::Truth& t : truths) {
      double least = 1e9;
      for (const Match& m : results) least = std::min(least, std::hypot(m.x - t.x, m.y - t.y));
      if (least < 2) continue;
      std::printf("  missed seed %u at %.1f %.1f, %.1f deg, x %.2f: score there %.3f\n", spec.seed,
                  t.x, t.y, t.angle, t.scale,
                  finder::Score(BestFinderKernels(), model, PictureOf(scene),
                                {t.x, t.y, t.angle, t.scale}, finder::Polarity::kSame));
    }
  }
}

}  // namespace

void PrintGrey(const Settings& settings) {
  std::printf("| by grey | noise, gain |%s", kFiguresHeader);
  for (const test::SyntheticRow& row : test::SyntheticRows()) {
    Figures figures;
    const int scenes = std::max(1, row.scenes * settings.scenes / 150);
    for (int i = 0; i < scenes; ++i) {
      test::SceneSpec spec = row.spec;
      spec.seed += static_cast<uint32_t>(i + 1000 * (settings.seed - 1));
      RunSynthetic(settings, spec, finder::Way::kGrey, 0.6, figures);
    }
    std::printf("| %s | %s |", row.name, row.spec.noise > 0 ? "10, 0.7" : "0, 1");
    PrintFigures(figures);
  }
}

void PrintScales(const Settings& settings) {
  std::printf("| scale 0.5 to 2, any angle | noise |%s", kFiguresHeader);
  for (const finder::Way way : {finder::Way::kEdges, finder::Way::kGrey}) {
    for (const double noise : {0.0, 15.0}) {
      Figures figures;
      for (int i = 0; i < std::max(1, settings.scenes / 4); ++i) {
        test::SceneSpec spec = {.templateWidth = 80,
                                .templateHeight = 80,
                                .width = 1280,
                                .height = 1024,
                                .instances = 4,
                                .angleMin = -180,
                                .angleMax = 180,
                                .scaleMin = 0.5,
                                .scaleMax = 2,
                                .noise = noise};
        spec.seed = static_cast<uint32_t>(5000 + i + 1000 * settings.seed);
        RunSynthetic(settings, spec, way, 0.5, figures);
      }
      std::printf("| by %s | %.0f |", way == finder::Way::kEdges ? "edges" : "grey", noise);
      PrintFigures(figures);
    }
  }
}

}  // namespace quillon::accuracy
