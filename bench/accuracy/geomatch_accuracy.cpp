// How often edge-based matching finds what it was taught, and how exactly: a table over
// disturbances and kinds of scenes.
//
//   quillon_geomatch_accuracy [FOLDER]     with photographs (.png, .jpg) also from there
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "accuracy/scenes.h"
#include "quillon/quillon.h"

namespace quillon::accuracy {
namespace {

constexpr int kTrials = 150;  // of each cell of the table
constexpr double kHigh = 80, kLow = 30, kMinScore = 0.5, kGreediness = 0.7;

void ToImage(const cv::Mat& mat, GreyImage& image) {
  image.Create(mat.cols, mat.rows);
  for (int y = 0; y < mat.rows; ++y) {
    std::memcpy(image.rows[y], mat.ptr(y), static_cast<size_t>(mat.cols));
  }
}

// ---- the table ----------------------------------------------------------------------------------

struct Tally {
  int found = 0, trials = 0;
  std::vector<double> distances, turns;

  void Add(const Scene& scene, const int (&position)[2], double angle, bool anyAngle) {
    constexpr double kNear = 4;  // pixels; farther is not found
    ++trials;
    const double distance = std::hypot(position[0] - scene.place.x, position[1] - scene.place.y);
    const double turn = std::abs(angle - scene.degrees);
    if (distance > kNear || (anyAngle && turn > kNear)) return;
    ++found;
    distances.push_back(distance);
    turns.push_back(turn);
  }
};

void Search(const Scene& scene, GeoMatchTool* tool, bool anyAngle, Tally& tally) {
  GreyImage pattern, image;
  ToImage(scene.pattern, pattern);
  ToImage(scene.image, image);
  int position[2] = {-1000, -1000};
  IxCreateGeoMatchModel(&pattern, tool, kHigh, kLow);
  const double angle =
      IxFindGeoMatchModel(&image, tool, kMinScore, kGreediness, position, 20, -20, anyAngle);
  tally.Add(scene, position, angle, anyAngle);
}

using MakeScene = std::function<Scene(int side, double degrees, cv::RNG&)>;

void PrintCell(const MakeScene& make, int side, bool anyAngle, Disturbance disturb) {
  const std::unique_ptr<GeoMatchTool, void (*)(GeoMatchTool*)> tool(IxCreateGeoTool(),
                                                                    IxDestroyMatchModel);
  cv::RNG random(1);
  Tally tally;
  for (int i = 0; i < kTrials; ++i) {
    Scene scene = make(side, anyAngle ? random.uniform(-20.0, 20.0) : 0, random);
    disturb(scene, random);
    Search(scene, tool.get(), anyAngle, tally);
  }
  std::printf(" %.0f %%, %.1f px", 100.0 * tally.found / tally.trials, Median(tally.distances));
  if (anyAngle) std::printf(", %.1f deg", Median(tally.turns));
  std::printf(" |");
}

void PrintHeader() {
  std::printf("| scenes | angles | template |");
  for (const NamedDisturbance& disturbance : kDisturbances) std::printf(" %s |", disturbance.name);
  std::printf("\n|---|---|---|");
  for (size_t i = 0; i < std::size(kDisturbances); ++i) std::printf("---|");
  std::printf("\n");
}

void PrintRows(const char* kind, const MakeScene& make) {
  for (const bool anyAngle : {false, true}) {
    for (const int side : {64, 96, 128}) {
      std::printf("| %s | %s | %d x %d |", kind, anyAngle ? "-20 to 20" : "not searched", side,
                  side);
      for (const NamedDisturbance& disturbance : kDisturbances) {
        PrintCell(make, side, anyAngle, disturbance.apply);
      }
      std::printf("\n");
    }
  }
}

}  // namespace
}  // namespace quillon::accuracy

int main(int argc, char** argv) {
  using namespace quillon::accuracy;
  PrintHeader();
  PrintRows("drawn", DrawnScene);
  if (argc < 2) return 0;
  const std::vector<cv::Mat> photos = ReadPhotographs(argv[1]);
  if (photos.empty()) {
    std::fprintf(stderr, "no photographs of 300 pixels or more in %s\n", argv[1]);
    return 1;
  }
  size_t next = 0;
  PrintRows("photographed", [&](int side, double degrees, cv::RNG& random) {
    return PhotographedScene(photos[next++ % photos.size()], side, degrees, random);
  });
}
