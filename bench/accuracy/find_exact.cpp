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
