// The inner corners of a chessboard in a picture: partly seen, turned, under uneven light.
//
// Corners are saddles of the smoothed picture. Around each the grey values are bright twice and
// dark twice, and from one corner to the next in its row they change places: so corners are put
// together to a grid by where the next one is expected and by which way it is bright. Places are
// refined as where the gradients around point past the corner at right angles (Foerstner and
// Guelch, "A fast operator for detection and precise location of distinct points", 1987).
#pragma once

#include <vector>

#include "kit/calibration/board_grid.h"
#include "quillon/image.h"

namespace quillon::kit {

// The largest grid of corners in the picture that is part of such a board, in the order of rows;
// empty where there are not 9 of them.
std::vector<BoardPoint> FindChessboard(const GreyImage& image, BoardSize size);

}  // namespace quillon::kit
