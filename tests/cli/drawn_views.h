// What a camera sees of a plane with a drawing on it: boards for calibration, trays to measure on.
// All is known exactly, for what is drawn is a function of the place on the plane.
#pragma once

#include <functional>
#include <random>
#include <vector>

#include "kit/calibration/camera.h"
#include "quillon/image.h"

namespace quillon::test {

// Grey values of a picture before they are rounded.
struct DrawnPicture {
  int width = 0, height = 0;
  std::vector<double> grey;

  // By a Gaussian, rows and columns in turn; edges are continued.
  void Blur(double deviation);
  // Rounded, with noise of this deviation.
  void To(GreyImage& image, double noise, std::mt19937_64& random) const;
};

// The places of a plane that the pixels of a camera see, each by the middles of parts x parts equal
// parts.
class PlaneView {
 public:
  PlaneView(const kit::Lens& lens, const kit::BoardPlace& place, kit::PictureSize size, int parts);

  // `grey` is that of a place, in columns and rows of the board.
  DrawnPicture Draw(const std::function<double(kit::Point)>& grey) const;

 private:
  kit::PictureSize size_;
  int parts_;
  std::vector<kit::Point> places_;  // of the parts, row by row of the picture
};

// A chessboard of so many inner corners, which lie at whole columns and rows from 0 on; dark is 0,
// bright 1, and so is what lies around the board. Its edges are soft, by this part of a square: few
// parts of a pixel tell then where they lie.
double Chessboard(kit::Point at, int columns, int rows, double softness);

// Dots of this radius at whole columns and rows from 0 on, in the same way.
double Dots(kit::Point at, int columns, int rows, double radius, double softness);

}  // namespace quillon::test
