// Prints the table of docs/ncc-accuracy.md: how far the matches of synthetic scenes lie from the
// poses they were drawn at, and how many were missed or invented.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "quillon/quillon.h"
#include "support/scenes.h"

namespace quillon::test {
namespace {

struct Row {
  const char* name;
  SceneSpec spec;
  int scenes;
};

struct Figures {
  int truths = 0, found = 0, wrong = 0;
  double position = 0, worst = 0, angle = 0, worstAngle = 0, scale = 0, seconds = 0;
};

double AngleBetween(double a, double b) { return std::abs(std::remainder(a - b, 360.0)); }

void Compare(const std::vector<Truth>& truths, NccTool* tool, int count, Figures& figures) {
  std::vector<bool> met(truths.size());
  figures.truths += static_cast<int>(truths.size());
  for (int i = 0; i < count; ++i) {
    NccResult result;
    IxGetNCCMatchResults(tool, i, &result);
    size_t nearest = 0;
    const auto distance = [&](size_t j) {
      return std::hypot(truths[j].x - result.x, truths[j].y - result.y);
    };
    for (size_t j = 1; j < truths.size(); ++j) {
      if (distance(j) < distance(nearest)) nearest = j;
    }
    constexpr double kMet = 2;  // pixels
    if (truths.empty() || distance(nearest) > kMet || met[nearest]) {
      ++figures.wrong;
      continue;
    }
    met[nearest] = true;
    ++figures.found;
    const double angle = AngleBetween(result.angle, truths[nearest].angle);
    figures.position += distance(nearest);
    figures.worst = std::max(figures.worst, distance(nearest));
    figures.angle += angle;
    figures.worstAngle = std::max(figures.worstAngle, angle);
    figures.scale += std::abs(result.scale - truths[nearest].scale);
  }
}

Figures Measure(const Row& row) {
  Figures figures;
  GreyImage pattern, scene;
  const std::unique_ptr<NccTool, void (*)(NccTool*)> tool(IxCreateNCCTool(), IxDestroyNCCModel);
  for (int i = 0; i < row.scenes; ++i) {
    SceneSpec spec = row.spec;
    spec.seed = row.spec.seed + static_cast<uint32_t>(i);
    const auto truths = MakeScene(spec, pattern, scene);
    IxCreateNCCMatchModel(&pattern, tool.get(), false);
    const auto start = std::chrono::steady_clock::now();
    const bool rotate = spec.angleMin < spec.angleMax;
    const int count = IxFindNCCMatchModel(&scene, tool.get(), 0.8, spec.angleMax, spec.angleMin,
                                          spec.scaleMax, spec.scaleMin, rotate, 50);
    figures.seconds +=
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    Compare(truths, tool.get(), count, figures);
  }
  return figures;
}

// Six rows, each also at a lower contrast with noise.
std::vector<Row> Rows() {
  std::vector<Row> rows = {
      {"moved", {.instances = 5, .seed = 100}, 20},
      {"moved, 20 a scene", {.width = 1280, .height = 1024, .instances = 20, .seed = 200}, 5},
      {"turned up to 20°", {.instances = 5, .angleMin = -20, .angleMax = 20, .seed = 300}, 20},
      {"turned any way",
       {.width = 1280,
        .height = 1024,
        .instances = 20,
        .angleMin = -180,
        .angleMax = 180,
        .seed = 400},
       5},
      {"scaled 0.8 to 1.2", {.instances = 4, .scaleMin = 0.8, .scaleMax = 1.2, .seed = 500}, 20},
      {"turned any way, scaled",
       {.templateWidth = 100,
        .templateHeight = 100,
        .width = 1280,
        .height = 1024,
        .instances = 10,
        .angleMin = -180,
        .angleMax = 180,
        .scaleMin = 0.8,
        .scaleMax = 1.2,
        .seed = 600},
       5},
      {"100 x 60, turned, scaled",
       {.templateWidth = 100,
        .templateHeight = 60,
        .instances = 4,
        .angleMin = -30,
        .angleMax = 30,
        .scaleMin = 0.9,
        .scaleMax = 1.1,
        .seed = 700},
       10},
      {"150 x 151, turned any way",
       {.templateWidth = 150,
        .templateHeight = 151,
        .width = 1280,
        .height = 1024,
        .instances = 6,
        .angleMin = -180,
        .angleMax = 180,
        .seed = 800},
       5},
  };
  const size_t clean = rows.size();
  for (size_t i = 0; i < clean; ++i) {
    Row noisy = rows[i];
    noisy.spec.gain = 0.7;
    noisy.spec.noise = 10;
    rows.push_back(noisy);
  }
  return rows;
}

}  // namespace
}  // namespace quillon::test

int main() {
  using namespace quillon::test;
  std::printf(
      "| scenes | noise, gain | instances | found | false | position mean, worst | "
      "angle mean, worst | scale mean |\n|---|---|---|---|---|---|---|---|\n");
  for (const Row& row : Rows()) {
    const Figures f = Measure(row);
    const double n = std::max(f.found, 1);
    std::printf("| %s | %s | %d | %d | %d | %.3f, %.3f px | %.3f, %.3f° | %.4f |\n", row.name,
                row.spec.noise > 0 ? "10, 0.7" : "0, 1", f.truths, f.found, f.wrong, f.position / n,
                f.worst, f.angle / n, f.worstAngle, f.scale / n);
    if (std::getenv("QUILLON_TIMES"))
      std::printf("    %.2f ms a scene\n", 1e3 * f.seconds / row.scenes);
    std::fflush(stdout);
  }
}
