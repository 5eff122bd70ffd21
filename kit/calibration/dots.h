// The dots of a calibration board in a picture, dark on bright or bright on dark: partly seen,
// turned, under uneven light.
//
// A pixel belongs to a dot where it differs enough from the mean around it. What is round and as
// large as most is a dot; its place is the mean of its pixels, each weighted by how much it differs
// from the ground.
#pragma once

#include <vector>

#include "kit/calibration/board_grid.h"
#include "quillon/image.h"

namespace quillon::kit {

// The largest grid of dots in the picture that is part of such a board, in the order of rows; empty
// where there are not 9 of them.
std::vector<BoardPoint> FindDots(const GreyImage& image, BoardSize size);

}  // namespace quillon::kit
