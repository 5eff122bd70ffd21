// What has no plain form of the same last bits: fits, and searches over angles, which use the
// platform's sine, cosine and arc cosine.
#include "golden/golden.h"
#include "golden/matching_scenes.h"

namespace quillon::test::golden {
namespace {

// Sine and cosine of two platforms differ in the last of 53 bits; a turned template is sampled in
// fixed point, which mostly takes the difference away, and fits carry the rest.
constexpr double kPlatformBound = 1e-9;

std::vector<double> LensCoefficients(int side) {
  std::vector<int> points;
  const int half = (side - 1) / 2;
  for (int row = -half; row <= half; ++row) {
    for (int column = -half; column <= half; ++column) {
      const int bend = row * row + column * column;
      points.push_back(200 + 30 * column + column * bend);
      points.push_back(150 + 31 * row - row * bend + column);
    }
  }
  GreyImage image;
  image.Create(400, 300);
  IxDistortionParaBuild(&image, points.data(), side * side, 30, 31, 10000, 10000, nullptr);
  std::vector<double> numbers(points.begin(), points.begin() + 2);
  for (int n : {image.centreX, image.centreY, image.correctedWidth, image.correctedHeight,
                image.xMin, image.xMax, image.yMin, image.yMax}) {
    numbers.push_back(n);
  }
  numbers.insert(numbers.end(), image.distortionCoefficients, image.distortionCoefficients + 20);
  return numbers;
}

std::vector<double> Poses(double angle, double scale) {
  CorrelationScene scene;
  GreyImage turned, image;
  reference::Rotate(Sampling::kBilinear, scene.image, turned, angle);
  reference::Scale(turned, image, scale, scale);
  const NccOwner tool(IxCreateNCCTool());
  IxCreateNCCMatchModel(&scene.pattern, tool.get(), false);
  const bool rotate = angle != 0;
  const int count = IxFindNCCMatchModel(&image, tool.get(), 0.7, rotate ? 20 : 0, rotate ? -20 : 0,
                                        scale != 1 ? 1.2 : 1, scale != 1 ? 0.9 : 1, rotate, 20);
  std::vector<double> numbers;
  for (int i = 0; i < count; ++i) {
    NccResult r = {};
    IxGetNCCMatchResults(tool.get(), i, &r);
    for (double n : {double(r.matchWidth), r.x, r.y, r.angle, r.scale, r.score}) {
      numbers.push_back(n);
    }
  }
  return numbers;
}

}  // namespace

std::vector<Measurement> Measurements() {
  std::vector<Measurement> all;
  for (int side : {3, 7}) {
    all.push_back({"IxDistortionParaBuild " + std::to_string(side), 0,
                   [=] { return LensCoefficients(side); }});
  }
  all.push_back({"IxFindNCCMatchModel moved", 0, [] { return Poses(0, 1); }});
  all.push_back({"IxFindNCCMatchModel turned", kPlatformBound, [] { return Poses(11, 1); }});
  all.push_back({"IxFindNCCMatchModel scaled", kPlatformBound, [] { return Poses(0, 1.1); }});
  all.push_back({"IxFindNCCMatchModel both", kPlatformBound, [] { return Poses(-7, 1.08); }});
  for (uint32_t seed = 1; seed <= kEdgeScenes; ++seed) {
    all.push_back({"IxFindGeoMatchModel turned " + std::to_string(seed), kPlatformBound,
                   [=] { return EdgeScene(seed, 12.5).Find(1); }});
  }
  return all;
}

}  // namespace quillon::test::golden
