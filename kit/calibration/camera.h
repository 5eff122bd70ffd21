// A camera with its lens, from pictures of a flat board: a pinhole and what bends its rays.
//
//   x = X / Z, y = Y / Z, s = x^2 + y^2             the point as the camera sees it
//   b = 1 + k1 s + k2 s^2 + k3 s^3                  radial bend
//   x' = b x + 2 p1 x y + p2 (s + 2 x^2)            and what is left of a lens that is not centred
//   y' = b y + p1 (s + 2 y^2) + 2 p2 x y            (Brown's model)
//   column = fx x' + cx, row = fy y' + cy
//
// The start comes from the boards' homographies (Zhang, "A flexible new technique for camera
// calibration", 2000); then all parameters and the places of all boards are fitted together, to the
// least squares of distances in the pictures.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "kit/calibration/chessboard.h"
#include "kit/calibration/parameter_file.h"
#include "kit/geometry.h"

namespace quillon::kit {

struct Lens {
  double fx = 0, fy = 0, cx = 0, cy = 0;
  std::array<double, 5> bend = {};  // k1, k2, p1, p2, k3

  // Where a ray through (x, y, 1) meets the picture.
  Point Project(double x, double y) const;
};

// Where a board lies before the camera: a rotation vector and a shift, in squares of the board.
struct BoardPlace {
  std::array<double, 3> rotation = {}, shift = {};

  // The point of the board's plane before the camera, over its distance.
  Point Seen(double column, double row) const;
};

struct BoardView {
  std::string name;  // of the picture
  std::vector<BoardPoint> points;
};

struct FittedView {
  BoardPlace place = {};
  std::vector<Point> fitted;  // for each point
  double rms = 0, worst = 0;  // pixels
  size_t worstPoint = 0;
};

struct Camera {
  PictureSize size;
  Lens lens = {};
  double square = 0;  // side of the board's squares
  std::string unit;   // in which it is counted
  std::vector<FittedView> views;
  double rms = 0, worst = 0;  // over all points, pixels
  BoardPlace plane = {};      // in which is measured: that of the first view
};

constexpr size_t kViewsForAll = 3;  // of fewer only the focal length, k1 and k2 are fitted

// The corners, or the dots, of a picture that is called so. Throws Failure where it shows too few
// of them.
BoardView ViewOfChessboard(const std::string& name, const GreyImage& image, BoardSize board);
BoardView ViewOfDots(const std::string& name, const GreyImage& image, BoardSize board);

// Throws Failure where a view cannot be one of a flat board.
Camera FitCamera(const std::vector<BoardView>& views, PictureSize size);

// The residuals, in pixels (RMS), that are too large unless somebody says otherwise.
constexpr double kMostResiduals = 0.5;

// Throws Failure naming the worst picture where the residuals are larger, in pixels (RMS): such a
// fit is of no use.
void RequireResidualsWithin(double maxRms, const Camera& camera,
                            const std::vector<BoardView>& views);

// The length in the plane that a pixel in the middle of the picture covers, in the unit.
double UnitPerPixel(const Camera& camera);

// Where the plane is seen at this place of the picture, in squares: column and row of the board.
// Throws Failure where the lens bends no ray of the plane there.
Point PlaceInPlane(const Camera& camera, Point seen);

// What is written to a camera file, with the corners of the views that it was fitted to.
std::string CameraText(const Camera& camera, const std::vector<BoardView>& boards);

// Reads what pictures are corrected by: views and residuals are left out. Throws Failure naming the
// file.
Camera ParseCamera(const std::string& path, const std::string& text);
Camera ReadCamera(const std::string& path);

// Where the camera sees the places of the rectified picture, those around it too.
class RectifiedPlaces {
 public:
  // The camera must outlive it.
  explicit RectifiedPlaces(const Camera& camera);
  explicit RectifiedPlaces(Camera&&) = delete;
  Point SeenAt(double x, double y) const;

 private:
  const Camera& camera_;
  Point middle_, right_;  // in squares: where the picture's middle looks, and a pixel to the right
};

}  // namespace quillon::kit
