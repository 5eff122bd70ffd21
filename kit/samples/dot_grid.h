// A drawn picture of a calibration target, a square grid of dark dots, seen through a lens that
// bends straight lines outwards, and the truth about it.
#pragma once

#include <vector>

#include "kit/geometry.h"
#include "quillon/image.h"

namespace quillon::kit {

constexpr int kGridSide = 15;     // dots a side
constexpr double kGridStep = 56;  // pixels from dot to dot in the middle of the picture

// The dots' centres come row by row from the top left.
void DrawDotGrid(int width, int height, GreyImage& image, std::vector<Point>& centres);

}  // namespace quillon::kit
