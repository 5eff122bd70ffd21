// Contours: the lines along which grey crosses a level, to a fraction of a pixel.
//
// Between the centres of two pixels that are neighbours grey is taken to change evenly, so that a
// contour crosses the line between a darker and a brighter one at
//
//   t = (level - darker) / (brighter - darker)
//
// of the way. From there it goes on through the square of four centres ahead (the plane's form of
// Lorensen and Cline, "Marching cubes", SIGGRAPH 1987). Where bright pixels touch at a corner only,
// it goes around both together, as blobs do.
#pragma once

#include <vector>

#include "kit/geometry.h"
#include "quillon/image.h"

namespace quillon::kit {

struct Contour {
  // One for each line between two centres that is crossed, in the order in which they are met with
  // the bright side on the right: clockwise around bright things, the other way around dark ones.
  std::vector<Point> points;
  bool isClosed;  // it does not end at the picture's border, or where it was cut

  double Length() const;
  bool IsAroundBright() const;  // of closed ones
};

// The contours of at least this length, in pixels, in the order of their topmost points. Pixels of
// the level are bright. Throws Failure where there are too many.
std::vector<Contour> FindContours(const GreyImage& image, double level, double minLength);

// What of the contours lies in the box and is long enough, in pieces where they leave it.
std::vector<Contour> CutTo(const TurnedBox& box, const std::vector<Contour>& contours,
                           double minLength);

// So many of its points at the most, evenly taken.
std::vector<Point> Thinned(const Contour& contour, size_t most);

}  // namespace quillon::kit
