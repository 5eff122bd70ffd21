// Edge-based matching as it is defined: one pixel, one point, one position after the other.
#pragma once

#include <vector>

#include "quillon/image.h"

namespace quillon::test::reference {

struct Plane {
  int width = 0, height = 0;
  std::vector<uint8_t> pixels;
  std::vector<int> gx, gy;

  int At(int x, int y) const { return pixels[Index(x, y)]; }
  size_t Index(int x, int y) const {
    return static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x);
  }
};

// Level `level` of the image, gradients included.
Plane MakePlane(const GreyImage& image, int level);

struct GeoPoint {
  int x, y, gx, gy;
  double inverse;
};

struct GeoLevel {
  int width = 0, height = 0, referenceX = 0, referenceY = 0;
  std::vector<GeoPoint> points;
  double radius = 0;
};

struct GeoModel {
  int topLevel = 0;
  std::vector<GeoLevel> levels;
};

GeoModel Teach(const GreyImage& image, double high, double low);

struct GeoQuery {
  double minScore, greediness;
  bool anyAngle;
  double lowest, highest;
};

// The angle found, and what it was before the limits.
struct GeoResult {
  double angle = 0, fitAngle = 0;
};
GeoResult Find(const GreyImage& image, const GeoModel& model, const GeoQuery& query,
               int (&position)[2]);

// The angle of the peak of the quadric through 27 scores, `degrees` apart in their first index.
double PeakAngle(const double (&scores)[3][3][3], double degrees);

}  // namespace quillon::test::reference
