// Trays of drawn parts before drawn cameras, and how well examples/recipes/measure-brackets.json
// measures the brackets in them once the camera is calibrated and its pictures are rectified.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "cli/drawn_views.h"
#include "kit/calibration/camera.h"
#include "kit/recipe/inspector.h"

namespace quillon::test {

// A camera with a bent lens that looks at a tray somewhat aslant; a pixel of the drawn tray is
// 0.05 mm long. It is calibrated from drawn boards, the first of which lies where the trays do.
class TrayCamera {
 public:
  // Writes the camera file.
  TrayCamera(uint64_t seed, const std::string& file);

  // The tray of this seed as the camera takes it, and how many brackets are on it.
  void Take(uint32_t seed, GreyImage& image, int& brackets);

  double Rms() const { return rms_; }  // of the calibration

 private:
  std::mt19937_64 random_;
  kit::Lens lens_;
  kit::BoardPlace place_;
  PlaneView view_;
  double rms_ = 0;
};

// The recipe of the file `example`, on pictures that are rectified by the camera file.
std::string RecipeForCamera(const std::string& example, const std::string& camera);

// Differences from what was drawn, in millimetres: of an angle, at the end of the leg.
struct BracketErrors {
  std::vector<double> diameters, distances, angles;
};

// Adds those of the last image; false where a bracket was missed or one is too many.
bool AddErrors(const kit::recipe::Recipe& recipe, const kit::recipe::Inspector& inspector,
               int brackets, BracketErrors& errors);

}  // namespace quillon::test
