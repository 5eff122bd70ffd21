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
#include "support/synthetic_rows.h"

namespace quillon::test {
namespace {

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

Figures Measure(const SyntheticRow& row) {
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

}  // namespace
}  // namespace quillon::test

int main() {
  using namespace quillon::test;
  std::printf(
      "| scenes | noise, gain | instances | found | false | position mean, worst | "
      "angle mean, worst | scale mean |\n|---|---|---|---|---|---|---|---|\n");
  for (const SyntheticRow& row : SyntheticRows()) {
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
