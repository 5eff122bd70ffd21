// The finder by edges: how often it finds one part under what disturbs a picture, and how the range
// of angles counts.
#include <algorithm>
#include <cstdio>

#include "accuracy/find_figures.h"

namespace quillon::accuracy {
namespace {

using finder::FindOptions;

using MakeScene = Scene (*)(const Settings& settings, int trial, int side, double degrees,
                            cv::RNG&);

Scene MakeDrawn(const Settings&, int, int side, double degrees, cv::RNG& random) {
  return DrawnScene(side, degrees, random);
}
Scene MakePhotographed(const Settings& settings, int trial, int side, double degrees,
                       cv::RNG& random) {
  return PhotographedScene(settings.photos[trial % settings.photos.size()], side, degrees, random);
}

struct EdgeRow {
  const char* name;
  MakeScene make;
  double range;               // degrees to either side
  bool acceptedOnly = false;  // templates that teaching does not doubt
};

void PrintHeader() {
  std::printf("| scenes | angles |");
  for (const NamedDisturbance& disturbance : kDisturbances) std::printf(" %s |", disturbance.name);
  std::printf("\n|---|---|---|---|---|---|---|---|---|\n");
}

void PrintEdgeRow(const Settings& settings, const EdgeRow& row) {
  std::printf("| %s | %s |", row.name, row.range >= 180 ? "any" : "-20 to 20");
  int refused = 0, taught = 0;
  std::vector<double> times;
  for (const NamedDisturbance& disturbance : kDisturbances) {
    cv::RNG random(settings.seed);
    Tally tally;
    for (int trial = 0; tally.trials < settings.scenes && trial < 20 * settings.scenes; ++trial) {
      constexpr int kSides[] = {64, 96, 128};
      Scene scene = row.make(settings, trial, kSides[trial % 3],
                             random.uniform(-row.range, row.range), random);
      disturbance.apply(scene, random);
      finder::Model model;
      const finder::Status status =
          finder::Teach(BestFinderKernels(), PictureOf(scene.pattern), {}, model);
      ++taught;
      if (row.acceptedOnly && (status != finder::Status::kOk || model.doubts != 0)) {
        ++refused;
        continue;
      }
      FindOptions options;
      options.angleLow = -row.range;
      options.angleHigh = row.range;
      options.minScore = 0.3;
      options.maxCount = 1;
      FindOne(settings, scene, model, options, tally);
    }
    tally.Print();
    times.insert(times.end(), tally.times.begin(), tally.times.end());
  }
  std::printf(" %.1f ms, accepted %d of %d\n", Median(times), taught - refused, taught);
}

}  // namespace

void PrintEdges(const Settings& settings) {
  PrintHeader();
  for (const double range : {20.0, 180.0}) PrintEdgeRow(settings, {"drawn", MakeDrawn, range});
  if (settings.photos.empty()) return;
  for (const double range : {20.0, 180.0}) {
    PrintEdgeRow(settings, {"photographs, any place", MakePhotographed, range});
  }
}

void PrintAccepted(const Settings& settings) {
  if (settings.photos.empty()) return;
  PrintHeader();
  for (const double range : {20.0, 180.0}) {
    PrintEdgeRow(settings, {"photographs, accepted", MakePhotographed, range, true});
  }
}

void PrintNarrow(const Settings& settings) {
  std::printf("| edges, drawn, range around the truth | found | time |\n|---|---|---|\n");
  for (const double range : {1.0, 3.0, 5.0, 20.0}) {
    cv::RNG random(settings.seed);
    Tally tally;
    for (int trial = 0; trial < settings.scenes; ++trial) {
      const double degrees = random.uniform(-180.0, 180.0);
      const Scene scene = DrawnScene(96, degrees, random);
      finder::Model model;
      finder::Teach(BestFinderKernels(), PictureOf(scene.pattern), {}, model);
      FindOptions options;
      const double off = random.uniform(-range, range);
      options.angleLow = degrees + off - range;
      options.angleHigh = degrees + off + range;
      options.maxCount = 1;
      FindOne(settings, scene, model, options, tally);
    }
    std::printf("| %.0f |", range);
    tally.Print();
    std::printf(" %.1f ms |\n", Median(tally.times));
  }
}

}  // namespace quillon::accuracy
